// SPDX-License-Identifier: Apache-2.0
// The replier: its topics, and the binding of each reply to the request that it answers.
#include "norvane/details/ReplierUntypedImpl.hpp"

#include "norvane/details/topic_names.hpp"

namespace norvane {
namespace details {

ReplierUntypedImpl::ReplierTopicBuilder::ReplierTopicBuilder(ReplierUntypedImpl* replier) : _replier(replier) {}

ReplierUntypedImpl::ReplierTopicBuilder::~ReplierTopicBuilder() = default;

DDSTopic* ReplierUntypedImpl::ReplierTopicBuilder::create_writer_topic(const EntityParams& params, const char* reply_type_name) {
    const std::string name = !params.reply_topic_name().empty() ? params.reply_topic_name()
                                                                : create_reply_topic_name_from_service_name(params.service_name());
    return DDSTopic::narrow(get_or_create_topic(_replier->_participant, name.c_str(), reply_type_name, false));
}

DDSTopicDescription* ReplierUntypedImpl::ReplierTopicBuilder::create_reader_topic(const EntityParams& params,
                                                                                  const char* request_type_name) {
    const std::string name = !params.request_topic_name().empty()
                                 ? params.request_topic_name()
                                 : create_request_topic_name_from_service_name(params.service_name());
    // An application gives the name of a content-filtered topic to receive only some of the requests.
    return get_or_create_topic(_replier->_participant, name.c_str(), request_type_name, true);
}

// false: a filter that the reader uses is the application's.
ReplierUntypedImpl::ReplierUntypedImpl() : EntityUntypedImpl(false) {}

ReplierUntypedImpl::~ReplierUntypedImpl() = default;

void ReplierUntypedImpl::initialize(const EntityParams& params, RegisterTypeFunc register_request_type_fnc,
                                    RegisterTypeFunc register_reply_type_fnc, int request_size,
                                    DDSDataReaderListener* reader_listener, bool isStringDataReader) {
    ReplierTopicBuilder builder(this);
    EntityUntypedImpl::initialize(params, register_reply_type_fnc, register_request_type_fnc, request_size, builder,
                                  reader_listener, isStringDataReader, "Replier");
}

void ReplierUntypedImpl::configure_params_for_reply(DDS_WriteParams_t& params, const DDS_SampleIdentity_t& related_request_id) {
    const char* const METHOD_NAME = "ReplierUntypedImpl::configure_params_for_reply";
    const DDS_GUID_t& guid = related_request_id.writer_guid;
    if (DDS_GUID_equals(&guid, &DDS_GUID_AUTO) || DDS_GUID_equals(&guid, &DDS_GUID_UNKNOWN)) {
        check_retcode(DDS_RETCODE_BAD_PARAMETER, METHOD_NAME, DDS_LOG_BAD_PARAMETER_s, "related request identity (writer guid)",
                      false);
    }
    const DDS_SequenceNumber_t& number = related_request_id.sequence_number;
    if (number == DDS_AUTO_SEQUENCE_NUMBER || number == DDS::SEQUENCE_NUMBER_MAX || number == DDS::SEQUENCE_NUMBER_ZERO ||
        number == DDS::SEQUENCE_NUMBER_UNKNOWN) {
        check_retcode(DDS_RETCODE_BAD_PARAMETER, METHOD_NAME, DDS_LOG_BAD_PARAMETER_s, "related request identity (sequence number)",
                      false);
    }
    DDS_GUID_copy(&params.related_sample_identity.writer_guid, &guid);
    params.related_sample_identity.sequence_number = number;
}

void ReplierUntypedImpl::send_sample(const void* data, const DDS_SampleIdentity_t& related_request_id,
                                     DDS_WriteParams_t& writeParams) {
    configure_params_for_reply(writeParams, related_request_id);
    EntityUntypedImpl::send_sample(data, writeParams);
}

}  // namespace details
}  // namespace norvane
