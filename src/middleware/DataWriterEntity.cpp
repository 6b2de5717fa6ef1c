// SPDX-License-Identifier: Apache-2.0
#include "middleware/DataWriterEntity.hpp"

#include "middleware/Log.hpp"
#include "middleware/QosValidation.hpp"
#include "middleware/clock.hpp"
#include "middleware/virtual_guid.hpp"

namespace norvane {
namespace mw {

DataWriterEntity::DataWriterEntity(DDSPublisher& publisher, TopicEntity& topic)
    : _publisher(publisher), _topic(topic), _status_condition(new StatusCondition(*this)) {}

DataWriterEntity::~DataWriterEntity() { _status_condition->retire(); }

bool DataWriterEntity::prepare(DomainPort& domain, const DDS_DataWriterQos& qos, DDSDataWriterListener* listener,
                               DDS_StatusMask mask, DDS_ReturnCode_t& code) {
    constexpr const char* METHOD = "DDSPublisher::create_datawriter";
    std::string failure;
    code = DDS_DataWriterQos_copy(&_qos, &qos);
    if (code != DDS_RETCODE_OK) {
        log_error(METHOD, "out of memory for the QoS");
        return false;
    }
    code = validate(_qos, failure);
    if (code != DDS_RETCODE_OK) {
        log_error(METHOD, [&] { return "topic \"" + _topic.name() + "\": " + failure; });
        return false;
    }
    const bool generates_guid = takes_generated_guid(_qos.protocol);
    WriterSettings settings;
    settings.info = describe(_topic.name(), _topic.type_name(), *_topic.type(), _qos);
    settings.qos = &_qos;
    settings.pool = &_topic.pool();
    _last_number = settings.last_number;
    _port = domain.make_writer(settings, code, failure);
    if (_port == nullptr) {
        log_error(METHOD, [&] { return "topic \"" + _topic.name() + "\": " + failure; });
        return false;
    }
    note_guid(_qos.protocol, _port->info().guid, generates_guid);
    _gate.set(listener, mask);
    return true;
}

void DataWriterEntity::close() noexcept { _port->close(); }

bool DataWriterEntity::peer_changed(const PeerEvent& event) noexcept {
    if (!_peers.note(event)) {
        log_error("DDSDataWriter", "out of memory: a matched reader is not listed");
    }
    DDS_StatusMask status = DDS_PUBLICATION_MATCHED_STATUS;
    if (event.kind == PeerEventKind::INCOMPATIBLE_QOS) {
        status = DDS_OFFERED_INCOMPATIBLE_QOS_STATUS;
    } else if (event.kind == PeerEventKind::INCOMPATIBLE_TYPE) {
        status = DDS_INCOMPATIBLE_TYPE_STATUS;
        log_error("DDSDataWriter", [&] {
            return "topic \"" + _topic.name() + "\": a reader there has the type \"" + event.peer->type_name +
                   "\" with another layout or name; " + "this writer has \"" + _topic.type_name() + "\"";
        });
    }
    _changes.fetch_or(status, std::memory_order_relaxed);
    platform::WakeBatch wake;
    _status_condition->signal(wake);
    return _gate.raise_if_wanted(status);
}

void DataWriterEntity::announce() noexcept {
    _gate.run("DDSDataWriterListener", [this](DDSDataWriterListener& listener, DDS_StatusMask raised) {
        if ((raised & DDS_PUBLICATION_MATCHED_STATUS) != 0) {
            DDS_PublicationMatchedStatus status;
            get_publication_matched_status(status);
            listener.on_publication_matched(this, status);
        }
        if ((raised & DDS_OFFERED_INCOMPATIBLE_QOS_STATUS) != 0) {
            DDS_OfferedIncompatibleQosStatus status;
            get_offered_incompatible_qos_status(status);
            listener.on_offered_incompatible_qos(this, status);
        }
        if ((raised & DDS_INCOMPATIBLE_TYPE_STATUS) != 0) {
            DDS_IncompatibleTypeStatus status;
            get_incompatible_type_status(status);
            listener.on_incompatible_type(this, status);
        }
    });
}

DDS_ReturnCode_t DataWriterEntity::get_publication_matched_status(DDS_PublicationMatchedStatus& status) {
    reset(DDS_PUBLICATION_MATCHED_STATUS);
    const MatchCounts counts = _peers.match_counts();
    status = {counts.total, counts.total_change, counts.current, counts.current_change, counts.last_handle};
    return DDS_RETCODE_OK;
}

DDS_ReturnCode_t DataWriterEntity::get_offered_incompatible_qos_status(DDS_OfferedIncompatibleQosStatus& status) {
    reset(DDS_OFFERED_INCOMPATIBLE_QOS_STATUS);
    status = _peers.incompatible_qos();
    return DDS_RETCODE_OK;
}

DDS_ReturnCode_t DataWriterEntity::get_incompatible_type_status(DDS_IncompatibleTypeStatus& status) {
    reset(DDS_INCOMPATIBLE_TYPE_STATUS);
    status = _peers.incompatible_type();
    return DDS_RETCODE_OK;
}

DDS_ReturnCode_t DataWriterEntity::get_counts(DDS_DataWriterCounts& counts) {
    const WriteCounts written = _port->counts();
    counts.written = written.written;
    counts.unaddressed = written.unaddressed;
    counts.unacknowledged = written.unacknowledged;
    return DDS_RETCODE_OK;
}

DDS_ReturnCode_t DataWriterEntity::get_matched_subscription_data(DDS_SubscriptionBuiltinTopicData& data,
                                                                 const DDS_InstanceHandle_t& handle) {
    const std::shared_ptr<const EndpointInfo> peer = _peers.find(handle);
    return peer != nullptr ? report(*peer, data) : DDS_RETCODE_BAD_PARAMETER;
}

DDS_ReturnCode_t DataWriterEntity::wait_for_acknowledgments(const DDS_Duration_t& max_wait) {
    return _process.is_of_a_parent() ? DDS_RETCODE_ILLEGAL_OPERATION : _port->wait_for_acknowledgments(max_wait);
}

DDS_ReturnCode_t DataWriterEntity::leave_domain() {
    if (_gate.is_inside()) {
        return DDS_RETCODE_PRECONDITION_NOT_MET;
    }
    if (!_process.is_of_a_parent()) {
        _port->close();
    }
    return DDS_RETCODE_OK;
}

DDS_ReturnCode_t DataWriterEntity::write_w_params_untyped_general(void* /*reserved*/, const void* data, DDS_WriteParams_t& params) {
    constexpr const char* METHOD = "DDSDataWriter::write";
    if (data == nullptr) {
        log_error(METHOD, [this] { return "topic \"" + _topic.name() + "\": the sample is null"; });
        return DDS_RETCODE_BAD_PARAMETER;
    }
    if (_process.is_of_a_parent()) {
        log_error(METHOD, [this] {
            return "topic \"" + _topic.name() +
                   "\": the process was forked after the writer was made; make a participant in the child";
        });
        return DDS_RETCODE_ILLEGAL_OPERATION;
    }
    if (params.identity.writer_guid != DDS_GUID_AUTO && params.identity.writer_guid != _qos.protocol.virtual_guid) {
        log_error(METHOD, [this] {
            return "topic \"" + _topic.name() +
                   "\": the identity names another writer; leave its GUID automatic, or use this writer's own";
        });
        return DDS_RETCODE_BAD_PARAMETER;
    }
    // Before the engine is asked, so that it is refused alike where nothing is encoded.
    const DDS_TypeOperations& type = *_topic.type();
    char reason[256];
    if (type.unencodable != nullptr && type.unencodable(type, data, reason, sizeof reason)) {
        log_error(METHOD, [&] { return "topic \"" + _topic.name() + "\": the sample cannot be encoded: " + reason; });
        return DDS_RETCODE_BAD_PARAMETER;
    }
    WriteRequest request;
    request.data = data;
    request.related_identity = params.related_sample_identity;
    request.source_timestamp = params.source_timestamp;
    request.sequence_number = params.identity.sequence_number;
    // The thread that could make room may be this one, inside its listener.
    request.max_blocking_time =
        is_inside_a_listener() ? DDS_DURATION_ZERO : shorter(_qos.reliability.max_blocking_time, params.max_blocking_time);
    DDS_SampleIdentity_t identity;
    bool addressed = false;
    const DDS_ReturnCode_t code = _port->write(request, identity, addressed);
    if (code == DDS_RETCODE_UNSUPPORTED) {  // nothing was written, so that no listener has run
        log_error(METHOD, [this] {
            return "topic \"" + _topic.name() +
                   "\": this engine assigns every sequence number itself; leave that of the identity automatic";
        });
    }
    // No member is touched from here on: a listener that the write ran may have deleted this writer.
    if (code == DDS_RETCODE_OK && params.replace_auto != DDS_BOOLEAN_FALSE) {
        params.identity = identity;
    }
    return code;
}

}  // namespace mw
}  // namespace norvane

DDSEntity::~DDSEntity() = default;
DDS_DataWriter::~DDS_DataWriter() = default;
DDSDataWriterListener::~DDSDataWriterListener() = default;
void DDSDataWriterListener::on_publication_matched(DDSDataWriter*, const DDS_PublicationMatchedStatus&) {}
void DDSDataWriterListener::on_offered_incompatible_qos(DDSDataWriter*, const DDS_OfferedIncompatibleQosStatus&) {}
void DDSDataWriterListener::on_incompatible_type(DDSDataWriter*, const DDS_IncompatibleTypeStatus&) {}

DDS_ReturnCode_t DDS_DataWriter_write_w_params_untyped_generalI(DDS_DataWriter* writer, void* reserved, const void* data,
                                                                DDS_WriteParams_t& params) {
    return writer != nullptr ? writer->write_w_params_untyped_general(reserved, data, params) : DDS_RETCODE_BAD_PARAMETER;
}
