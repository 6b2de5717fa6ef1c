// SPDX-License-Identifier: Apache-2.0
// What the middleware knows of one received sample, besides its data.
#ifndef NORVANE_DDS_SAMPLEINFO_HPP
#define NORVANE_DDS_SAMPLEINFO_HPP

#include "norvane/dds/sequence.hpp"
#include "norvane/dds/types.hpp"

/// Metadata of one received sample. A plain value without heap memory.
struct DDS_SampleInfo {
    DDS_SampleStateMask sample_state = DDS_NOT_READ_SAMPLE_STATE;     ///< State before the read or take that returned it.
    DDS_ViewStateMask view_state = DDS_NEW_VIEW_STATE;                ///< Always new: topics are keyless.
    DDS_InstanceStateMask instance_state = DDS_ALIVE_INSTANCE_STATE;  ///< Always alive.
    DDS_Boolean valid_data = DDS_BOOLEAN_TRUE;                        ///< Whether there is data to go with it.
    DDS_Time_t source_timestamp = DDS_TIME_INVALID;                   ///< When it was written, by the writer's clock.
    DDS_Time_t reception_timestamp = DDS_TIME_INVALID;                ///< When it came into the reader's store.
    DDS_InstanceHandle_t instance_handle;                             ///< Always nil.
    DDS_InstanceHandle_t publication_handle;                          ///< The matched writer; key of get_matched_publication_data.

    DDS_GUID_t source_guid = DDS_GUID_UNKNOWN;          ///< Unused: unknown.
    DDS_GUID_t related_source_guid = DDS_GUID_UNKNOWN;  ///< Unused: unknown.

    DDS_GUID_t publication_virtual_guid = DDS_GUID_UNKNOWN;  ///< Virtual GUID of the writer that delivered the sample.
    DDS_SequenceNumber_t publication_virtual_sequence_number = DDS::SEQUENCE_NUMBER_UNKNOWN;
    DDS_SequenceNumber_t publication_sequence_number = DDS::SEQUENCE_NUMBER_UNKNOWN;
    DDS_SequenceNumber_t reception_sequence_number = DDS::SEQUENCE_NUMBER_UNKNOWN;  ///< Counts up in each reader.

    /// Identity of the sample: its writer's virtual GUID and number.
    DDS_GUID_t original_publication_virtual_guid = DDS_GUID_UNKNOWN;
    DDS_SequenceNumber_t original_publication_virtual_sequence_number = DDS::SEQUENCE_NUMBER_UNKNOWN;

    /// Identity of the sample that this one answers; unknown when it answers none.
    DDS_GUID_t related_original_publication_virtual_guid = DDS_GUID_UNKNOWN;
    DDS_SequenceNumber_t related_original_publication_virtual_sequence_number = DDS::SEQUENCE_NUMBER_UNKNOWN;
};

/// Gives every field its default. Not null.
inline void DDS_SampleInfo_initialize(DDS_SampleInfo* self) noexcept { *self = DDS_SampleInfo(); }
/// Copies every field. Neither may be null.
/// @return DDS_RETCODE_OK.
inline DDS_ReturnCode_t DDS_SampleInfo_copy(DDS_SampleInfo* destination, const DDS_SampleInfo* source) noexcept {
    *destination = *source;
    return DDS_RETCODE_OK;
}
/// Releases nothing: the record holds no memory. There for symmetry with the other records.
inline void DDS_SampleInfo_finalize(DDS_SampleInfo*) noexcept {}

typedef norvane::Sequence<DDS_SampleInfo> DDS_SampleInfoSeq;

namespace DDS {
typedef DDS_SampleInfo SampleInfo;
}

#endif
