// SPDX-License-Identifier: Apache-2.0
// The bodies of the exceptions, and the two ways in which every failure is reported: the return code and the failed precondition.
#include "norvane/Exception.hpp"

#include "UntypedCommon.pkg.hpp"
#include "norvane/details/precondition.hpp"

namespace norvane {
namespace {

template <typename Exception>
[[noreturn]] void throw_with_context(const Exception& exception, const std::string& additional_info) {
    throw Exception(additional_info + " caused by " + exception.what());
}

}  // namespace

Rethrowable::~Rethrowable() = default;

RuntimeException::RuntimeException(const std::string& message) : std::runtime_error(message) {}
RuntimeException::RuntimeException(const RuntimeException& other) = default;
RuntimeException::~RuntimeException() = default;
void RuntimeException::raise() { throw *this; }
void RuntimeException::rethrow(const std::string& additional_info) const { throw_with_context(*this, additional_info); }

LogicException::LogicException(const std::string& message) : std::logic_error(message) {}
LogicException::LogicException(const LogicException& other) = default;
LogicException::~LogicException() = default;
void LogicException::raise() { throw *this; }
void LogicException::rethrow(const std::string& additional_info) const { throw_with_context(*this, additional_info); }

TimeoutException::TimeoutException(const std::string& message) : RuntimeException(message) {}
TimeoutException::TimeoutException(const TimeoutException& other) = default;
TimeoutException::~TimeoutException() = default;
void TimeoutException::raise() { throw *this; }
void TimeoutException::rethrow(const std::string& additional_info) const { throw_with_context(*this, additional_info); }

OutOfResourcesException::OutOfResourcesException(const std::string& message) : RuntimeException(message) {}
OutOfResourcesException::OutOfResourcesException(const OutOfResourcesException& other) = default;
OutOfResourcesException::~OutOfResourcesException() = default;
void OutOfResourcesException::raise() { throw *this; }
void OutOfResourcesException::rethrow(const std::string& additional_info) const { throw_with_context(*this, additional_info); }

UnsupportedException::UnsupportedException(const std::string& message) : LogicException(message) {}
UnsupportedException::UnsupportedException(const UnsupportedException& other) = default;
UnsupportedException::~UnsupportedException() = default;
void UnsupportedException::raise() { throw *this; }
void UnsupportedException::rethrow(const std::string& additional_info) const { throw_with_context(*this, additional_info); }

BadParameterException::BadParameterException(const std::string& message) : LogicException(message) {}
BadParameterException::BadParameterException(const BadParameterException& other) = default;
BadParameterException::~BadParameterException() = default;
void BadParameterException::raise() { throw *this; }
void BadParameterException::rethrow(const std::string& additional_info) const { throw_with_context(*this, additional_info); }

PreconditionNotMetException::PreconditionNotMetException(const std::string& message) : LogicException(message) {}
PreconditionNotMetException::PreconditionNotMetException(const PreconditionNotMetException& other) = default;
PreconditionNotMetException::~PreconditionNotMetException() = default;
void PreconditionNotMetException::raise() { throw *this; }
void PreconditionNotMetException::rethrow(const std::string& additional_info) const { throw_with_context(*this, additional_info); }

ImmutablePolicyException::ImmutablePolicyException(const std::string& message) : LogicException(message) {}
ImmutablePolicyException::ImmutablePolicyException(const ImmutablePolicyException& other) = default;
ImmutablePolicyException::~ImmutablePolicyException() = default;
void ImmutablePolicyException::raise() { throw *this; }
void ImmutablePolicyException::rethrow(const std::string& additional_info) const { throw_with_context(*this, additional_info); }

InconsistentPolicyException::InconsistentPolicyException(const std::string& message) : LogicException(message) {}
InconsistentPolicyException::InconsistentPolicyException(const InconsistentPolicyException& other) = default;
InconsistentPolicyException::~InconsistentPolicyException() = default;
void InconsistentPolicyException::raise() { throw *this; }
void InconsistentPolicyException::rethrow(const std::string& additional_info) const { throw_with_context(*this, additional_info); }

NotEnabledException::NotEnabledException(const std::string& message) : LogicException(message) {}
NotEnabledException::NotEnabledException(const NotEnabledException& other) = default;
NotEnabledException::~NotEnabledException() = default;
void NotEnabledException::raise() { throw *this; }
void NotEnabledException::rethrow(const std::string& additional_info) const { throw_with_context(*this, additional_info); }

AlreadyDeletedException::AlreadyDeletedException(const std::string& message) : LogicException(message) {}
AlreadyDeletedException::AlreadyDeletedException(const AlreadyDeletedException& other) = default;
AlreadyDeletedException::~AlreadyDeletedException() = default;
void AlreadyDeletedException::raise() { throw *this; }
void AlreadyDeletedException::rethrow(const std::string& additional_info) const { throw_with_context(*this, additional_info); }

IllegalOperationException::IllegalOperationException(const std::string& message) : LogicException(message) {}
IllegalOperationException::IllegalOperationException(const IllegalOperationException& other) = default;
IllegalOperationException::~IllegalOperationException() = default;
void IllegalOperationException::raise() { throw *this; }
void IllegalOperationException::rethrow(const std::string& additional_info) const { throw_with_context(*this, additional_info); }

void throw_retcode(DDS_ReturnCode_t retcode, const std::string& message) {
    switch (retcode) {
        case DDS_RETCODE_UNSUPPORTED:
            throw UnsupportedException(message);
        case DDS_RETCODE_BAD_PARAMETER:
            throw BadParameterException(message);
        case DDS_RETCODE_PRECONDITION_NOT_MET:
            throw PreconditionNotMetException(message);
        case DDS_RETCODE_OUT_OF_RESOURCES:
            throw OutOfResourcesException(message);
        case DDS_RETCODE_NOT_ENABLED:
            throw NotEnabledException(message);
        case DDS_RETCODE_IMMUTABLE_POLICY:
            throw ImmutablePolicyException(message);
        case DDS_RETCODE_INCONSISTENT_POLICY:
            throw InconsistentPolicyException(message);
        case DDS_RETCODE_ALREADY_DELETED:
            throw AlreadyDeletedException(message);
        case DDS_RETCODE_TIMEOUT:
            throw TimeoutException(message);
        case DDS_RETCODE_ILLEGAL_OPERATION:
            throw IllegalOperationException(message);
        default:
            throw RuntimeException(message);
    }
}

bool check_retcode(DDS_ReturnCode_t retcode, const char* method_name, const VOSTLogMessage& error_msg, const std::string& msg,
                   bool throw_timeout_error) {
    if (retcode == DDS_RETCODE_OK) {
        return true;
    }
    if ((retcode == DDS_RETCODE_TIMEOUT && !throw_timeout_error) || retcode == DDS_RETCODE_NO_DATA) {
        return false;
    }
    details::log_line(details::LOG_ERROR, method_name, error_msg, msg.c_str());

    // Not printf: the message is text of the user's (a topic name, say), and nothing in it or in the format is interpreted.
    std::string expanded = error_msg.format;
    const std::string::size_type place = expanded.find("%s");
    if (place != std::string::npos) {
        expanded.replace(place, 2, msg);
    }
    throw_retcode(retcode, std::string(method_name) + ":" + expanded);
}

namespace details {

void fail_precondition(const char* condition, const char* function, const char* file, int line) {
    if (log_is_on(LOG_PRECONDITION)) {
        // The log shows the condition as the compiler saw it, the exception as it was written.
        std::string seen = condition;
        for (std::string::size_type place = seen.find("NULL"); place != std::string::npos; place = seen.find("NULL", place)) {
            seen.replace(place, 4, "__null");
        }
        log_line(LOG_PRECONDITION, function, VOST_LOG_PRECONDITION_FAILURE_s, ("\"!(" + seen + ")\"").c_str(), file, line);
    }
    if (VOSTLog_g_detectPrecondition != 0) {
        VOSTLog_g_preconditionDetected = 1;
    }
    VOSTLog_onAssertBreakpoint();
    throw PreconditionNotMetException(condition);
}

}  // namespace details
}  // namespace norvane
