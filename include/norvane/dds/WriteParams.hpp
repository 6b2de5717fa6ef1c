// SPDX-License-Identifier: Apache-2.0
// What an application may say about one write.
#ifndef NORVANE_DDS_WRITEPARAMS_HPP
#define NORVANE_DDS_WRITEPARAMS_HPP

#include "norvane/dds/sequence.hpp"
#include "norvane/dds/types.hpp"

/// Octets of the application's own that stay with the write parameters. They do not travel with the sample.
///
/// A copy that finds no memory is empty: it must not show the octets of another write.
struct DDS_Cookie_t {
    DDS_OctetSeq value;

    DDS_Cookie_t() = default;
    DDS_Cookie_t(const DDS_Cookie_t& other) { copy_from(other); }
    DDS_Cookie_t& operator=(const DDS_Cookie_t& other) {
        copy_from(other);
        return *this;
    }
    ~DDS_Cookie_t() = default;

    /// @return whether there was memory for the copy.
    bool copy_from(const DDS_Cookie_t& other) {
        if (value.copy_from(other.value)) {
            return true;
        }
        value.length(0);
        return false;
    }
};

/// Empties the cookie. Not null.
inline void DDS_Cookie_t_initialize(DDS_Cookie_t* self) { self->value.maximum(0); }
/// Releases the cookie's memory. Not null.
inline void DDS_Cookie_t_finalize(DDS_Cookie_t* self) { self->value.maximum(0); }

/// Parameters of one write, and what the middleware tells of it. Copies are deep.
struct DDS_WriteParams_t {
    /// In: the identity to write under, automatic to have one assigned. A GUID other than the writer's own is refused; a
    /// number must be above every number that the writer has used. The Fast DDS engine assigns every number itself, and
    /// refuses one that is not automatic.
    /// Out: the identity assigned, when `replace_auto` is set.
    DDS_SampleIdentity_t identity = DDS_AUTO_SAMPLE_IDENTITY;
    /// Identity of the sample that this one answers; unknown when it answers none.
    DDS_SampleIdentity_t related_sample_identity = DDS_UNKNOWN_SAMPLE_IDENTITY;
    /// Whether a write stores the assigned identity in `identity`. When it does not, `identity` stays automatic.
    DDS_Boolean replace_auto = DDS_BOOLEAN_TRUE;
    /// Time to stamp the sample with; `DDS_TIME_INVALID` means the time of the write.
    DDS_Time_t source_timestamp = DDS_TIME_INVALID;
    DDS_Cookie_t cookie;
    /// Longest time that this write may block, when that is shorter than the writer's own `max_blocking_time`. Infinite: the
    /// writer's own.
    DDS_Duration_t max_blocking_time = DDS_DURATION_INFINITE;
};

/// Gives every field its default. Not null.
inline void DDS_WriteParams_t_initialize(DDS_WriteParams_t* self) {
    self->identity = DDS_AUTO_SAMPLE_IDENTITY;
    self->related_sample_identity = DDS_UNKNOWN_SAMPLE_IDENTITY;
    self->replace_auto = DDS_BOOLEAN_TRUE;
    self->source_timestamp = DDS_TIME_INVALID;
    DDS_Cookie_t_initialize(&self->cookie);
    self->max_blocking_time = DDS_DURATION_INFINITE;
}
/// Deep copy. Neither may be null.
/// @return DDS_RETCODE_OK, or DDS_RETCODE_OUT_OF_RESOURCES when the cookie could not be copied.
inline DDS_ReturnCode_t DDS_WriteParams_t_copy(DDS_WriteParams_t* destination, const DDS_WriteParams_t* source) {
    destination->identity = source->identity;
    destination->related_sample_identity = source->related_sample_identity;
    destination->replace_auto = source->replace_auto;
    destination->source_timestamp = source->source_timestamp;
    destination->max_blocking_time = source->max_blocking_time;
    return destination->cookie.copy_from(source->cookie) ? DDS_RETCODE_OK : DDS_RETCODE_OUT_OF_RESOURCES;
}
/// Releases what the record holds. Not null.
inline void DDS_WriteParams_t_finalize(DDS_WriteParams_t* self) { DDS_Cookie_t_finalize(&self->cookie); }

namespace DDS {
typedef DDS_WriteParams_t WriteParams_t;
typedef DDS_SampleIdentity_t SampleIdentity_t;
}  // namespace DDS

#endif
