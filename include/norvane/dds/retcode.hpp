// SPDX-License-Identifier: Apache-2.0
// Return codes of the object API. Nothing at or below the object API throws an exception of the library.
#ifndef NORVANE_DDS_RETCODE_HPP
#define NORVANE_DDS_RETCODE_HPP

/// Outcome of an operation of the object API.
enum DDS_ReturnCode_t : int {
    DDS_RETCODE_OK = 0,                         ///< Done.
    DDS_RETCODE_ERROR = 1,                      ///< Failed for a reason that no other code names.
    DDS_RETCODE_UNSUPPORTED = 2,                ///< This engine or this build cannot do it.
    DDS_RETCODE_BAD_PARAMETER = 3,              ///< An argument is null, out of range, or of another participant.
    DDS_RETCODE_PRECONDITION_NOT_MET = 4,       ///< The object is not in a state that allows it.
    DDS_RETCODE_OUT_OF_RESOURCES = 5,           ///< Memory or a configured limit is used up.
    DDS_RETCODE_NOT_ENABLED = 6,                ///< The entity is not enabled.
    DDS_RETCODE_IMMUTABLE_POLICY = 7,           ///< The policy cannot be changed any more.
    DDS_RETCODE_INCONSISTENT_POLICY = 8,        ///< Two policies contradict each other.
    DDS_RETCODE_ALREADY_DELETED = 9,            ///< The object was deleted or closed.
    DDS_RETCODE_TIMEOUT = 10,                   ///< The time ran out.
    DDS_RETCODE_NO_DATA = 11,                   ///< There was nothing to return.
    DDS_RETCODE_ILLEGAL_OPERATION = 12,         ///< The operation may not be called on this object.
    DDS_RETCODE_NOT_ALLOWED_BY_SECURITY = 1000  ///< The security configuration forbids it.
};

#endif
