// SPDX-License-Identifier: Apache-2.0
#include "norvane/request_reply_qos.hpp"

#include "UntypedCommon.pkg.hpp"

namespace norvane {

namespace details {

void set_request_reply_defaults(DDS_DataWriterQos& qos) {
    qos.reliability.kind = DDS_RELIABLE_RELIABILITY_QOS;
    qos.reliability.max_blocking_time = {10, 0};
    qos.history.kind = DDS_KEEP_ALL_HISTORY_QOS;
    qos.resource_limits.max_samples = DDS_LENGTH_UNLIMITED;
    // Quick to repair on a network: short heartbeats while anything is unacknowledged, nacks answered at once.
    DDS_RtpsReliableWriterProtocol_t& protocol = qos.protocol.rtps_reliable_writer;
    protocol.max_heartbeat_retries = DDS_LENGTH_UNLIMITED;
    protocol.heartbeat_period = {0, 100000000};
    protocol.fast_heartbeat_period = {0, 10000000};
    protocol.late_joiner_heartbeat_period = {0, 10000000};
    protocol.heartbeats_per_max_samples = 2;
    protocol.min_nack_response_delay = {0, 0};
    protocol.max_nack_response_delay = {0, 0};
    protocol.min_send_window_size = 32;
    protocol.max_send_window_size = 32;
    // A replier's writer filters for every requester that there is.
    qos.writer_resource_limits.max_remote_reader_filters = DDS_LENGTH_UNLIMITED;
}

void set_request_reply_defaults(DDS_DataReaderQos& qos) {
    qos.reliability.kind = DDS_RELIABLE_RELIABILITY_QOS;
    qos.reliability.max_blocking_time = {10, 0};
    qos.history.kind = DDS_KEEP_ALL_HISTORY_QOS;
    qos.resource_limits.max_samples = DDS_LENGTH_UNLIMITED;
    qos.protocol.rtps_reliable_reader.min_heartbeat_response_delay = {0, 0};
    qos.protocol.rtps_reliable_reader.max_heartbeat_response_delay = {0, 0};
}

}  // namespace details

DDS_DataWriterQos request_reply_writer_qos(DDSDomainParticipant* participant) {
    DDS_DataWriterQos qos;
    if (participant != nullptr) {
        check_retcode(participant->get_default_datawriter_qos(qos), "request_reply_writer_qos", VOST_LOG_GET_FAILURE_s,
                      "DataWriter qos", false);
    }
    details::set_request_reply_defaults(qos);
    return qos;
}

DDS_DataReaderQos request_reply_reader_qos(DDSDomainParticipant* participant) {
    DDS_DataReaderQos qos;
    if (participant != nullptr) {
        check_retcode(participant->get_default_datareader_qos(qos), "request_reply_reader_qos", VOST_LOG_GET_FAILURE_s,
                      "DataReader qos", false);
    }
    details::set_request_reply_defaults(qos);
    return qos;
}

}  // namespace norvane
