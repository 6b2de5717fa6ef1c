// SPDX-License-Identifier: Apache-2.0
// The exceptions of the library, and the one place where a return code becomes one.
//
//   return code                          class                          standard base
//   DDS_RETCODE_UNSUPPORTED              UnsupportedException           std::logic_error
//   DDS_RETCODE_BAD_PARAMETER            BadParameterException          std::logic_error
//   DDS_RETCODE_PRECONDITION_NOT_MET     PreconditionNotMetException    std::logic_error
//   DDS_RETCODE_OUT_OF_RESOURCES         OutOfResourcesException        std::runtime_error
//   DDS_RETCODE_NOT_ENABLED              NotEnabledException            std::logic_error
//   DDS_RETCODE_IMMUTABLE_POLICY         ImmutablePolicyException       std::logic_error
//   DDS_RETCODE_INCONSISTENT_POLICY      InconsistentPolicyException    std::logic_error
//   DDS_RETCODE_ALREADY_DELETED          AlreadyDeletedException        std::logic_error
//   DDS_RETCODE_TIMEOUT                  TimeoutException               std::runtime_error
//   DDS_RETCODE_ILLEGAL_OPERATION        IllegalOperationException      std::logic_error
//   any other                            RuntimeException               std::runtime_error
#ifndef NORVANE_EXCEPTION_HPP
#define NORVANE_EXCEPTION_HPP

#include <stdexcept>
#include <string>

#include "norvane/dds/log.hpp"
#include "norvane/dds/retcode.hpp"
#include "norvane/export.hpp"

namespace norvane {

/// An error that can be thrown anew, as its own class, with context in front of its message.
class NORVANE_EXPORT Rethrowable {
public:
    Rethrowable() = default;
    Rethrowable(const Rethrowable&) = default;
    /// Throws a new exception of the object's own class.
    /// @param additional_info  put in front of the message, with " caused by " in between.
    [[noreturn]] virtual void rethrow(const std::string& additional_info) const = 0;
    virtual ~Rethrowable();
};

/// Something went wrong while the program ran: the family of failures that a correct program can meet.
class NORVANE_EXPORT RuntimeException : public std::runtime_error, public Rethrowable {
public:
    /// @param message  what `what()` returns, unchanged.
    RuntimeException(const std::string& message);
    RuntimeException(const RuntimeException& other);
    ~RuntimeException() override;
    /// Throws a copy of the exception, as its own class.
    [[noreturn]] virtual void raise();
    [[noreturn]] void rethrow(const std::string& additional_info) const override;
};

/// The program asked for something that cannot be right.
class NORVANE_EXPORT LogicException : public std::logic_error, public Rethrowable {
public:
    /// @param message  what `what()` returns, unchanged.
    LogicException(const std::string& message);
    LogicException(const LogicException& other);
    ~LogicException() override;
    /// Throws a copy of the exception, as its own class.
    [[noreturn]] virtual void raise();
    [[noreturn]] void rethrow(const std::string& additional_info) const override;
};

/// The time ran out.
class NORVANE_EXPORT TimeoutException : public RuntimeException {
public:
    TimeoutException(const std::string& message);
    TimeoutException(const TimeoutException& other);
    ~TimeoutException() override;
    [[noreturn]] void raise() override;
    [[noreturn]] void rethrow(const std::string& additional_info) const override;
};

/// Memory or a configured limit is used up.
class NORVANE_EXPORT OutOfResourcesException : public RuntimeException {
public:
    OutOfResourcesException(const std::string& message);
    OutOfResourcesException(const OutOfResourcesException& other);
    ~OutOfResourcesException() override;
    [[noreturn]] void raise() override;
    [[noreturn]] void rethrow(const std::string& additional_info) const override;
};

/// This engine or this build cannot do it.
class NORVANE_EXPORT UnsupportedException : public LogicException {
public:
    UnsupportedException(const std::string& message);
    UnsupportedException(const UnsupportedException& other);
    ~UnsupportedException() override;
    [[noreturn]] void raise() override;
    [[noreturn]] void rethrow(const std::string& additional_info) const override;
};

/// A parameter was refused.
class NORVANE_EXPORT BadParameterException : public LogicException {
public:
    BadParameterException(const std::string& message);
    BadParameterException(const BadParameterException& other);
    ~BadParameterException() override;
    [[noreturn]] void raise() override;
    [[noreturn]] void rethrow(const std::string& additional_info) const override;
};

/// A precondition does not hold.
class NORVANE_EXPORT PreconditionNotMetException : public LogicException {
public:
    PreconditionNotMetException(const std::string& message);
    PreconditionNotMetException(const PreconditionNotMetException& other);
    ~PreconditionNotMetException() override;
    [[noreturn]] void raise() override;
    [[noreturn]] void rethrow(const std::string& additional_info) const override;
};

/// The policy cannot be changed any more.
class NORVANE_EXPORT ImmutablePolicyException : public LogicException {
public:
    ImmutablePolicyException(const std::string& message);
    ImmutablePolicyException(const ImmutablePolicyException& other);
    ~ImmutablePolicyException() override;
    [[noreturn]] void raise() override;
    [[noreturn]] void rethrow(const std::string& additional_info) const override;
};

/// Two policies contradict each other.
class NORVANE_EXPORT InconsistentPolicyException : public LogicException {
public:
    InconsistentPolicyException(const std::string& message);
    InconsistentPolicyException(const InconsistentPolicyException& other);
    ~InconsistentPolicyException() override;
    [[noreturn]] void raise() override;
    [[noreturn]] void rethrow(const std::string& additional_info) const override;
};

/// The entity is not enabled.
class NORVANE_EXPORT NotEnabledException : public LogicException {
public:
    NotEnabledException(const std::string& message);
    NotEnabledException(const NotEnabledException& other);
    ~NotEnabledException() override;
    [[noreturn]] void raise() override;
    [[noreturn]] void rethrow(const std::string& additional_info) const override;
};

/// The object was deleted or closed.
class NORVANE_EXPORT AlreadyDeletedException : public LogicException {
public:
    AlreadyDeletedException(const std::string& message);
    AlreadyDeletedException(const AlreadyDeletedException& other);
    ~AlreadyDeletedException() override;
    [[noreturn]] void raise() override;
    [[noreturn]] void rethrow(const std::string& additional_info) const override;
};

/// The operation may not be called on this object.
class NORVANE_EXPORT IllegalOperationException : public LogicException {
public:
    IllegalOperationException(const std::string& message);
    IllegalOperationException(const IllegalOperationException& other);
    ~IllegalOperationException() override;
    [[noreturn]] void raise() override;
    [[noreturn]] void rethrow(const std::string& additional_info) const override;
};

/// Throws the exception that the table above gives for a return code.
/// @param message  its message, unchanged.
[[noreturn]] NORVANE_EXPORT void throw_retcode(DDS_ReturnCode_t retcode, const std::string& message);

/// Tells success from "nothing happened", and throws for everything else.
/// @param method_name          the reporting function as "Class::function"; not null.
/// @param error_msg            log template of the failure.
/// @param msg                  takes the place of the template's first "%s".
/// @param throw_timeout_error  whether a time-out is an error.
/// @return true for DDS_RETCODE_OK; false for DDS_RETCODE_NO_DATA, and for DDS_RETCODE_TIMEOUT when that is no error.
/// @throws the class of the table, for every other code; message: method name, ":" and the expanded template. Logged at level 0x2.
/// @par Threads  Any.
NORVANE_EXPORT bool check_retcode(DDS_ReturnCode_t retcode, const char* method_name, const VOSTLogMessage& error_msg,
                                  const std::string& msg, bool throw_timeout_error);

}  // namespace norvane

#endif
