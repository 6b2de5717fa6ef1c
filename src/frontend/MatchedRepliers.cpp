// SPDX-License-Identifier: Apache-2.0
#include "norvane/details/MatchedRepliers.hpp"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <functional>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <utility>

#include "norvane/Exception.hpp"
#include "norvane/dds/DomainParticipant.hpp"
#include "norvane/dds/Publisher.hpp"
#include "norvane/dds/Subscriber.hpp"

namespace norvane {
namespace details {

namespace {

constexpr const char* CLASS_NAME = "MatchedRepliers";
constexpr std::chrono::milliseconds RETRY_PAUSE(10);

struct GuidOrder {
    bool operator()(const DDS_GUID_t& left, const DDS_GUID_t& right) const noexcept {
        return std::memcmp(left.value, right.value, sizeof left.value) < 0;
    }
};

std::string kind_of_policy(DDS_QosPolicyId_t policy, DDS_Long kind) {
    if (policy == DDS_RELIABILITY_QOS_POLICY_ID) {
        return kind == DDS_RELIABLE_RELIABILITY_QOS ? "RELIABLE" : "BEST_EFFORT";
    }
    if (policy == DDS_DURABILITY_QOS_POLICY_ID) {
        constexpr const char* KINDS[] = {"VOLATILE", "TRANSIENT_LOCAL", "TRANSIENT", "PERSISTENT"};
        return kind >= 0 && kind < 4 ? KINDS[kind] : std::to_string(kind);
    }
    return std::to_string(kind);
}

std::string name_of_policy(DDS_QosPolicyId_t policy) {
    switch (policy) {
        case DDS_RELIABILITY_QOS_POLICY_ID:
            return "RELIABILITY";
        case DDS_DURABILITY_QOS_POLICY_ID:
            return "DURABILITY";
        case DDS_INVALID_QOS_POLICY_ID:
            break;
    }
    return "policy " + std::to_string(policy);
}

std::string mismatch(const DDS_IncompatibleQosStatus& status) {
    return name_of_policy(status.last_policy_id) + ", offered " + kind_of_policy(status.last_policy_id, status.last_offered) +
           ", requested " + kind_of_policy(status.last_policy_id, status.last_requested);
}

// @return whether a peer that was listed is still there. @throws when it may be, but memory is short.
bool is_there(DDS_ReturnCode_t code) {
    return code != DDS_RETCODE_OUT_OF_RESOURCES ? code == DDS_RETCODE_OK
                                                : check_retcode(code, CLASS_NAME, VOST_LOG_GET_FAILURE_s, "data of a peer", true);
}

}  // namespace

class MatchedRepliers::State : public DDSDataWriterListener, public DDSDataReaderListener {
public:
    State(DDSDataWriter& writer, DDSDataReader& reader) : _writer(writer), _reader(reader) {}
    ~State() override {
        _writer.set_listener(nullptr, DDS_STATUS_MASK_NONE);
        _reader.set_listener(nullptr, DDS_STATUS_MASK_NONE);
    }

    // Listens before it counts: what comes in between is counted twice rather than not at all.
    void begin() {
        check_retcode(_writer.set_listener(this, DDS_PUBLICATION_MATCHED_STATUS), CLASS_NAME, VOST_LOG_ANY_FAILURE_s,
                      "listen to the request writer", true);
        check_retcode(_reader.set_listener(this, DDS_SUBSCRIPTION_MATCHED_STATUS), CLASS_NAME, VOST_LOG_ANY_FAILURE_s,
                      "listen to the reply reader", true);
        std::lock_guard<std::mutex> lock(_mutex);
        recount_locked();
    }

    void on_publication_matched(DDSDataWriter*, const DDS_PublicationMatchedStatus&) override { recount(); }
    void on_subscription_matched(DDSDataReader*, const DDS_SubscriptionMatchedStatus&) override { recount(); }

    void set_on_change(std::function<void()> on_change) {
        std::lock_guard<std::mutex> lock(_mutex);
        _on_change = std::move(on_change);
    }

    int count() noexcept {
        if (_is_stale.load(std::memory_order_acquire)) {
            std::lock_guard<std::mutex> lock(_mutex);
            try_recount_locked();
        }
        return _count.load(std::memory_order_acquire);
    }

    bool wait(const Deadline& deadline, int wanted) {
        std::unique_lock<std::mutex> lock(_mutex);
        bool is_over = false;
        for (;;) {
            if (_is_stale.load(std::memory_order_relaxed)) {
                try_recount_locked();
            }
            is_over = is_over || _closed || _count.load(std::memory_order_relaxed) >= wanted;
            if (is_over) {
                return !_closed && _count.load(std::memory_order_relaxed) >= wanted;
            }
            if (_is_stale.load(std::memory_order_relaxed)) {
                // No event reports that there is memory again.
                _changed.wait_until(lock, std::min(deadline.time(), Deadline::Clock::now() + RETRY_PAUSE));
            } else if (deadline.is_infinite()) {
                _changed.wait(lock);
            } else {
                _changed.wait_until(lock, deadline.time());
            }
            is_over = !deadline.is_infinite() && Deadline::Clock::now() >= deadline.time();
        }
    }

    void close() noexcept {
        std::lock_guard<std::mutex> lock(_mutex);
        _closed = true;
        _changed.notify_all();
    }

    std::uint64_t newest() const noexcept { return _newest.load(std::memory_order_relaxed); }
    NoReply obstacle();
    NoReply silence(std::uint64_t newest);

private:
    typedef std::map<DDS_GUID_t, std::uint64_t, GuidOrder> Numbers;

    void recount() noexcept;
    void recount_locked();
    void try_recount_locked() noexcept;
    NoReply incompatibility();

    DDSDataWriter& _writer;
    DDSDataReader& _reader;
    std::mutex _mutex;
    std::condition_variable _changed;
    std::atomic<int> _count{0};
    std::atomic<bool> _is_stale{false};  // memory was too short to count: the next question counts again
    Numbers _ready;                      // repliers by their writer (plain ones by their participant), each with its number
    std::atomic<std::uint64_t> _newest{0};
    std::function<void()> _on_change;  // set once, if at all
    bool _closed = false;
};

void MatchedRepliers::State::recount() noexcept {
    const std::function<void()>* on_change = nullptr;
    {
        // Both listeners may come here at once; the later look at the lists must also be the later one to be kept.
        std::lock_guard<std::mutex> lock(_mutex);
        try_recount_locked();
        _changed.notify_all();
        on_change = _on_change ? &_on_change : nullptr;
    }
    if (on_change != nullptr) {
        (*on_change)();
    }
}

// A change that could not be counted is not lost: no second event would tell of it.
void MatchedRepliers::State::try_recount_locked() noexcept {
    bool is_stale = false;
    try {
        recount_locked();
    } catch (...) {
        is_stale = true;  // logged where it was thrown, if there was memory for that
    }
    _is_stale.store(is_stale, std::memory_order_release);
}

void MatchedRepliers::State::recount_locked() {
    struct Plain {
        int readers = 0;
        int writers = 0;
    };
    std::set<DDS_GUID_t, GuidOrder> partners;
    std::map<DDS_GUID_t, Plain, GuidOrder> plain;
    DDS_InstanceHandleSeq handles;
    check_retcode(_writer.get_matched_subscriptions(handles), CLASS_NAME, VOST_LOG_GET_FAILURE_s, "matched request readers", true);
    for (DDS_Long index = 0; index < handles.length(); ++index) {
        DDS_SubscriptionBuiltinTopicData reader;
        if (!is_there(_writer.get_matched_subscription_data(reader, handles[index]))) {
            continue;  // left in between: its event follows
        }
        if (reader.partner_key == DDS_GUID_UNKNOWN) {
            ++plain[reader.participant_key].readers;
        } else {
            partners.insert(reader.partner_key);
        }
    }
    int count = 0;
    Numbers ready;
    std::uint64_t newest = _newest.load(std::memory_order_relaxed);
    const auto number = [&](const DDS_GUID_t& replier) {
        const auto known = _ready.find(replier);
        ready[replier] = known != _ready.end() ? known->second : ++newest;
    };
    check_retcode(_reader.get_matched_publications(handles), CLASS_NAME, VOST_LOG_GET_FAILURE_s, "matched reply writers", true);
    for (DDS_Long index = 0; index < handles.length(); ++index) {
        DDS_PublicationBuiltinTopicData writer;
        if (!is_there(_reader.get_matched_publication_data(writer, handles[index]))) {
            continue;
        }
        if (partners.count(writer.key) != 0) {
            ++count;
            number(writer.key);
        } else {
            ++plain[writer.participant_key].writers;
        }
    }
    for (const auto& participant : plain) {
        const int pairs = std::min(participant.second.readers, participant.second.writers);
        if (pairs > 0) {
            count += pairs;
            number(participant.first);
        }
    }
    _ready.swap(ready);
    _newest.store(newest, std::memory_order_relaxed);
    _count.store(count, std::memory_order_release);
}

// What stood between the requester and a replier that was found; without text when nothing did. That replier may be gone by now:
// the middleware reports the incompatibility, not its end.
NoReply MatchedRepliers::State::incompatibility() {
    DDS_OfferedIncompatibleQosStatus offered;
    DDS_RequestedIncompatibleQosStatus requested;
    DDS_IncompatibleTypeStatus request_type;
    DDS_IncompatibleTypeStatus reply_type;
    _writer.get_offered_incompatible_qos_status(offered);
    _reader.get_requested_incompatible_qos_status(requested);
    _writer.get_incompatible_type_status(request_type);
    _reader.get_incompatible_type_status(reply_type);
    if (request_type.total_count > 0) {
        return {TimeoutReason::INCOMPATIBLE_TYPE,
                std::string("a replier was found, but reads requests of another type, \"") + request_type.last_type_name + "\""};
    }
    if (reply_type.total_count > 0) {
        return {TimeoutReason::INCOMPATIBLE_TYPE,
                std::string("a replier was found, but writes replies of another type, \"") + reply_type.last_type_name + "\""};
    }
    if (offered.total_count > 0) {
        return {TimeoutReason::INCOMPATIBLE_QOS,
                "a replier was found, but its request reader can never match: " + mismatch(offered)};
    }
    if (requested.total_count > 0) {
        return {TimeoutReason::INCOMPATIBLE_QOS,
                "a replier was found, but its reply writer can never match: " + mismatch(requested)};
    }
    return {TimeoutReason::NO_REPLIER, ""};
}

NoReply MatchedRepliers::State::obstacle() {
    const NoReply incompatible = incompatibility();
    DDS_PublicationMatchedStatus requests;
    DDS_SubscriptionMatchedStatus replies;
    _writer.get_publication_matched_status(requests);
    _reader.get_subscription_matched_status(replies);
    // One that could be called and has left was no obstacle to others.
    if (!incompatible.text.empty() && (requests.current_count > 0 || replies.current_count > 0 || requests.total_count == 0)) {
        return incompatible;
    }
    if (requests.current_count > 0 || replies.current_count > 0) {
        return {TimeoutReason::NOT_MATCHED_YET, requests.current_count > 0
                                                    ? "a replier reads the requests, but the way of its replies is not there (yet)"
                                                    : "a replier is there, but the way of the requests to it is not there (yet)"};
    }
    NoReply none = {TimeoutReason::NO_REPLIER,
                    requests.total_count > 0 ? "no replier is there any more: the last one has left" : "no replier is there"};
    if (!incompatible.text.empty()) {
        none.text += "; besides, " + incompatible.text;
    }
    DDSPublisher* publisher = _writer.get_publisher();
    DDSDomainParticipant* participant = publisher != nullptr ? publisher->get_participant() : nullptr;
    if (participant != nullptr && !participant->reaches_other_processes()) {
        none.text += std::string("; the engine \"") + participant->get_engine_name() +
                     "\" reaches this process only: for others, set the environment variable NORVANE_ENGINE, or the "
                     "participant's property \"norvane.engine\", to \"fastdds\"";
    }
    return none;
}

NoReply MatchedRepliers::State::silence(std::uint64_t newest) {
    const int ready = count();
    bool one_is_left = false;
    {
        const std::lock_guard<std::mutex> lock(_mutex);
        one_is_left = std::any_of(_ready.begin(), _ready.end(), [&](const auto& replier) { return replier.second <= newest; });
    }
    const std::string how_many = std::to_string(ready) + (ready == 1 ? " replier is" : " repliers are") + " ready";
    if (one_is_left) {
        return {TimeoutReason::SILENT,
                how_many + ", and has not answered: it is slow, it is silent, or it has not read the request"};
    }
    return {TimeoutReason::REPLIER_LEFT,
            ready > 0 ? "every replier that the request was sent to has left; " + how_many + " that came later" : obstacle().text};
}

MatchedRepliers::MatchedRepliers(DDSDataWriter& writer, DDSDataReader& reader) : _state(new State(writer, reader)) {
    _state->begin();
}

MatchedRepliers::~MatchedRepliers() = default;

int MatchedRepliers::count() const noexcept { return _state->count(); }

void MatchedRepliers::set_on_change(std::function<void()> on_change) { _state->set_on_change(std::move(on_change)); }

bool MatchedRepliers::wait(const Deadline& deadline, int wanted) { return _state->wait(deadline, wanted); }

void MatchedRepliers::close() noexcept { _state->close(); }

std::uint64_t MatchedRepliers::newest() const noexcept { return _state->newest(); }

NoReply MatchedRepliers::obstacle() const { return _state->obstacle(); }

NoReply MatchedRepliers::silence(std::uint64_t newest) const { return _state->silence(newest); }

}  // namespace details
}  // namespace norvane
