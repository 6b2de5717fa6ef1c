// SPDX-License-Identifier: Apache-2.0
#include "middleware/ParticipantEntity.hpp"

#include <algorithm>
#include <iterator>
#include <new>
#include <vector>

#include "middleware/DeferringEngines.hpp"
#include "middleware/ListText.hpp"
#include "middleware/Log.hpp"
#include "middleware/Names.hpp"
#include "middleware/PublisherEntity.hpp"
#include "middleware/QosValidation.hpp"
#include "middleware/SubscriberEntity.hpp"
#include "middleware/TypeOperations.hpp"

namespace norvane {
namespace mw {

namespace {

bool is_same_type(const DDS_TypeOperations& left, const DDS_TypeOperations& right) noexcept {
    return &left == &right || (std::strcmp(left.name, right.name) == 0 && left.layout_hash == right.layout_hash &&
                               left.size == right.size && left.alignment == right.alignment);
}

struct DiscardReader {
    void operator()(ReaderControl* reader) const noexcept { reader->discard(); }
};

/// Runs what allocates; memory that is short ends in `failed` and a log line.
template <typename Result, typename Operation>
Result or_out_of_memory(const char* method, Result failed, Operation operation) {
    try {
        return operation();
    } catch (const std::bad_alloc&) {
        log_error(method, "out of memory");
        return failed;
    }
}

/// Leaks a participant that cannot be destroyed on this thread.
void give_up(std::unique_ptr<ParticipantEntity>& participant) noexcept {
    log_error("DDSDomainParticipantFactory::release_participant",
              "the participant, or the last entity in it, was deleted from inside a listener: the participant stays until the "
              "process ends; destroy participants, requesters, repliers and services outside listeners");
    static_cast<void>(participant.release());
}

std::string of_holder(const char* holder) { return holder == nullptr ? "" : std::string(" of a ") + holder; }

}  // namespace

/// Counts as a user of a topic, and of its filter, from `begin_locked` until it is destroyed; after `keep` the endpoint counts.
class ParticipantEntity::TopicUse {
public:
    explicit TopicUse(ParticipantEntity& participant) noexcept : _participant(participant) {}
    TopicUse(const TopicUse&) = delete;
    TopicUse& operator=(const TopicUse&) = delete;
    ~TopicUse() {
        if (_topic != nullptr && !_kept) {
            _participant.end_endpoint(_holder, *_topic, _filtered);
        }
    }

    void begin_locked(TopicEntity& topic, ContentFilteredTopicEntity* filtered) noexcept {
        _topic = &topic;
        _filtered = filtered;
        _holder = _participant._holdings.current();
        ++topic.users;
        if (filtered != nullptr) {
            ++filtered->users;
        }
        _participant._held_endpoints += _holder != nullptr ? 1 : 0;
    }
    void keep() noexcept { _kept = true; }
    TopicEntity& topic() noexcept { return *_topic; }
    const char* holder() const noexcept { return _holder; }

private:
    ParticipantEntity& _participant;
    TopicEntity* _topic = nullptr;
    ContentFilteredTopicEntity* _filtered = nullptr;
    const char* _holder = nullptr;
    bool _kept = false;
};

ParticipantEntity::Ended::~Ended() {
    if (participant != nullptr && participant->delete_contained_entities() != DDS_RETCODE_OK) {
        give_up(participant);
    }
}

ParticipantEntity::ParticipantEntity(DDS_DomainId_t domain_id, Engine& engine) : _domain_id(domain_id), _engine(engine) {}

ParticipantEntity::~ParticipantEntity() = default;

bool ParticipantEntity::prepare(const DDS_DomainParticipantQos& qos) {
    constexpr const char* METHOD = "DDSDomainParticipantFactory::create_participant";
    _qos = qos;
    DomainSettings settings;
    settings.domain_id = _domain_id;
    settings.qos = &_qos;
    DDS_ReturnCode_t code = DDS_RETCODE_ERROR;
    std::string failure;
    _port = _engine.join(settings, code, failure);
    const auto line = [&] { return "domain " + std::to_string(_domain_id) + ", engine \"" + _engine.name() + "\": " + failure; };
    if (_port == nullptr) {
        log_error(METHOD, line);
        return false;
    }
    if (!failure.empty()) {
        log_warning(METHOD, line);
    }
    DeferringEngines::add(_engine);
    _own_publisher = std::make_unique<PublisherEntity>(*this, DDS_PublisherQos());
    _own_subscriber = std::make_unique<SubscriberEntity>(*this, DDS_SubscriberQos());
    return true;
}

bool ParticipantEntity::is_empty() noexcept {
    if (_process.is_of_a_parent()) {
        return true;
    }
    Lock lock(_mutex);
    return _topics.empty() && _filtered_topics.empty() && _publishers.empty() && _subscribers.empty() && _writers.empty() &&
           _readers.empty() && _held_endpoints == 0 && _holdings.empty();
}

std::string ParticipantEntity::contents() {
    Lock lock(_mutex);
    ListText list;
    for (const auto& entry : _writers) {
        list.add("the writer of \"" + entry.second.writer->topic().name() + "\"" + of_holder(entry.second.holder));
    }
    for (const auto& entry : _readers) {
        list.add("the reader of \"" + entry.second.reader->topic().name() + "\"" + of_holder(entry.second.holder));
    }
    for (const auto& entry : _filtered_topics) {
        list.add("the content-filtered topic \"" + entry.first + "\"");
    }
    for (const auto& entry : _topics) {
        list.add("the topic \"" + entry.first + "\"");
    }
    for (std::size_t count = _publishers.size(); count > 0; --count) {
        list.add("a publisher");
    }
    for (std::size_t count = _subscribers.size(); count > 0; --count) {
        list.add("a subscriber");
    }
    return list.text();
}

// ---- holders ------------------------------------------------------------------------------------------------------

DDS_ReturnCode_t ParticipantEntity::begin_holding(const char* holder) {
    Lock lock(_mutex);
    return or_out_of_memory("DDSDomainParticipant::begin_holding", DDS_RETCODE_OUT_OF_RESOURCES, [&] {
        _holdings.begin(holder);
        return DDS_RETCODE_OK;
    });
}

void ParticipantEntity::end_holding() {
    Ended ended;
    Lock lock(_mutex);
    if (!_holdings.end() || !_holdings.empty()) {
        return;
    }
    // Delete the topics that lost their last user during the spans, or never had one because making the endpoint failed.
    for (auto entry = _topics.begin(); entry != _topics.end();) {
        const auto next = std::next(entry);
        if (entry->second->users == 0 && entry->second->goes_with_last_user) {
            ended.topics.insert(_topics.extract(entry));
        }
        entry = next;
    }
}

/// Ends one use of a topic, and of its filter. During a holding span no topic is deleted: the holder may have found it, and
/// be about to use it.
void ParticipantEntity::end_use_locked(TopicEntity& topic, ContentFilteredTopicEntity* filtered, Ended& ended) noexcept {
    if (filtered != nullptr) {
        --filtered->users;
    }
    if (--topic.users == 0 && topic.goes_with_last_user && _holdings.empty()) {
        ended.topics.insert(_topics.extract(_topics.find(topic.name())));
    }
}

/// The last step of an endpoint's deletion. It may destroy a released participant: the caller must not touch it afterwards.
void ParticipantEntity::end_endpoint(const char* holder, TopicEntity& topic, ContentFilteredTopicEntity* filtered) noexcept {
    Ended ended;
    Lock lock(_mutex);
    end_use_locked(topic, filtered, ended);
    if (holder == nullptr || --_held_endpoints > 0 || _self == nullptr) {
        return;
    }
    if (is_inside_a_listener()) {
        give_up(_self);  // this thread may be one of the engine's, which cannot wait for its own end
    } else {
        ended.participant = std::move(_self);
    }
}

std::string ParticipantEntity::held_endpoints_locked() const {
    ListText list;
    for (const auto& entry : _writers) {
        if (entry.second.holder != nullptr) {
            list.add("the writer of \"" + entry.second.writer->topic().name() + "\"" + of_holder(entry.second.holder));
        }
    }
    for (const auto& entry : _readers) {
        if (entry.second.holder != nullptr) {
            list.add("the reader of \"" + entry.second.reader->topic().name() + "\"" + of_holder(entry.second.holder));
        }
    }
    const std::string text = list.text();
    return text.empty() ? "endpoints that another thread makes or deletes" : text;
}

DDS_ReturnCode_t ParticipantEntity::release(std::unique_ptr<ParticipantEntity> participant) {
    constexpr const char* METHOD = "DDSDomainParticipantFactory::release_participant";
    if (participant->_process.is_of_a_parent()) {
        static_cast<void>(participant.release());
        return DDS_RETCODE_OK;
    }
    ParticipantEntity& released = *participant;
    // First, since later the last deletion of another thread may destroy the participant. That deletion also tries again what is
    // refused here.
    released.delete_endpoints_without_holder();
    Ended ended;
    Lock lock(released._mutex);
    if (released._held_endpoints == 0) {
        ended.participant = std::move(participant);
        return DDS_RETCODE_OK;
    }
    log_error(METHOD, [&] {
        return "still in use: " + released.held_endpoints_locked() +
               ". The participant stays until they are gone; destroy its requesters, repliers and services before it";
    });
    released._self = std::move(participant);
    return DDS_RETCODE_PRECONDITION_NOT_MET;
}

DDS_ReturnCode_t ParticipantEntity::get_qos(DDS_DomainParticipantQos& qos) {
    qos = _qos;
    return DDS_RETCODE_OK;
}

DDS_ReturnCode_t ParticipantEntity::get_current_time(DDS_Time_t& current_time) {
    current_time = _port->current_time();
    return DDS_RETCODE_OK;
}

// ---- types --------------------------------------------------------------------------------------------------------

DDS_ReturnCode_t ParticipantEntity::register_type(const char* type_name, const std::shared_ptr<const DDS_TypeOperations>& type) {
    constexpr const char* METHOD = "DDSDomainParticipant::register_type";
    if (!is_name_usable(METHOD, "type", type_name)) {
        return DDS_RETCODE_BAD_PARAMETER;
    }
    if (type == nullptr) {
        log_error(METHOD, [type_name] { return std::string("type \"") + type_name + "\": the table of operations is null"; });
        return DDS_RETCODE_BAD_PARAMETER;
    }
    std::string fault;
    if (!is_usable(*type, fault)) {
        log_error(METHOD, fault);
        return DDS_RETCODE_BAD_PARAMETER;
    }
    Lock lock(_mutex);
    return or_out_of_memory(METHOD, DDS_RETCODE_OUT_OF_RESOURCES, [&] {
        const auto added = _types.emplace(type_name, type);
        if (!added.second && !is_same_type(*added.first->second, *type)) {
            log_error(METHOD, [&] {
                return std::string("the name \"") + type_name + "\" is taken by another type: \"" + added.first->second->name +
                       "\" of " + std::to_string(added.first->second->size) + " octets; this one is \"" + type->name + "\" of " +
                       std::to_string(type->size) + " octets";
            });
            return DDS_RETCODE_PRECONDITION_NOT_MET;
        }
        return DDS_RETCODE_OK;
    });
}

DDS_ReturnCode_t ParticipantEntity::unregister_type(const char* type_name) {
    constexpr const char* METHOD = "DDSDomainParticipant::unregister_type";
    if (!is_name_usable(METHOD, "type", type_name)) {
        return DDS_RETCODE_BAD_PARAMETER;
    }
    Lock lock(_mutex);
    const auto found = _types.find(type_name);
    if (found == _types.end()) {
        log_error(METHOD, [type_name] { return std::string("no type is registered as \"") + type_name + "\""; });
        return DDS_RETCODE_BAD_PARAMETER;
    }
    for (const auto& topic : _topics) {
        if (topic.second->type_name() == type_name) {
            log_error(METHOD, [&] { return "topic \"" + topic.first + "\" uses the type \"" + type_name + "\""; });
            return DDS_RETCODE_PRECONDITION_NOT_MET;
        }
    }
    _types.erase(found);
    return DDS_RETCODE_OK;
}

std::shared_ptr<const DDS_TypeOperations> ParticipantEntity::lookup_type(const char* type_name) {
    if (type_name == nullptr) {
        return nullptr;
    }
    Lock lock(_mutex);
    const auto found = _types.find(type_name);
    return found != _types.end() ? found->second : nullptr;
}

// ---- topics -------------------------------------------------------------------------------------------------------

TopicEntity* ParticipantEntity::find_topic_locked(const DDSTopicDescription* topic) noexcept {
    for (const auto& entry : _topics) {
        if (static_cast<DDSTopicDescription*>(entry.second.get()) == topic) {
            return entry.second.get();
        }
    }
    return nullptr;
}

ContentFilteredTopicEntity* ParticipantEntity::find_filtered_topic_locked(const DDSTopicDescription* topic) noexcept {
    for (const auto& entry : _filtered_topics) {
        if (static_cast<DDSTopicDescription*>(entry.second.get()) == topic) {
            return entry.second.get();
        }
    }
    return nullptr;
}

DDSTopic* ParticipantEntity::create_topic(const char* topic_name, const char* type_name, const DDS_TopicQos& qos,
                                          DDSTopicListener* /*listener*/, DDS_StatusMask /*mask*/) {
    constexpr const char* METHOD = "DDSDomainParticipant::create_topic";
    if (!is_name_usable(METHOD, "topic", topic_name) || !is_name_usable(METHOD, "type", type_name)) {
        return nullptr;
    }
    Lock lock(_mutex);
    return or_out_of_memory<DDSTopic*>(METHOD, nullptr, [&]() -> DDSTopic* {
        const auto type = _types.find(type_name);
        if (type == _types.end()) {
            log_error(METHOD, [&] {
                return std::string("topic \"") + topic_name + "\": no type is registered as \"" + type_name +
                       "\"; register it first";
            });
            return nullptr;
        }
        const auto existing = _topics.find(topic_name);
        if (existing != _topics.end()) {
            if (existing->second->type_name() == type_name && is_same_type(*existing->second->type(), *type->second)) {
                existing->second->goes_with_last_user = existing->second->goes_with_last_user && _holdings.current() != nullptr;
                return existing->second.get();
            }
            log_error(METHOD, [&] {
                return std::string("topic \"") + topic_name + "\" exists with the type \"" + existing->second->type_name() +
                       "\"; it cannot be made with the type \"" + type_name + "\"";
            });
            return nullptr;
        }
        if (_filtered_topics.count(topic_name) > 0) {
            log_error(METHOD, [&] { return std::string("a content-filtered topic has the name \"") + topic_name + "\""; });
            return nullptr;
        }
        OwnedSamplePool pool(TypeSamplePool::make(type->second));
        if (pool == nullptr) {
            throw std::bad_alloc();
        }
        auto topic = std::make_unique<TopicEntity>(*this, topic_name, type_name, type->second, std::move(pool), qos);
        topic->goes_with_last_user = _holdings.current() != nullptr;
        return _topics.emplace(topic_name, std::move(topic)).first->second.get();
    });
}

DDS_ReturnCode_t ParticipantEntity::delete_topic(DDSTopic* topic) {
    constexpr const char* METHOD = "DDSDomainParticipant::delete_topic";
    if (topic == nullptr) {
        return DDS_RETCODE_BAD_PARAMETER;
    }
    if (_process.is_of_a_parent()) {
        return DDS_RETCODE_OK;
    }
    std::unique_ptr<TopicEntity> deleted;
    Lock lock(_mutex);
    for (auto entry = _topics.begin(); entry != _topics.end(); ++entry) {
        if (entry->second.get() != topic) {
            continue;
        }
        if (entry->second->users > 0) {
            log_error(METHOD, [&] { return "topic \"" + entry->first + "\" is used by endpoints or content-filtered topics"; });
            return DDS_RETCODE_PRECONDITION_NOT_MET;
        }
        deleted = std::move(entry->second);
        _topics.erase(entry);
        return DDS_RETCODE_OK;
    }
    log_error(METHOD, "the topic is of another participant, or deleted already");
    return DDS_RETCODE_PRECONDITION_NOT_MET;
}

DDSTopicDescription* ParticipantEntity::lookup_topicdescription(const char* name) {
    if (name == nullptr) {
        return nullptr;
    }
    Lock lock(_mutex);
    const auto topic = _topics.find(name);
    if (topic != _topics.end()) {
        topic->second->goes_with_last_user = topic->second->goes_with_last_user && _holdings.current() != nullptr;
        return topic->second.get();
    }
    const auto filtered = _filtered_topics.find(name);
    return filtered != _filtered_topics.end() ? filtered->second.get() : nullptr;
}

DDSContentFilteredTopic* ParticipantEntity::create_contentfilteredtopic(const char* name, DDSTopic* related_topic,
                                                                        const char* filter_expression,
                                                                        const DDS_StringSeq& expression_parameters) {
    constexpr const char* METHOD = "DDSDomainParticipant::create_contentfilteredtopic";
    if (!is_name_usable(METHOD, "content-filtered topic", name)) {
        return nullptr;
    }
    if (filter_expression == nullptr) {
        log_error(METHOD, [name] { return std::string("\"") + name + "\": the filter expression is null"; });
        return nullptr;
    }
    Lock lock(_mutex);
    return or_out_of_memory<DDSContentFilteredTopic*>(METHOD, nullptr, [&]() -> DDSContentFilteredTopic* {
        TopicEntity* topic = find_topic_locked(related_topic);
        if (topic == nullptr) {
            log_error(METHOD,
                      [name] { return std::string("\"") + name + "\": the related topic is null or of another participant"; });
            return nullptr;
        }
        if (_topics.count(name) > 0 || _filtered_topics.count(name) > 0) {
            log_error(METHOD, [name] { return std::string("the name \"") + name + "\" is taken"; });
            return nullptr;
        }
        std::vector<std::string> parameters;
        for (DDS_Long index = 0; index < expression_parameters.length(); ++index) {
            parameters.emplace_back(expression_parameters[index] != nullptr ? expression_parameters[index] : "");
        }
        std::string failure;
        std::unique_ptr<const FilterExpression> filter;
        if (FilterExpression::compile(topic->type(), filter_expression, expression_parameters, filter, failure) != DDS_RETCODE_OK) {
            log_error(METHOD, [&] {
                return std::string("\"") + name + "\": the filter \"" + filter_expression + "\" is refused: " + failure;
            });
            return nullptr;
        }
        auto made =
            std::make_unique<ContentFilteredTopicEntity>(*topic, name, filter_expression, std::move(parameters), std::move(filter));
        DDSContentFilteredTopic* result = _filtered_topics.emplace(name, std::move(made)).first->second.get();
        ++topic->users;
        return result;
    });
}

DDS_ReturnCode_t ParticipantEntity::delete_contentfilteredtopic(DDSContentFilteredTopic* topic) {
    constexpr const char* METHOD = "DDSDomainParticipant::delete_contentfilteredtopic";
    if (topic == nullptr) {
        return DDS_RETCODE_BAD_PARAMETER;
    }
    if (_process.is_of_a_parent()) {
        return DDS_RETCODE_OK;
    }
    Ended ended;
    std::unique_ptr<ContentFilteredTopicEntity> deleted;
    Lock lock(_mutex);
    ContentFilteredTopicEntity* found = find_filtered_topic_locked(topic);
    if (found == nullptr) {
        log_error(METHOD, "the content-filtered topic is of another participant, or deleted already");
        return DDS_RETCODE_PRECONDITION_NOT_MET;
    }
    if (found->users > 0) {
        log_error(METHOD, [found] { return "\"" + found->name() + "\" is used by a reader"; });
        return DDS_RETCODE_PRECONDITION_NOT_MET;
    }
    const auto entry = _filtered_topics.find(found->name());
    deleted = std::move(entry->second);
    _filtered_topics.erase(entry);
    end_use_locked(deleted->topic(), nullptr, ended);
    return DDS_RETCODE_OK;
}

// ---- publishers and subscribers -----------------------------------------------------------------------------------

DDSPublisher* ParticipantEntity::create_publisher(const DDS_PublisherQos& qos, DDSPublisherListener* /*listener*/,
                                                  DDS_StatusMask /*mask*/) {
    Lock lock(_mutex);
    return or_out_of_memory<DDSPublisher*>("DDSDomainParticipant::create_publisher", nullptr, [&]() -> DDSPublisher* {
        auto made = std::make_unique<PublisherEntity>(*this, qos);
        DDSPublisher* publisher = made.get();
        _publishers.emplace(publisher, std::move(made));
        return publisher;
    });
}

DDSSubscriber* ParticipantEntity::create_subscriber(const DDS_SubscriberQos& qos, DDSSubscriberListener* /*listener*/,
                                                    DDS_StatusMask /*mask*/) {
    Lock lock(_mutex);
    return or_out_of_memory<DDSSubscriber*>("DDSDomainParticipant::create_subscriber", nullptr, [&]() -> DDSSubscriber* {
        auto made = std::make_unique<SubscriberEntity>(*this, qos);
        DDSSubscriber* subscriber = made.get();
        _subscribers.emplace(subscriber, std::move(made));
        return subscriber;
    });
}

DDS_ReturnCode_t ParticipantEntity::delete_publisher(DDSPublisher* publisher) {
    constexpr const char* METHOD = "DDSDomainParticipant::delete_publisher";
    if (publisher == nullptr) {
        return DDS_RETCODE_BAD_PARAMETER;
    }
    Lock lock(_mutex);
    const auto found = _publishers.find(publisher);
    if (found == _publishers.end()) {
        log_error(METHOD, "the publisher is of another participant, or deleted already");
        return DDS_RETCODE_PRECONDITION_NOT_MET;
    }
    if (std::any_of(_writers.begin(), _writers.end(), [publisher](const auto& entry) { return entry.second.owner == publisher; })) {
        log_error(METHOD, "the publisher has writers; delete them first");
        return DDS_RETCODE_PRECONDITION_NOT_MET;
    }
    _publishers.erase(found);
    return DDS_RETCODE_OK;
}

DDS_ReturnCode_t ParticipantEntity::delete_subscriber(DDSSubscriber* subscriber) {
    constexpr const char* METHOD = "DDSDomainParticipant::delete_subscriber";
    if (subscriber == nullptr) {
        return DDS_RETCODE_BAD_PARAMETER;
    }
    Lock lock(_mutex);
    const auto found = _subscribers.find(subscriber);
    if (found == _subscribers.end()) {
        log_error(METHOD, "the subscriber is of another participant, or deleted already");
        return DDS_RETCODE_PRECONDITION_NOT_MET;
    }
    if (std::any_of(_readers.begin(), _readers.end(),
                    [subscriber](const auto& entry) { return entry.second.owner == subscriber; })) {
        log_error(METHOD, "the subscriber has readers; delete them first");
        return DDS_RETCODE_PRECONDITION_NOT_MET;
    }
    _subscribers.erase(found);
    return DDS_RETCODE_OK;
}

// ---- endpoints ----------------------------------------------------------------------------------------------------

DDSDataWriter* ParticipantEntity::create_datawriter(DDSTopic* topic, const DDS_DataWriterQos& qos, DDSDataWriterListener* listener,
                                                    DDS_StatusMask mask) {
    return create_writer(*_own_publisher, topic, qos, listener, mask);
}

DDS_ReturnCode_t ParticipantEntity::delete_datawriter(DDSDataWriter* writer) { return delete_writer(*_own_publisher, writer); }

DDSDataReader* ParticipantEntity::create_datareader(DDSTopicDescription* topic, const DDS_DataReaderQos& qos,
                                                    DDSDataReaderListener* listener, DDS_StatusMask mask) {
    return create_reader(*_own_subscriber, topic, qos, listener, mask);
}

DDS_ReturnCode_t ParticipantEntity::delete_datareader(DDSDataReader* reader) {
    return delete_reader(*_own_subscriber, reader, false);
}

bool ParticipantEntity::may_make_endpoints(const char* method) const {
    if (!_process.is_of_a_parent()) {
        return true;
    }
    log_error(method, "the process was forked after the participant was made; make a participant in the child");
    return false;
}

bool ParticipantEntity::type_may_travel(const char* method, const TopicEntity& topic) {
    if (!_engine.leaves_process() || topic.type()->encode != nullptr) {
        return true;
    }
    log_error(method, [&] {
        return "topic \"" + topic.name() + "\": the type \"" + topic.type()->name +
               "\" cannot be encoded, so it cannot leave the process; " + "describe it, or use the embedded engine instead of \"" +
               _engine.name() + "\"";
    });
    return false;
}

DDSDataWriter* ParticipantEntity::create_writer(DDSPublisher& owner, DDSTopic* topic, const DDS_DataWriterQos& qos,
                                                DDSDataWriterListener* listener, DDS_StatusMask mask) {
    constexpr const char* METHOD = "DDSPublisher::create_datawriter";
    if (!may_make_endpoints(METHOD)) {
        return nullptr;
    }
    return or_out_of_memory<DDSDataWriter*>(METHOD, nullptr, [&]() -> DDSDataWriter* {
        TopicUse use(*this);
        DDS_DataWriterQos wanted;
        DDS_ReturnCode_t code = DDS_RETCODE_OK;
        {
            Lock lock(_mutex);
            TopicEntity* own = find_topic_locked(topic);
            if (own == nullptr) {
                log_error(METHOD, "the topic is null, deleted, or of another participant");
                return nullptr;
            }
            use.begin_locked(*own, nullptr);
            code = DDS_DataWriterQos_copy(&wanted, &qos == &DDS_DATAWRITER_QOS_DEFAULT ? &_default_writer_qos : &qos);
        }
        auto writer = std::make_unique<DataWriterEntity>(owner, use.topic());
        DataWriterEntity* made = writer.get();
        if (code != DDS_RETCODE_OK || !type_may_travel(METHOD, use.topic()) ||
            !made->prepare(*_port, wanted, listener, mask, code)) {
            return nullptr;
        }
        {
            Lock lock(_mutex);
            _writers.emplace(made, WriterEntry{&owner, std::move(writer), use.holder()});
        }
        if (made->enable() == DDS_RETCODE_OK) {
            use.keep();
            return made;
        }
        log_error(METHOD, [&] { return "topic \"" + use.topic().name() + "\": the engine could not enable the writer"; });
        Lock lock(_mutex);
        writer = std::move(_writers.find(made)->second.writer);
        _writers.erase(made);
        return nullptr;
    });
}

DDS_ReturnCode_t ParticipantEntity::delete_writer(DDSPublisher& owner, DDSDataWriter* writer) {
    constexpr const char* METHOD = "DDSPublisher::delete_datawriter";
    if (writer == nullptr) {
        return DDS_RETCODE_BAD_PARAMETER;
    }
    if (_process.is_of_a_parent()) {
        return DDS_RETCODE_OK;
    }
    std::unique_ptr<DataWriterEntity> deleted;
    const char* holder = nullptr;
    {
        Lock lock(_mutex);
        const auto found = _writers.find(writer);
        if (found == _writers.end() || found->second.owner != &owner) {
            log_error(METHOD, "the writer is of another publisher or participant, or deleted already");
            return DDS_RETCODE_PRECONDITION_NOT_MET;
        }
        if (found->second.writer->is_inside_listener()) {
            log_error(METHOD, "a writer cannot be deleted from inside its own listener");
            return DDS_RETCODE_PRECONDITION_NOT_MET;
        }
        deleted = std::move(found->second.writer);
        holder = found->second.holder;
        _writers.erase(found);
    }
    TopicEntity& topic = deleted->topic();
    deleted->close();
    deleted.reset();
    end_endpoint(holder, topic, nullptr);
    return DDS_RETCODE_OK;
}

// @return the number of the latest sample of the writer whose answers the filter selects; null if that is none of this participant.
std::shared_ptr<const std::atomic<std::int64_t>> ParticipantEntity::last_asked_locked(
    const ContentFilteredTopicEntity& filtered) const {
    const std::optional<DDS_GUID_t> route = filtered.filter()->route();
    const auto asking =
        std::find_if(_writers.begin(), _writers.end(), [&](const auto& entry) { return entry.second.writer->guid() == route; });
    return route.has_value() && asking != _writers.end() ? asking->second.writer->last_number() : nullptr;
}

DDSDataReader* ParticipantEntity::create_reader(DDSSubscriber& owner, DDSTopicDescription* topic, const DDS_DataReaderQos& qos,
                                                DDSDataReaderListener* listener, DDS_StatusMask mask) {
    constexpr const char* METHOD = "DDSSubscriber::create_datareader";
    if (!may_make_endpoints(METHOD)) {
        return nullptr;
    }
    return or_out_of_memory<DDSDataReader*>(METHOD, nullptr, [&]() -> DDSDataReader* {
        TopicUse use(*this);
        ContentFilteredTopicEntity* filtered = nullptr;
        std::shared_ptr<const std::atomic<std::int64_t>> last_asked;
        DDS_DataReaderQos wanted;
        DDS_ReturnCode_t code = DDS_RETCODE_OK;
        {
            Lock lock(_mutex);
            filtered = find_filtered_topic_locked(topic);
            TopicEntity* own = filtered != nullptr ? &filtered->topic() : find_topic_locked(topic);
            if (own == nullptr) {
                log_error(METHOD, "the topic is null, deleted, or of another participant");
                return nullptr;
            }
            use.begin_locked(*own, filtered);
            last_asked = filtered != nullptr ? last_asked_locked(*filtered) : nullptr;
            code = DDS_DataReaderQos_copy(&wanted, &qos == &DDS_DATAREADER_QOS_DEFAULT ? &_default_reader_qos : &qos);
        }
        std::string failure;
        if (code == DDS_RETCODE_OK) {
            code = validate(wanted, failure);
        }
        if (code != DDS_RETCODE_OK) {
            log_error(METHOD, [&] {
                return "topic \"" + use.topic().name() + "\": " + (failure.empty() ? "out of memory for the QoS" : failure);
            });
            return nullptr;
        }
        if (!type_may_travel(METHOD, use.topic())) {
            return nullptr;
        }
        // Destroyed on return unless it is registered below.
        std::unique_ptr<ReaderControl, DiscardReader> reader(
            make_reader_entity(owner, use.topic(), filtered, wanted, std::move(last_asked)));
        if (reader == nullptr || !reader->prepare(*_port, listener, mask, code)) {
            return nullptr;
        }
        DDSDataReader* made = &reader->reader();
        {
            Lock lock(_mutex);
            _readers.emplace(made, ReaderEntry{&owner, reader.get(), use.holder()});
        }
        if (reader->enable() == DDS_RETCODE_OK) {
            reader.release();
            use.keep();
            return made;
        }
        log_error(METHOD, [&] { return "topic \"" + use.topic().name() + "\": the engine could not enable the reader"; });
        {
            Lock lock(_mutex);
            _readers.erase(made);
        }
        reader.release()->close();
        return nullptr;
    });
}

DDS_ReturnCode_t ParticipantEntity::delete_reader(DDSSubscriber& owner, DDSDataReader* reader, bool with_conditions) {
    constexpr const char* METHOD = "DDSSubscriber::delete_datareader";
    if (reader == nullptr) {
        return DDS_RETCODE_BAD_PARAMETER;
    }
    if (_process.is_of_a_parent()) {
        return DDS_RETCODE_OK;
    }
    ReaderControl* deleted = nullptr;
    const char* holder = nullptr;
    {
        Lock lock(_mutex);
        const auto found = _readers.find(reader);
        if (found == _readers.end() || found->second.owner != &owner) {
            log_error(METHOD, "the reader is of another subscriber or participant, or deleted already");
            return DDS_RETCODE_PRECONDITION_NOT_MET;
        }
        if (found->second.reader->is_inside_listener()) {
            log_error(METHOD, "a reader cannot be deleted from inside its own listener");
            return DDS_RETCODE_PRECONDITION_NOT_MET;
        }
        if (with_conditions) {
            found->second.reader->delete_conditions();
        }
        if (found->second.reader->condition_count() > 0) {
            log_error(METHOD, "the reader still has read conditions; delete them first");
            return DDS_RETCODE_PRECONDITION_NOT_MET;
        }
        deleted = found->second.reader;
        holder = found->second.holder;
        _readers.erase(found);
    }
    TopicEntity& topic = deleted->topic();
    ContentFilteredTopicEntity* filtered = deleted->filtered_topic();
    deleted->close();  // with loans out the object lives on, but no longer uses the participant
    end_endpoint(holder, topic, filtered);
    return DDS_RETCODE_OK;
}

// ---- defaults, and everything at once -----------------------------------------------------------------------------

DDS_ReturnCode_t ParticipantEntity::get_default_datawriter_qos(DDS_DataWriterQos& qos) {
    Lock lock(_mutex);
    return DDS_DataWriterQos_copy(&qos, &_default_writer_qos);
}

DDS_ReturnCode_t ParticipantEntity::get_default_datareader_qos(DDS_DataReaderQos& qos) {
    Lock lock(_mutex);
    return DDS_DataReaderQos_copy(&qos, &_default_reader_qos);
}

DDS_ReturnCode_t ParticipantEntity::set_default_datawriter_qos(const DDS_DataWriterQos& qos) {
    std::string failure;
    const DDS_ReturnCode_t code = validate(qos, failure);
    if (code != DDS_RETCODE_OK) {
        log_error("DDSDomainParticipant::set_default_datawriter_qos", failure);
        return code;
    }
    Lock lock(_mutex);
    return DDS_DataWriterQos_copy(&_default_writer_qos, &qos);
}

DDS_ReturnCode_t ParticipantEntity::set_default_datareader_qos(const DDS_DataReaderQos& qos) {
    std::string failure;
    const DDS_ReturnCode_t code = validate(qos, failure);
    if (code != DDS_RETCODE_OK) {
        log_error("DDSDomainParticipant::set_default_datareader_qos", failure);
        return code;
    }
    Lock lock(_mutex);
    return DDS_DataReaderQos_copy(&_default_reader_qos, &qos);
}

DDS_ReturnCode_t ParticipantEntity::get_default_datawriter_qos_for_topic(DDS_DataWriterQos& qos, const char* topic_name) {
    return topic_name != nullptr ? get_default_datawriter_qos(qos) : DDS_RETCODE_BAD_PARAMETER;
}

DDS_ReturnCode_t ParticipantEntity::get_default_datareader_qos_for_topic(DDS_DataReaderQos& qos, const char* topic_name) {
    return topic_name != nullptr ? get_default_datareader_qos(qos) : DDS_RETCODE_BAD_PARAMETER;
}

DDS_ReturnCode_t ParticipantEntity::delete_endpoints_without_holder() {
    return or_out_of_memory("DDSDomainParticipant::delete_contained_entities", DDS_RETCODE_OUT_OF_RESOURCES, [&] {
        std::vector<std::pair<DDSSubscriber*, DDSDataReader*>> readers;
        std::vector<std::pair<DDSPublisher*, DDSDataWriter*>> writers;
        {
            Lock lock(_mutex);
            for (const auto& entry : _readers) {
                if (entry.second.holder == nullptr) {
                    readers.emplace_back(entry.second.owner, &entry.second.reader->reader());
                }
            }
            for (const auto& entry : _writers) {
                if (entry.second.holder == nullptr) {
                    writers.emplace_back(entry.second.owner, entry.second.writer.get());
                }
            }
        }
        DDS_ReturnCode_t code = DDS_RETCODE_OK;
        for (const auto& entry : readers) {
            const DDS_ReturnCode_t deleted = delete_reader(*entry.first, entry.second, true);
            code = code == DDS_RETCODE_OK ? deleted : code;
        }
        for (const auto& entry : writers) {
            const DDS_ReturnCode_t deleted = delete_writer(*entry.first, entry.second);
            code = code == DDS_RETCODE_OK ? deleted : code;
        }
        return code;
    });
}

DDS_ReturnCode_t ParticipantEntity::delete_contained_entities() {
    constexpr const char* METHOD = "DDSDomainParticipant::delete_contained_entities";
    if (_process.is_of_a_parent()) {
        return DDS_RETCODE_OK;
    }
    {
        Lock lock(_mutex);
        if (_held_endpoints > 0 || !_holdings.empty()) {
            log_error(METHOD, [this] {
                return "nothing is deleted, since there is still in use: " + held_endpoints_locked() +
                       "; destroy the requesters, repliers and services first";
            });
            return DDS_RETCODE_PRECONDITION_NOT_MET;
        }
    }
    const DDS_ReturnCode_t code = delete_endpoints_without_holder();
    if (code != DDS_RETCODE_OK) {
        return code;
    }
    Lock lock(_mutex);
    _publishers.clear();
    _subscribers.clear();
    _filtered_topics.clear();
    _topics.clear();
    return DDS_RETCODE_OK;
}

}  // namespace mw
}  // namespace norvane

DDSPublisherListener::~DDSPublisherListener() = default;
DDSSubscriberListener::~DDSSubscriberListener() = default;
DDSDomainParticipantListener::~DDSDomainParticipantListener() = default;

DDS_ReturnCode_t DDSDomainParticipant::begin_holding(const char*) { return DDS_RETCODE_OK; }
void DDSDomainParticipant::end_holding() {}
