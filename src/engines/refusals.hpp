// SPDX-License-Identifier: Apache-2.0
// How engines say no: the same code and the same words for the same reason, and no exception across the seam. For engines alone.
// Thread rule: plain functions on values.
#ifndef NORVANE_ENGINES_REFUSALS_HPP
#define NORVANE_ENGINES_REFUSALS_HPP

#include <exception>
#include <new>
#include <string>

#include "middleware/Engine.hpp"

namespace norvane {
namespace mw {

/// @return what `make` returns; null when it throws: `code` and `failure` say what.
template <typename Make>
auto without_exceptions(DDS_ReturnCode_t& code, std::string& failure, Make make) noexcept -> decltype(make()) {
    try {
        return make();
    } catch (const std::bad_alloc&) {
        code = DDS_RETCODE_OUT_OF_RESOURCES;
        failure = "out of memory";  // short enough to need none
    } catch (const std::exception& exception) {
        code = DDS_RETCODE_ERROR;
        try {
            failure = exception.what();
        } catch (...) {
            failure.clear();
        }
    }
    return nullptr;
}

/// @param settings  of a writer or a reader.
/// @return whether an engine makes such an endpoint; if not, `code` and `failure` say why.
template <typename Settings>
bool is_makeable(const Settings& settings, DDS_ReturnCode_t& code, std::string& failure) {
    if (settings.qos->durability.kind > DDS_TRANSIENT_LOCAL_DURABILITY_QOS) {
        code = DDS_RETCODE_UNSUPPORTED;
        failure = "durability above transient-local: no sample is kept longer than its writer";
        return false;
    }
    if (settings.info.guid == DDS_GUID_UNKNOWN) {
        code = DDS_RETCODE_BAD_PARAMETER;
        failure = "the unknown GUID names nobody: ask for the automatic one, or for one of your own";
        return false;
    }
    return true;
}

/// The GUID that was asked for is another's.
inline void refuse_guid(const DDS_GUID_t& guid, DDS_ReturnCode_t& code, std::string& failure) {
    code = DDS_RETCODE_PRECONDITION_NOT_MET;
    failure = "GUID ";
    for (const DDS_Octet octet : guid.value) {
        failure += "0123456789abcdef"[octet >> 4U];
        failure += "0123456789abcdef"[octet & 0xfU];
    }
    failure += " belongs to another endpoint of the domain";
}

}  // namespace mw
}  // namespace norvane

#endif
