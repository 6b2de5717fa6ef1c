// SPDX-License-Identifier: Apache-2.0
// Rules for QoS records. Each is one line of `rules_for`: the field, its value, what is wrong, and what would be right.
#include "middleware/QosValidation.hpp"

#include <cstring>
#include <exception>

#include "middleware/Names.hpp"

namespace norvane {
namespace mw {
namespace {

/// Keeps the first fault found; later rules are then passed over.
class Verdict {
public:
    explicit Verdict(std::string& what) : _what(what) {}

    DDS_ReturnCode_t code() const noexcept { return _code; }

    void refuse(DDS_ReturnCode_t code, const std::string& text) {
        if (_code == DDS_RETCODE_OK) {
            _code = code;
            _what = text;
        }
    }

    void at_least(const char* field, DDS_Long value, DDS_Long least) {
        if (value < least) {
            refuse(DDS_RETCODE_BAD_PARAMETER,
                   std::string(field) + " is " + std::to_string(value) + ": it must be at least " + std::to_string(least));
        }
    }

    void unlimited_or_at_least(const char* field, DDS_Long value, DDS_Long least) {
        if (value != DDS_LENGTH_UNLIMITED && value < least) {
            refuse(DDS_RETCODE_BAD_PARAMETER, std::string(field) + " is " + std::to_string(value) +
                                                  ": it must be DDS_LENGTH_UNLIMITED or at least " + std::to_string(least));
        }
    }

    void in_order(const char* low_field, DDS_Long low, const char* high_field, DDS_Long high) {
        if (high != DDS_LENGTH_UNLIMITED && (low == DDS_LENGTH_UNLIMITED || low > high)) {
            const std::string low_text = low == DDS_LENGTH_UNLIMITED ? "unlimited" : std::to_string(low);
            refuse(DDS_RETCODE_INCONSISTENT_POLICY, std::string(low_field) + " (" + low_text + ") is above " + high_field + " (" +
                                                        std::to_string(high) + "): lower the one or raise the other");
        }
    }

    void duration(const char* field, const DDS_Duration_t& value) {
        if (value == DDS_DURATION_INFINITE) {
            return;
        }
        if (value.sec < 0) {
            refuse(DDS_RETCODE_BAD_PARAMETER,
                   std::string(field) + " is negative: it must be zero, positive or DDS_DURATION_INFINITE");
        } else if (value.nanosec >= 1000000000U) {
            refuse(DDS_RETCODE_BAD_PARAMETER, std::string(field) + ".nanosec is " + std::to_string(value.nanosec) +
                                                  ": it must be below 1000000000, or the whole duration DDS_DURATION_INFINITE");
        }
    }

    void in_order(const char* low_field, const DDS_Duration_t& low, const char* high_field, const DDS_Duration_t& high) {
        if (low.sec > high.sec || (low.sec == high.sec && low.nanosec > high.nanosec)) {
            refuse(DDS_RETCODE_INCONSISTENT_POLICY,
                   std::string(low_field) + " is longer than " + high_field + ": lower the one or raise the other");
        }
    }

    void known(const char* field, int value, int lowest, int highest) {
        if (value < lowest || value > highest) {
            refuse(DDS_RETCODE_BAD_PARAMETER,
                   std::string(field) + " is " + std::to_string(value) + ": there is no such kind; use one of the enumerated ones");
        }
    }

    void name_length(const char* field, const char* name) {
        if (name != nullptr && std::strlen(name) > MAX_NAME_LENGTH) {
            refuse(DDS_RETCODE_BAD_PARAMETER, std::string(field) + " has " + std::to_string(std::strlen(name)) +
                                                  " characters: at most " + std::to_string(MAX_NAME_LENGTH) + " are allowed");
        }
    }

private:
    std::string& _what;
    DDS_ReturnCode_t _code = DDS_RETCODE_OK;
};

template <typename Qos>
void shared_rules(const Qos& qos, Verdict& verdict) {
    verdict.known("durability.kind", qos.durability.kind, DDS_VOLATILE_DURABILITY_QOS, DDS_PERSISTENT_DURABILITY_QOS);
    if (qos.durability.kind > DDS_TRANSIENT_LOCAL_DURABILITY_QOS) {
        verdict.refuse(DDS_RETCODE_UNSUPPORTED,
                       "durability.kind is above transient-local: nothing here outlives its writer; use "
                       "DDS_TRANSIENT_LOCAL_DURABILITY_QOS or DDS_VOLATILE_DURABILITY_QOS");
    }
    verdict.known("reliability.kind", qos.reliability.kind, DDS_BEST_EFFORT_RELIABILITY_QOS, DDS_RELIABLE_RELIABILITY_QOS);
    verdict.duration("reliability.max_blocking_time", qos.reliability.max_blocking_time);

    verdict.unlimited_or_at_least("resource_limits.max_samples", qos.resource_limits.max_samples, 1);
    verdict.at_least("resource_limits.initial_samples", qos.resource_limits.initial_samples, 0);
    if (qos.resource_limits.initial_samples != DDS_ResourceLimitsQosPolicy().initial_samples) {
        verdict.in_order("resource_limits.initial_samples", qos.resource_limits.initial_samples, "resource_limits.max_samples",
                         qos.resource_limits.max_samples);
    }

    verdict.known("history.kind", qos.history.kind, DDS_KEEP_LAST_HISTORY_QOS, DDS_KEEP_ALL_HISTORY_QOS);
    if (qos.history.kind == DDS_KEEP_LAST_HISTORY_QOS) {
        verdict.at_least("history.depth (with keep-last)", qos.history.depth, 1);
        verdict.in_order("history.depth (with keep-last)", qos.history.depth, "resource_limits.max_samples",
                         qos.resource_limits.max_samples);
    }

    if (qos.protocol.virtual_guid == DDS_GUID_UNKNOWN) {
        verdict.refuse(DDS_RETCODE_BAD_PARAMETER,
                       "protocol.virtual_guid is unknown: choose one, or leave it DDS_GUID_AUTO to have one generated");
    }
    for (DDS_Long index = 0; index < qos.property.value.length(); ++index) {
        const DDS_Property_t& property = qos.property.value[index];
        if (property.name == nullptr || *property.name == '\0' || property.value == nullptr) {
            verdict.refuse(DDS_RETCODE_BAD_PARAMETER,
                           "property.value[" + std::to_string(index) + "] has no name or no value: give it both, or remove it");
        }
    }
}

void rules_for(const DDS_DataWriterQos& qos, Verdict& verdict) {
    shared_rules(qos, verdict);
    const DDS_RtpsReliableWriterProtocol_t& rtps = qos.protocol.rtps_reliable_writer;
    verdict.duration("protocol.rtps_reliable_writer.heartbeat_period", rtps.heartbeat_period);
    verdict.duration("protocol.rtps_reliable_writer.fast_heartbeat_period", rtps.fast_heartbeat_period);
    verdict.duration("protocol.rtps_reliable_writer.late_joiner_heartbeat_period", rtps.late_joiner_heartbeat_period);
    verdict.unlimited_or_at_least("protocol.rtps_reliable_writer.max_heartbeat_retries", rtps.max_heartbeat_retries, 1);
    verdict.at_least("protocol.rtps_reliable_writer.heartbeats_per_max_samples", rtps.heartbeats_per_max_samples, 0);
    verdict.duration("protocol.rtps_reliable_writer.min_nack_response_delay", rtps.min_nack_response_delay);
    verdict.duration("protocol.rtps_reliable_writer.max_nack_response_delay", rtps.max_nack_response_delay);
    verdict.in_order("protocol.rtps_reliable_writer.min_nack_response_delay", rtps.min_nack_response_delay,
                     "max_nack_response_delay", rtps.max_nack_response_delay);
    verdict.unlimited_or_at_least("protocol.rtps_reliable_writer.min_send_window_size", rtps.min_send_window_size, 1);
    verdict.unlimited_or_at_least("protocol.rtps_reliable_writer.max_send_window_size", rtps.max_send_window_size, 1);
    verdict.in_order("protocol.rtps_reliable_writer.min_send_window_size", rtps.min_send_window_size, "max_send_window_size",
                     rtps.max_send_window_size);
    verdict.unlimited_or_at_least("writer_resource_limits.max_remote_reader_filters",
                                  qos.writer_resource_limits.max_remote_reader_filters, 0);
    verdict.name_length("publication_name.name", qos.publication_name.name);
    verdict.name_length("publication_name.role_name", qos.publication_name.role_name);
}

void rules_for(const DDS_DataReaderQos& qos, Verdict& verdict) {
    shared_rules(qos, verdict);
    const DDS_RtpsReliableReaderProtocol_t& rtps = qos.protocol.rtps_reliable_reader;
    verdict.duration("protocol.rtps_reliable_reader.min_heartbeat_response_delay", rtps.min_heartbeat_response_delay);
    verdict.duration("protocol.rtps_reliable_reader.max_heartbeat_response_delay", rtps.max_heartbeat_response_delay);
    verdict.in_order("protocol.rtps_reliable_reader.min_heartbeat_response_delay", rtps.min_heartbeat_response_delay,
                     "max_heartbeat_response_delay", rtps.max_heartbeat_response_delay);
    verdict.unlimited_or_at_least("reader_resource_limits.max_samples_per_read", qos.reader_resource_limits.max_samples_per_read,
                                  1);
    verdict.name_length("subscription_name.name", qos.subscription_name.name);
    verdict.name_length("subscription_name.role_name", qos.subscription_name.role_name);
}

template <typename Qos>
DDS_ReturnCode_t judge(const Qos& qos, std::string& what) noexcept {
    Verdict verdict(what);
    try {
        rules_for(qos, verdict);
    } catch (const std::exception&) {
        // Only the text of a refusal needs memory, so the record is refused all the same.
        what.clear();
        return verdict.code() != DDS_RETCODE_OK ? verdict.code() : DDS_RETCODE_OUT_OF_RESOURCES;
    }
    return verdict.code();
}

}  // namespace

DDS_ReturnCode_t validate(const DDS_DataWriterQos& qos, std::string& what) noexcept { return judge(qos, what); }
DDS_ReturnCode_t validate(const DDS_DataReaderQos& qos, std::string& what) noexcept { return judge(qos, what); }

DDS_Long initial_samples(const DDS_ResourceLimitsQosPolicy& limits) noexcept {
    return limits.max_samples != DDS_LENGTH_UNLIMITED && limits.initial_samples > limits.max_samples ? limits.max_samples
                                                                                                     : limits.initial_samples;
}

}  // namespace mw
}  // namespace norvane
