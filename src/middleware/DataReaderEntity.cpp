// SPDX-License-Identifier: Apache-2.0
#include "middleware/DataReaderEntity.hpp"

#include <charconv>
#include <cstring>
#include <mutex>
#include <new>
#include <optional>
#include <utility>

#include "middleware/DeferringEngines.hpp"
#include "middleware/Log.hpp"
#include "middleware/QosValidation.hpp"
#include "middleware/SequenceNumber.hpp"
#include "middleware/virtual_guid.hpp"
#include "norvane/dds/TypeSupport.hpp"
#include "platform/ProcessMark.hpp"

namespace norvane {
namespace mw {

namespace {

std::uint64_t key_of(const DDS_SequenceNumber_t& number) noexcept { return static_cast<std::uint64_t>(to_integer(number)); }

SampleStoreSettings store_settings(TopicEntity& topic, ContentFilteredTopicEntity* filtered, const DDS_DataReaderQos& qos,
                                   std::shared_ptr<const std::atomic<std::int64_t>> last_asked) {
    SampleStoreSettings settings;
    settings.last_asked = std::move(last_asked);
    settings.keep_all = qos.history.kind == DDS_KEEP_ALL_HISTORY_QOS;
    settings.depth = qos.history.depth;
    settings.max_samples = qos.resource_limits.max_samples;
    settings.initial_samples = initial_samples(qos.resource_limits);
    settings.max_samples_per_take = qos.reader_resource_limits.max_samples_per_read;
    settings.type = topic.type();
    settings.spin_history = topic.spin_history();
    if (filtered != nullptr) {
        const std::optional<DDS_GUID_t> route = filtered->filter()->route();
        settings.routed = route.has_value();
        if (route.has_value()) {
            settings.route = *route;
        } else {
            settings.filter = filtered->filter();
        }
    }
    return settings;
}

// A reader may name the writer that belongs to it: 32 hexadecimal digits. Any other text counts as no name.
DDS_GUID_t announced_partner(const DDS_PropertyQosPolicy& properties) noexcept {
    const DDS_Property_t* property = DDSPropertyQosPolicyHelper::lookup_property(properties, DDS_PARTNER_WRITER_PROPERTY);
    DDS_GUID_t guid = DDS_GUID_UNKNOWN;
    if (property == nullptr || property->value == nullptr || std::strlen(property->value) != 2 * sizeof guid.value) {
        return guid;
    }
    for (std::size_t index = 0; index < sizeof guid.value; ++index) {
        const char* const digits = property->value + 2 * index;
        if (std::from_chars(digits, digits + 2, guid.value[index], 16).ptr != digits + 2) {
            return DDS_GUID_UNKNOWN;
        }
    }
    return guid;
}

template <typename Interface>
class DataReaderEntity : public Interface,
                         public ReaderControl,
                         public DDS_DataReader,
                         private SampleSink,
                         private SampleStoreOwner,
                         private StatusSource {
public:
    DataReaderEntity(DDSSubscriber& subscriber, TopicEntity& topic, ContentFilteredTopicEntity* filtered,
                     const DDS_DataReaderQos& qos, std::shared_ptr<const std::atomic<std::int64_t>> last_asked)
        : _subscriber(subscriber),
          _topic(&topic),
          _filtered(filtered),
          _topic_name(topic.name()),
          _type(topic.type()),
          _qos(qos),
          _store(*this, store_settings(topic, filtered, qos, std::move(last_asked))),
          _status_condition(new StatusCondition(*this, &_store.mutex())) {
        _store.set_status_condition(_status_condition);
    }

    // ---- ReaderControl
    bool prepare(DomainPort& domain, DDSDataReaderListener* listener, DDS_StatusMask mask, DDS_ReturnCode_t& code) override;
    DDS_ReturnCode_t enable() noexcept override { return port()->enable(*this); }
    void close() noexcept override;
    void discard() noexcept override;
    bool is_inside_listener() noexcept override { return _gate.is_inside(); }
    std::size_t condition_count() noexcept override { return _store.condition_count(); }
    void delete_conditions() noexcept override { _store.delete_conditions(); }
    TopicEntity& topic() noexcept override { return *_topic; }
    ContentFilteredTopicEntity* filtered_topic() noexcept override { return _filtered; }
    DDSDataReader& reader() noexcept override { return *this; }

    // ---- DDSDataReader
    DDSTopicDescription* get_topicdescription() override {
        return _filtered != nullptr ? static_cast<DDSTopicDescription*>(_filtered) : _topic;
    }
    DDSSubscriber* get_subscriber() override { return &_subscriber; }
    DDS_ReturnCode_t get_qos(DDS_DataReaderQos& qos) override { return DDS_DataReaderQos_copy(&qos, &_qos); }
    DDS_DataReader* get_c_datareader() override { return this; }
    DDSReadCondition* create_readcondition(DDS_SampleStateMask sample_states, DDS_ViewStateMask view_states,
                                           DDS_InstanceStateMask instance_states) override {
        return _store.create_condition(sample_states, view_states, instance_states);
    }
    DDS_ReturnCode_t delete_readcondition(DDSReadCondition* condition) override;
    DDS_ReturnCode_t create_index(const char* index_name) override { return _store.create_index(index_name); }
    DDSReadCondition* create_index_condition(DDS_SampleStateMask sample_states, DDS_ViewStateMask view_states,
                                             DDS_InstanceStateMask instance_states, const char* index_name,
                                             const DDS_SampleInfo& key) override {
        return _store.create_key_condition(sample_states, view_states, instance_states, index_name,
                                           key_of(key.related_original_publication_virtual_sequence_number));
    }
    DDS_ReturnCode_t interrupt(DDS_ReturnCode_t code) override { return _store.interrupt(code); }
    DDS_ReturnCode_t interrupt_index_key(const char* index_name, const DDS_SequenceNumber_t& key, DDS_ReturnCode_t code) override {
        return _store.interrupt_key(index_name, key_of(key), code);
    }
    DDS_ReturnCode_t admit_open_keys_only(const char* index_name, DDS_Boolean open_only) override {
        return _store.admit_open_keys_only(index_name, open_only != DDS_BOOLEAN_FALSE);
    }
    DDS_ReturnCode_t open_index_key(const char* index_name, const DDS_SequenceNumber_t& key) override {
        return _store.open_key(index_name, key_of(key));
    }
    DDS_ReturnCode_t close_index_key(const char* index_name, const DDS_SequenceNumber_t& key) override {
        return _store.close_key(index_name, key_of(key));
    }
    DDS_ReturnCode_t leave_domain() override {
        if (_gate.is_inside()) {
            return DDS_RETCODE_PRECONDITION_NOT_MET;
        }
        if (!_process.is_of_a_parent()) {
            port()->close();
        }
        return DDS_RETCODE_OK;
    }
    DDS_ReturnCode_t set_listener(DDSDataReaderListener* listener, DDS_StatusMask mask) override {
        return _gate.set(listener, mask);
    }
    DDSDataReaderListener* get_listener() override { return _gate.get(); }
    DDS_ReturnCode_t get_subscription_matched_status(DDS_SubscriptionMatchedStatus& status) override;
    DDS_ReturnCode_t get_requested_incompatible_qos_status(DDS_RequestedIncompatibleQosStatus& status) override;
    DDS_ReturnCode_t get_incompatible_type_status(DDS_IncompatibleTypeStatus& status) override;
    DDS_ReturnCode_t get_sample_lost_status(DDS_SampleLostStatus& status) override;
    DDS_ReturnCode_t get_counts(DDS_DataReaderCounts& counts) override {
        const LossCounts& losses = _store.losses();
        counts.received = _store.arrivals();
        counts.held = _store.held();
        counts.closed_key = losses.closed_key.load(std::memory_order_relaxed);
        counts.lost = losses.no_room.load(std::memory_order_relaxed) + losses.replaced.load(std::memory_order_relaxed);
        return DDS_RETCODE_OK;
    }
    DDS_ReturnCode_t get_matched_publications(DDS_InstanceHandleSeq& handles) override { return _peers.list(handles); }
    DDS_ReturnCode_t get_matched_publication_data(DDS_PublicationBuiltinTopicData& data,
                                                  const DDS_InstanceHandle_t& handle) override {
        const std::shared_ptr<const EndpointInfo> peer = _peers.find(handle);
        return peer != nullptr ? report(*peer, data) : DDS_RETCODE_BAD_PARAMETER;
    }
    DDSStatusCondition* get_statuscondition() override { return _status_condition; }
    DDS_StatusMask get_status_changes() override { return changes(); }
    DDS_InstanceHandle_t get_instance_handle() override { return handle_of(_qos.protocol.virtual_guid); }

    // ---- DDS_DataReader
    DDS_ReturnCode_t read_or_take_w_condition_untyped(DDS_Boolean* is_loan, void*** received_data, int* data_count,
                                                      DDS_SampleInfoSeq& info_seq, DDS_Long data_seq_len, DDS_Long data_seq_max_len,
                                                      DDS_Boolean data_seq_has_ownership, void* reserved, int sample_size,
                                                      DDS_Long max_samples, DDS_ReadCondition* condition,
                                                      DDS_Boolean take) override;
    DDS_ReturnCode_t read_or_take_index_key_untyped(void*** received_data, int* data_count, DDS_SampleInfoSeq& info_seq,
                                                    int sample_size, DDS_Long max_samples, const char* index_name,
                                                    const DDS_SequenceNumber_t& key, DDS_Boolean take) override;
    DDS_ReturnCode_t return_loan_untyped(void** received_data, DDS_SampleInfoSeq& info_seq) override {
        if (received_data == nullptr) {
            return DDS_RETCODE_BAD_PARAMETER;
        }
        const DDS_ReturnCode_t code = _store.return_loan(received_data, info_seq);
        if (code != DDS_RETCODE_OK) {
            // Members are not touched any more once a loan is back: it may have been the last one.
            log_error("DDSDataReader::return_loan", "these samples are not on loan from this reader, or are back already");
        }
        return code;
    }

protected:
    ~DataReaderEntity() override = default;

    SampleStore& store() noexcept { return _store; }

private:
    // ---- SampleSink
    Admission admit(const SampleMetadata& metadata, const void* data) noexcept override { return _store.admit(metadata, data); }
    void abandon() noexcept override { _store.abandon(); }
    bool commit(SampleReference sample, platform::WakeBatch& wake) noexcept override {
        return _store.commit(std::move(sample), wake) && wants_arrival();
    }
    Admission deliver(SampleReference& sample, platform::WakeBatch& wake, bool& announce) noexcept override {
        const Admission admission = _store.deliver(sample, wake);
        if (admission == Admission::SLOT && wants_arrival()) {
            announce = true;
        }
        return admission;
    }
    bool sample_lost() noexcept override;
    bool peer_changed(const PeerEvent& event) noexcept override;
    void announce() noexcept override;

    [[nodiscard]] DDS_ReturnCode_t check_lending(const char* method, bool data_seq_is_empty, const DDS_SampleInfoSeq& info_seq,
                                                 int sample_size) const;
    bool wants_arrival() noexcept { return _gate.raise_if_wanted(DDS_DATA_AVAILABLE_STATUS); }
    bool note_status(DDS_StatusMask status) noexcept;

    // ---- SampleStoreOwner
    DDS_DataReader* c_reader() noexcept override { return this; }
    DDSDataReader* store_reader() noexcept override { return this; }
    void room_freed() noexcept override {
        const std::shared_ptr<ReaderPort> engine_port = port();
        if (engine_port != nullptr) {
            engine_port->room_freed();
        }
    }
    void last_holder_gone() noexcept override { delete this; }

    // ---- StatusSource
    DDSEntity* entity() noexcept override { return this; }
    DDS_StatusMask changes() const noexcept override {
        return _changes.load(std::memory_order_relaxed) | (_store.has_unseen() ? DDS_DATA_AVAILABLE_STATUS : 0);
    }
    void status_condition_gone() noexcept override { _store.drop_holder(); }
    void reset(DDS_StatusMask status) noexcept { _changes.fetch_and(~status, std::memory_order_relaxed); }

    // Loans may be returned while the reader is being deleted, so each user of the port holds a reference during its call.
    std::shared_ptr<ReaderPort> port() noexcept {
        std::lock_guard<platform::BriefMutex> lock(_port_mutex);
        return _port;
    }

    DDSSubscriber& _subscriber;
    TopicEntity* const _topic;  // not touched once the reader is deleted
    ContentFilteredTopicEntity* const _filtered;
    const std::string _topic_name;
    const std::shared_ptr<const DDS_TypeOperations> _type;
    DDS_DataReaderQos _qos;
    const platform::ProcessMark _process;
    platform::BriefMutex _port_mutex;
    std::shared_ptr<ReaderPort> _port;
    SampleStore _store;
    StatusCondition* _status_condition;
    PeerRegister _peers;
    ListenerGate<DDSDataReaderListener> _gate;
    std::atomic<DDS_StatusMask> _changes{0};
    std::atomic<std::int64_t> _losses_reported{0};
};

template <typename Interface>
bool DataReaderEntity<Interface>::prepare(DomainPort& domain, DDSDataReaderListener* listener, DDS_StatusMask mask,
                                          DDS_ReturnCode_t& code) {
    constexpr const char* METHOD = "DDSSubscriber::create_datareader";
    std::string failure;
    if (!_store.prepare()) {
        code = DDS_RETCODE_OUT_OF_RESOURCES;
        log_error(METHOD, "out of memory for the initial samples");
        return false;
    }
    const bool generates_guid = takes_generated_guid(_qos.protocol);
    ReaderSettings settings;
    settings.info = describe(_topic->name(), _topic->type_name(), *_type, _qos);
    settings.info.partner_guid = announced_partner(_qos.property);
    settings.qos = &_qos;
    settings.pool = &_topic->pool();
    if (_filtered != nullptr) {
        const std::optional<DDS_GUID_t> route = _filtered->filter()->route();
        settings.routed = route.has_value();
        settings.route = route.value_or(DDS_GUID_UNKNOWN);
        if (settings.routed) {
            settings.info.partner_guid = settings.route;
        }
        settings.filter_name = _filtered->name();
        settings.filter_expression = _filtered->expression();
        settings.filter_parameters = _filtered->parameters();
    }
    std::unique_ptr<ReaderPort> made = domain.make_reader(settings, code, failure);
    if (made == nullptr) {
        log_error(METHOD, [&] { return "topic \"" + _topic_name + "\": " + failure; });
        return false;
    }
    _port = std::move(made);
    note_guid(_qos.protocol, _port->info().guid, generates_guid);
    _gate.set(listener, mask);
    return true;
}

template <typename Interface>
void DataReaderEntity<Interface>::close() noexcept {
    std::shared_ptr<ReaderPort> leaving;
    {
        std::lock_guard<platform::BriefMutex> lock(_port_mutex);
        leaving = std::move(_port);
    }
    leaving->close();
    leaving.reset();
    discard();
}

template <typename Interface>
void DataReaderEntity<Interface>::discard() noexcept {
    _store.close();
    {
        std::lock_guard<platform::BriefMutex> lock(_store.mutex());
        _store.set_status_condition(nullptr);
    }
    _status_condition->retire();
    _store.drop_holder();
}

template <typename Interface>
DDS_ReturnCode_t DataReaderEntity<Interface>::delete_readcondition(DDSReadCondition* condition) {
    if (condition == nullptr) {
        return DDS_RETCODE_BAD_PARAMETER;
    }
    ReadCondition* own = ReadCondition::of(condition->get_c_readcondition(), _store);
    if (own == nullptr) {
        log_error("DDSDataReader::delete_readcondition",
                  [this] { return "topic \"" + _topic_name + "\": the condition is of another reader"; });
        return DDS_RETCODE_PRECONDITION_NOT_MET;
    }
    return _store.delete_condition(*own);
}

template <typename Interface>
DDS_ReturnCode_t DataReaderEntity<Interface>::check_lending(const char* method, bool data_seq_is_empty,
                                                            const DDS_SampleInfoSeq& info_seq, int sample_size) const {
    if (!data_seq_is_empty || !info_seq.has_ownership() || info_seq.maximum() != 0) {
        log_error(method, "a sequence already holds samples; samples are only lent, into empty sequences (maximum 0)");
        return DDS_RETCODE_PRECONDITION_NOT_MET;
    }
    if (static_cast<std::size_t>(sample_size) != _type->size) {
        log_error(method, [&] {
            return "topic \"" + _topic_name + "\": a sample of type \"" + _type->name + "\" has " + std::to_string(_type->size) +
                   " octets, the caller expects " + std::to_string(sample_size);
        });
        return DDS_RETCODE_BAD_PARAMETER;
    }
    return DDS_RETCODE_OK;
}

template <typename Interface>
DDS_ReturnCode_t DataReaderEntity<Interface>::read_or_take_w_condition_untyped(
    DDS_Boolean* is_loan, void*** received_data, int* data_count, DDS_SampleInfoSeq& info_seq, DDS_Long data_seq_len,
    DDS_Long data_seq_max_len, DDS_Boolean data_seq_has_ownership, void* /*reserved*/, int sample_size, DDS_Long max_samples,
    DDS_ReadCondition* condition, DDS_Boolean take) {
    constexpr const char* METHOD = "DDSDataReader::read_or_take_w_condition";
    if (is_loan == nullptr || received_data == nullptr || data_count == nullptr || condition == nullptr) {
        log_error(METHOD, "an argument is null");
        return DDS_RETCODE_BAD_PARAMETER;
    }
    *is_loan = DDS_BOOLEAN_FALSE;
    *data_count = 0;
    const bool data_seq_is_empty = data_seq_len == 0 && data_seq_max_len == 0 && data_seq_has_ownership != DDS_BOOLEAN_FALSE;
    const DDS_ReturnCode_t refusal = check_lending(METHOD, data_seq_is_empty, info_seq, sample_size);
    if (refusal != DDS_RETCODE_OK) {
        return refusal;
    }
    ReadCondition* own = ReadCondition::of(condition, _store);
    if (own == nullptr) {
        log_error(METHOD, [this] { return "topic \"" + _topic_name + "\": the condition is of another reader"; });
        return DDS_RETCODE_BAD_PARAMETER;
    }
    const DDS_ReturnCode_t code =
        _store.read_or_take(received_data, data_count, info_seq, max_samples, *own, take != DDS_BOOLEAN_FALSE);
    *is_loan = code == DDS_RETCODE_OK ? DDS_BOOLEAN_TRUE : DDS_BOOLEAN_FALSE;
    if (code != DDS_RETCODE_OK) {
        DeferringEngines::send_deferred();
    }
    return code;
}

template <typename Interface>
DDS_ReturnCode_t DataReaderEntity<Interface>::read_or_take_index_key_untyped(void*** received_data, int* data_count,
                                                                             DDS_SampleInfoSeq& info_seq, int sample_size,
                                                                             DDS_Long max_samples, const char* index_name,
                                                                             const DDS_SequenceNumber_t& key, DDS_Boolean take) {
    constexpr const char* METHOD = "DDSDataReader::read_or_take_index_key";
    if (received_data == nullptr || data_count == nullptr) {
        log_error(METHOD, "an argument is null");
        return DDS_RETCODE_BAD_PARAMETER;
    }
    *data_count = 0;
    const DDS_ReturnCode_t refusal = check_lending(METHOD, true, info_seq, sample_size);
    if (refusal != DDS_RETCODE_OK) {
        return refusal;
    }
    const DDS_ReturnCode_t code = _store.read_or_take_key(received_data, data_count, info_seq, max_samples, index_name, key_of(key),
                                                          take != DDS_BOOLEAN_FALSE);
    if (code != DDS_RETCODE_OK) {
        DeferringEngines::send_deferred();
    }
    return code;
}

template <typename Interface>
bool DataReaderEntity<Interface>::note_status(DDS_StatusMask status) noexcept {
    _changes.fetch_or(status, std::memory_order_relaxed);
    platform::WakeBatch wake;
    _status_condition->signal(wake);
    return _gate.raise_if_wanted(status);
}

template <typename Interface>
bool DataReaderEntity<Interface>::sample_lost() noexcept {
    _store.count_no_room();
    return note_status(DDS_SAMPLE_LOST_STATUS);
}

template <typename Interface>
bool DataReaderEntity<Interface>::peer_changed(const PeerEvent& event) noexcept {
    if (!_peers.note(event)) {
        log_error("DDSDataReader", "out of memory: a matched writer is not listed");
    }
    if (event.kind == PeerEventKind::INCOMPATIBLE_QOS) {
        return note_status(DDS_REQUESTED_INCOMPATIBLE_QOS_STATUS);
    }
    if (event.kind == PeerEventKind::INCOMPATIBLE_TYPE) {
        log_error("DDSDataReader", [&] {
            return "topic \"" + _topic_name + "\": a writer there has the type \"" + event.peer->type_name +
                   "\" with another layout or name; " + "this reader has \"" + _type->name + "\"";
        });
        return note_status(DDS_INCOMPATIBLE_TYPE_STATUS);
    }
    return note_status(DDS_SUBSCRIPTION_MATCHED_STATUS);
}

template <typename Interface>
void DataReaderEntity<Interface>::announce() noexcept {
    _gate.run("DDSDataReaderListener", [this](DDSDataReaderListener& listener, DDS_StatusMask raised) {
        // Peers before samples: a listener that keeps a list of peers must know the writer when its sample arrives.
        if ((raised & DDS_SUBSCRIPTION_MATCHED_STATUS) != 0) {
            DDS_SubscriptionMatchedStatus status;
            get_subscription_matched_status(status);
            listener.on_subscription_matched(this, status);
        }
        if ((raised & DDS_REQUESTED_INCOMPATIBLE_QOS_STATUS) != 0) {
            DDS_RequestedIncompatibleQosStatus status;
            get_requested_incompatible_qos_status(status);
            listener.on_requested_incompatible_qos(this, status);
        }
        if ((raised & DDS_INCOMPATIBLE_TYPE_STATUS) != 0) {
            DDS_IncompatibleTypeStatus status;
            get_incompatible_type_status(status);
            listener.on_incompatible_type(this, status);
        }
        if ((raised & DDS_SAMPLE_LOST_STATUS) != 0) {
            DDS_SampleLostStatus status;
            get_sample_lost_status(status);
            listener.on_sample_lost(this, status);
        }
        if ((raised & DDS_DATA_AVAILABLE_STATUS) != 0) {
            listener.on_data_available(this);
        }
    });
}

template <typename Interface>
DDS_ReturnCode_t DataReaderEntity<Interface>::get_subscription_matched_status(DDS_SubscriptionMatchedStatus& status) {
    reset(DDS_SUBSCRIPTION_MATCHED_STATUS);
    const MatchCounts counts = _peers.match_counts();
    status = {counts.total, counts.total_change, counts.current, counts.current_change, counts.last_handle};
    return DDS_RETCODE_OK;
}

template <typename Interface>
DDS_ReturnCode_t DataReaderEntity<Interface>::get_requested_incompatible_qos_status(DDS_RequestedIncompatibleQosStatus& status) {
    reset(DDS_REQUESTED_INCOMPATIBLE_QOS_STATUS);
    status = _peers.incompatible_qos();
    return DDS_RETCODE_OK;
}

template <typename Interface>
DDS_ReturnCode_t DataReaderEntity<Interface>::get_incompatible_type_status(DDS_IncompatibleTypeStatus& status) {
    reset(DDS_INCOMPATIBLE_TYPE_STATUS);
    status = _peers.incompatible_type();
    return DDS_RETCODE_OK;
}

template <typename Interface>
DDS_ReturnCode_t DataReaderEntity<Interface>::get_sample_lost_status(DDS_SampleLostStatus& status) {
    reset(DDS_SAMPLE_LOST_STATUS);
    const LossCounts& losses = _store.losses();
    status.no_room_count = losses.no_room.load(std::memory_order_relaxed);
    status.replaced_count = losses.replaced.load(std::memory_order_relaxed);
    status.closed_key_count = losses.closed_key.load(std::memory_order_relaxed);
    status.total_count = status.no_room_count + status.replaced_count + status.closed_key_count;
    status.total_count_change = status.total_count - _losses_reported.exchange(status.total_count, std::memory_order_relaxed);
    return DDS_RETCODE_OK;
}

class PlainDataReaderEntity final : public DataReaderEntity<DDSDataReader> {
public:
    using DataReaderEntity<DDSDataReader>::DataReaderEntity;

private:
    ~PlainDataReaderEntity() override = default;
};

class StringDataReaderEntity final : public DataReaderEntity<DDSStringDataReader> {
public:
    using DataReaderEntity<DDSStringDataReader>::DataReaderEntity;

    DDS_ReturnCode_t read(DDS_StringSeq& received_data, DDS_SampleInfoSeq& info_seq, DDS_Long max_samples,
                          DDS_SampleStateMask sample_states, DDS_ViewStateMask view_states,
                          DDS_InstanceStateMask instance_states) override {
        return lend(received_data, info_seq, max_samples, sample_states, view_states, instance_states, false);
    }
    DDS_ReturnCode_t take(DDS_StringSeq& received_data, DDS_SampleInfoSeq& info_seq, DDS_Long max_samples,
                          DDS_SampleStateMask sample_states, DDS_ViewStateMask view_states,
                          DDS_InstanceStateMask instance_states) override {
        return lend(received_data, info_seq, max_samples, sample_states, view_states, instance_states, true);
    }
    DDS_ReturnCode_t return_loan(DDS_StringSeq& received_data, DDS_SampleInfoSeq& info_seq) override {
        const DDS_ReturnCode_t code =
            return_loan_untyped(reinterpret_cast<void**>(received_data.get_discontiguous_buffer()), info_seq);
        if (code == DDS_RETCODE_OK) {
            received_data.unloan();
        }
        return code;
    }

private:
    ~StringDataReaderEntity() override = default;

    DDS_ReturnCode_t lend(DDS_StringSeq& received_data, DDS_SampleInfoSeq& info_seq, DDS_Long max_samples,
                          DDS_SampleStateMask sample_states, DDS_ViewStateMask view_states, DDS_InstanceStateMask instance_states,
                          bool take) noexcept {
        if (!received_data.has_ownership() || received_data.maximum() != 0 || !info_seq.has_ownership() ||
            info_seq.maximum() != 0) {
            log_error("DDSStringDataReader",
                      "a sequence already holds samples; samples are only lent, into empty sequences (maximum 0)");
            return DDS_RETCODE_PRECONDITION_NOT_MET;
        }
        if ((view_states & DDS_NEW_VIEW_STATE) == 0 || (instance_states & DDS_ALIVE_INSTANCE_STATE) == 0) {
            return DDS_RETCODE_NO_DATA;
        }
        void** data = nullptr;
        int count = 0;
        const DDS_ReturnCode_t code = store().read_or_take(&data, &count, info_seq, max_samples, sample_states, take);
        if (code == DDS_RETCODE_OK) {
            received_data.loan_discontiguous(reinterpret_cast<char***>(data), count, count);
        } else {
            DeferringEngines::send_deferred();
        }
        return code;
    }
};

template <typename Entity>
ReaderControl* make_entity(DDSSubscriber& subscriber, TopicEntity& topic, ContentFilteredTopicEntity* filtered,
                           const DDS_DataReaderQos& qos, std::shared_ptr<const std::atomic<std::int64_t>> last_asked) {
    try {
        return new Entity(subscriber, topic, filtered, qos, std::move(last_asked));
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

}  // namespace

ReaderControl* make_reader_entity(DDSSubscriber& subscriber, TopicEntity& topic, ContentFilteredTopicEntity* filtered,
                                  const DDS_DataReaderQos& qos, std::shared_ptr<const std::atomic<std::int64_t>> last_asked) {
    const bool strings = topic.type() == DDSStringTypeSupport::get_instance().get_type_operations();
    return strings ? make_entity<StringDataReaderEntity>(subscriber, topic, filtered, qos, std::move(last_asked))
                   : make_entity<PlainDataReaderEntity>(subscriber, topic, filtered, qos, std::move(last_asked));
}

}  // namespace mw
}  // namespace norvane

DDS_DataReader::~DDS_DataReader() = default;
DDS_ReturnCode_t DDS_DataReader::read_or_take_index_key_untyped(void***, int*, DDS_SampleInfoSeq&, int, DDS_Long, const char*,
                                                                const DDS_SequenceNumber_t&, DDS_Boolean) {
    return DDS_RETCODE_UNSUPPORTED;
}
DDSDataReaderListener::~DDSDataReaderListener() = default;
void DDSDataReaderListener::on_data_available(DDSDataReader*) {}
void DDSDataReaderListener::on_subscription_matched(DDSDataReader*, const DDS_SubscriptionMatchedStatus&) {}
void DDSDataReaderListener::on_requested_incompatible_qos(DDSDataReader*, const DDS_RequestedIncompatibleQosStatus&) {}
void DDSDataReaderListener::on_incompatible_type(DDSDataReader*, const DDS_IncompatibleTypeStatus&) {}
void DDSDataReaderListener::on_sample_lost(DDSDataReader*, const DDS_SampleLostStatus&) {}

DDSStringDataReader* DDSStringDataReader::narrow(DDSDataReader* reader) { return dynamic_cast<DDSStringDataReader*>(reader); }

DDS_ReturnCode_t DDS_DataReader_read_or_take_w_condition_untypedI(DDS_DataReader* reader, DDS_Boolean* is_loan,
                                                                  void*** received_data, int* data_count,
                                                                  DDS_SampleInfoSeq& info_seq, DDS_Long data_seq_len,
                                                                  DDS_Long data_seq_max_len, DDS_Boolean data_seq_has_ownership,
                                                                  void* reserved, int sample_size, DDS_Long max_samples,
                                                                  DDS_ReadCondition* condition, DDS_Boolean take) {
    return reader != nullptr ? reader->read_or_take_w_condition_untyped(is_loan, received_data, data_count, info_seq, data_seq_len,
                                                                        data_seq_max_len, data_seq_has_ownership, reserved,
                                                                        sample_size, max_samples, condition, take)
                             : DDS_RETCODE_BAD_PARAMETER;
}

DDS_ReturnCode_t DDS_DataReader_read_or_take_index_key_untypedI(DDS_DataReader* reader, void*** received_data, int* data_count,
                                                                DDS_SampleInfoSeq& info_seq, int sample_size, DDS_Long max_samples,
                                                                const char* index_name, const DDS_SequenceNumber_t& key,
                                                                DDS_Boolean take) {
    return reader != nullptr ? reader->read_or_take_index_key_untyped(received_data, data_count, info_seq, sample_size, max_samples,
                                                                      index_name, key, take)
                             : DDS_RETCODE_BAD_PARAMETER;
}

DDS_ReturnCode_t DDS_DataReader_return_loan_untypedI(DDS_DataReader* reader, void** received_data, DDS_SampleInfoSeq& info_seq) {
    return reader != nullptr ? reader->return_loan_untyped(received_data, info_seq) : DDS_RETCODE_BAD_PARAMETER;
}
