// SPDX-License-Identifier: Apache-2.0
#include "engines/fastdds/discovery/Domain.hpp"

#include <algorithm>
#include <exception>
#include <iterator>
#include <string>
#include <utility>

#include <fastdds/rtps/RTPSDomain.h>

#include "engines/fastdds/discovery/LocalWriters.hpp"
#include "engines/fastdds/quirks_2_9/ForkedPrefix.hpp"
#include "engines/judgement.hpp"
#include "middleware/Log.hpp"
#include "platform/Clock.hpp"

namespace norvane {
namespace fastdds {

namespace {

// A process that was stopped or cut off beyond its lease is rediscovered within a second of resuming.
constexpr std::int64_t RETURN_NS = 5000LL * 1000 * 1000;

// Of one virtual GUID.
constexpr std::size_t MOST_CLAIMANTS = 8;

// A peer may announce any number.
DDS_DurabilityQosPolicyKind durability_of(eprosima::fastdds::dds::DurabilityQosPolicyKind kind) noexcept {
    switch (kind) {
        case eprosima::fastdds::dds::TRANSIENT_LOCAL_DURABILITY_QOS:
            return DDS_TRANSIENT_LOCAL_DURABILITY_QOS;
        case eprosima::fastdds::dds::TRANSIENT_DURABILITY_QOS:
            return DDS_TRANSIENT_DURABILITY_QOS;
        case eprosima::fastdds::dds::PERSISTENT_DURABILITY_QOS:
            return DDS_PERSISTENT_DURABILITY_QOS;
        case eprosima::fastdds::dds::VOLATILE_DURABILITY_QOS:
            break;
    }
    return DDS_VOLATILE_DURABILITY_QOS;
}

template <typename Data>
void describe(const Data& data, Discovered& endpoint) {
    mw::EndpointInfo& info = endpoint.info;
    endpoint.rtps_guid = data.guid();
    info.guid = to_guid(data.guid());
    rtps::GUID_t participant;
    participant.guidPrefix = data.guid().guidPrefix;
    participant.entityId = rtps::c_EntityId_RTPSParticipant;
    info.participant_guid = to_guid(participant);
    info.topic_name = data.topicName().to_string();
    info.type_name = data.typeName().to_string();
    info.reliability.kind = data.m_qos.m_reliability.kind == eprosima::fastdds::dds::RELIABLE_RELIABILITY_QOS
                                ? DDS_RELIABLE_RELIABILITY_QOS
                                : DDS_BEST_EFFORT_RELIABILITY_QOS;
    info.durability.kind = durability_of(data.m_qos.m_durability.kind);
    read_announcement(data.m_qos.m_userData.data_vec(), endpoint);
}

mw::PeerEvent judge(const mw::EndpointInfo& writer, const mw::EndpointInfo& reader) noexcept {
    return mw::judge(writer, reader, are_of_one_type(writer, reader));
}

// The ports on which peers announce their participants and endpoints.
std::vector<std::uint32_t> discovery_ports(const rtps::RTPSParticipant& participant) {
    const rtps::BuiltinAttributes& builtin = participant.getRTPSParticipantAttributes().builtin;
    std::vector<std::uint32_t> ports;
    for (const rtps::LocatorList_t* list : {&builtin.metatrafficUnicastLocatorList, &builtin.metatrafficMulticastLocatorList}) {
        for (const rtps::Locator_t& place : *list) {
            ports.push_back(place.port);
        }
    }
    return ports;
}

// Guarded by the mutex of all endpoints.
ForkedPrefix& forked_prefix() noexcept {
    static ForkedPrefix prefix;
    return prefix;
}

// The participants of this process whose timer threads can be paused. Guarded by the mutex of all endpoints. Never destroyed, like
// it.
std::vector<const Domain*>& joined() noexcept {
    static std::vector<const Domain*>* const ALL = new std::vector<const Domain*>;
    return *ALL;
}

}  // namespace

Domain::~Domain() { leave(); }

void Domain::leave() noexcept {
    _addresses.reset();
    if (_dispatcher != nullptr) {
        _dispatcher->stop();
    }
    if (_ends.outbox) {
        _ends.outbox->close();  // its sockets go with the participant
    }
    if (_ends.inbox) {
        _ends.inbox->detach();
        _ends.paths->listen(nullptr);
    }
    if (_event_thread != nullptr) {
        const std::lock_guard<std::mutex> lock(endpoints_mutex());
        joined().erase(std::remove(joined().begin(), joined().end(), this), joined().end());
        _event_thread->end();
    }
    if (_participant != nullptr) {
        const Removal removal(*this);
        rtps::RTPSDomain::removeRTPSParticipant(_participant);
        _participant = nullptr;
        _dispatcher->stop();
    }
}

bool Domain::join(std::uint32_t domain_id, const rtps::RTPSParticipantAttributes& attributes) {
    _domain_id = domain_id;
    _dispatcher = std::make_unique<Dispatcher>();
    rtps::RTPSParticipantAttributes own_attributes = attributes;
    {
        const std::lock_guard<std::mutex> lock(endpoints_mutex());
        if (forked_prefix().is_of_a_parent()) {
            joined().clear();  // the timer threads of the parent's participants do not exist here
        }
        own_attributes.prefix = forked_prefix().next();
    }
    _participant = rtps::RTPSDomain::createParticipant(domain_id, own_attributes, this);
    if (_participant == nullptr) {
        return false;
    }
    _event_thread = std::make_unique<EventThread>(*_participant);
    {
        const std::lock_guard<std::mutex> lock(endpoints_mutex());
        forked_prefix().note(_participant->getGuid().guidPrefix);
        joined().push_back(this);
    }
    if (_ends.inbox) {
        _ends.inbox->attach(*_event_thread, discovery_ports(*_participant));
        _ends.paths->listen([](const rtps::GUID_t& guid) {
            if (const std::shared_ptr<Endpoint> writer = LocalWriters::get().find(to_guid(guid))) {
                writer->ask_soon();
            }
        });
        watch_addresses();
    }
    return true;
}

void Domain::watch_addresses() noexcept {
    std::string reason = "the system does not tell";
    try {
        _addresses = std::make_unique<AddressWatch::Subscription>([this] { on_addresses_changed(); });
        if (_addresses->is_live()) {
            return;
        }
    } catch (const std::exception& error) {
        reason = error.what();
    }
    mw::log_warning<mw::LogPart::ENGINE>("Domain::watch_addresses", [&] {
        return "changes of this machine's addresses will not be noticed (" + reason + "): after one, make the participant anew";
    });
}

// On the thread of the watch.
void Domain::on_addresses_changed() noexcept {
    try {
        if (!_ends.interfaces->refresh()) {
            return;
        }
        for (const std::string& address : _ends.addresses) {
            if (!_ends.interfaces->have(address)) {
                mw::log_warning<mw::LogPart::ENGINE>("Domain::on_addresses_changed", [&] {
                    return "this machine has lost the address " + address +
                           ", which norvane.fastdds.interfaces names: peers are not "
                           "reached there until it is back; if it does not come back, make the participant anew with another";
                });
            }
        }
        if (!_ends.addresses.empty() || _ends.interfaces->addresses().empty()) {
            return;  // its sockets have these addresses
        }
        // Fast DDS reads the interfaces again, joins its groups on the new ones, and announces the participant.
        _participant->update_attributes(rtps::RTPSParticipantAttributes(_participant->getRTPSParticipantAttributes()));
        mw::log_notice<mw::LogPart::ENGINE>("Domain::on_addresses_changed", [&] {
            return std::string("the addresses of this machine have changed: the participant has announced the present ones");
        });
    } catch (const std::exception& error) {
        mw::log_error<mw::LogPart::ENGINE>("Domain::on_addresses_changed", [&] {
            return std::string("the addresses of this machine have changed, and peers were not told: ") + error.what() +
                   "; make the participant anew";
        });
    }
}

std::mutex& Domain::endpoints_mutex() noexcept {
    // Never destroyed: participants with static storage leave after main.
    static std::mutex* const MUTEX = new std::mutex;
    return *MUTEX;
}

Domain::Removal::Removal(const Domain& domain) noexcept : _lock(endpoints_mutex()), _domain(domain) {
    // All of them first: each takes a while until it is paused.
    for_each_domain([](const Domain& each) { each._pause = each._event_thread->pause(); });
    for_each_domain([](const Domain& each) { each._event_thread->wait_until_paused(each._pause); });
    // Removing an endpoint waits for the timer thread of its own participant, which has now answered all endpoints of this process,
    // and gets no new ones.
    for_each_domain([&](const Domain& each) {
        if (&each == &domain) {
            each._event_thread->resume(each._pause);
        }
    });
}

Domain::Removal::~Removal() {
    for_each_domain([&](const Domain& each) {
        if (&each != &_domain) {
            each._event_thread->resume(each._pause);
        }
    });
}

template <typename Action>
void Domain::Removal::for_each_domain(const Action& action) const noexcept {
    for (const Domain* const each : joined()) {
        if (each->_domain_id == _domain._domain_id) {
            action(*each);
        }
    }
}

bool Domain::claim_guid(const DDS_GUID_t& guid) {
    std::lock_guard<std::mutex> lock(_mutex);
    const bool known =
        std::any_of(_directory.begin(), _directory.end(), [&](const auto& entry) { return entry.second->info.guid == guid; });
    return !known && _own_guids.insert(guid).second;
}

void Domain::give_back_guid(const DDS_GUID_t& guid) noexcept {
    std::lock_guard<std::mutex> lock(_mutex);
    _own_guids.erase(guid);
}

DDS_GUID_t Domain::make_guid() noexcept {
    // A vendor-specific kind, which Fast DDS itself never uses.
    constexpr DDS_Octet VENDORS_READER = 0x44;
    DDS_GUID_t made = guid();
    const std::uint32_t entity = _last_entity.fetch_add(1) + 1;
    made.value[12] = static_cast<DDS_Octet>(entity >> 16U);
    made.value[13] = static_cast<DDS_Octet>(entity >> 8U);
    made.value[14] = static_cast<DDS_Octet>(entity);
    made.value[15] = VENDORS_READER;
    return made;
}

void Domain::add(const std::shared_ptr<Endpoint>& endpoint) {
    std::lock_guard<std::mutex> lock(_mutex);
    _own.push_back(endpoint);
    _requester_count += endpoint->is_writer() && is_requester(endpoint->info()) ? 1 : 0;
    for (const auto& entry : _directory) {
        judge_locked(*endpoint, entry.second);
    }
}

void Domain::remove(const Endpoint& endpoint) noexcept {
    std::lock_guard<std::mutex> lock(_mutex);
    const auto place = std::find_if(_own.begin(), _own.end(), [&](const auto& own) { return own.get() == &endpoint; });
    if (place != _own.end()) {
        place->swap(_own.back());
        _own.pop_back();
        _requester_count -= endpoint.is_writer() && is_requester(endpoint.info()) ? 1 : 0;
    }
}

std::shared_ptr<const Discovered> Domain::find(const rtps::GUID_t& guid) noexcept {
    std::lock_guard<std::mutex> lock(_mutex);
    const auto place = _directory.find(to_guid(guid));
    return place == _directory.end() ? nullptr : place->second;
}

std::shared_ptr<const Discovered> Domain::find_requester(const DDS_GUID_t& writer_guid) noexcept {
    std::lock_guard<std::mutex> lock(_mutex);
    const auto place = _requesters.find(writer_guid);
    return place == _requesters.end() || place->second.empty() ? nullptr : place->second.back();
}

std::int64_t Domain::return_deadline_ns(const DDS_GUID_t& writer_guid, DDS_GUID_t& participant) noexcept {
    std::lock_guard<std::mutex> lock(_mutex);
    const auto place = _lost_requesters.find(writer_guid);
    if (place == _lost_requesters.end() || place->second.deadline_ns <= platform::monotonic_ns()) {
        return 0;
    }
    participant = place->second.participant;
    return place->second.deadline_ns;
}

std::shared_ptr<Endpoint> Domain::find_own_writer(const DDS_GUID_t& guid) noexcept {
    std::lock_guard<std::mutex> lock(_mutex);
    const auto place =
        std::find_if(_own.begin(), _own.end(), [&](const auto& own) { return own->is_writer() && own->info().guid == guid; });
    return place == _own.end() ? nullptr : *place;
}

std::shared_ptr<Endpoint> Domain::find_share(const DDS_GUID_t& asking) noexcept {
    std::lock_guard<std::mutex> lock(_mutex);
    const auto place = std::find_if(_own.begin(), _own.end(), [&](const auto& own) { return own->shares_answers_to(asking); });
    return place == _own.end() ? nullptr : *place;
}

std::vector<std::shared_ptr<const Discovered>> Domain::find_sharing_requesters(const std::string& topic) {
    std::vector<std::shared_ptr<const Discovered>> sharers;
    std::lock_guard<std::mutex> lock(_mutex);
    for (const auto& entry : _requesters) {
        std::copy_if(entry.second.begin(), entry.second.end(), std::back_inserter(sharers),
                     [&](const auto& claimant) { return claimant->answers.topic_name == topic; });
    }
    return sharers;
}

void Domain::onParticipantDiscovery(rtps::RTPSParticipant* /*participant*/, rtps::ParticipantDiscoveryInfo&& info) {
    if (!_ends.moved_peers) {
        return;
    }
    typedef rtps::ParticipantDiscoveryInfo Info;
    const rtps::GuidPrefix_t& peer = info.info.m_guid.guidPrefix;
    if (info.status == Info::REMOVED_PARTICIPANT || info.status == Info::DROPPED_PARTICIPANT) {
        _ends.moved_peers->forget(peer);
        return;
    }
    try {
        const auto& discovery = info.info.metatraffic_locators.unicast;
        const auto& data = info.info.default_locators.unicast;
        MovedPeers::Locators places(discovery.begin(), discovery.end());
        if (info.status == Info::DISCOVERED_PARTICIPANT) {
            _ends.moved_peers->note_new(peer, places);
        }
        places.insert(places.end(), data.begin(), data.end());
        _ends.moved_peers->note(peer, std::move(places));
    } catch (const std::exception&) {
        // Memory is short: when its address changes, the peer is found again after its lease.
    }
}

void Domain::onReaderDiscovery(rtps::RTPSParticipant* /*participant*/, rtps::ReaderDiscoveryInfo&& info) {
    if (info.status == rtps::ReaderDiscoveryInfo::REMOVED_READER) {
        forget(info.info.guid());
    } else {
        discover(info.info, false);
    }
}

void Domain::onWriterDiscovery(rtps::RTPSParticipant* /*participant*/, rtps::WriterDiscoveryInfo&& info) {
    if (info.status == rtps::WriterDiscoveryInfo::REMOVED_WRITER) {
        forget(info.info.guid());
    } else {
        discover(info.info, true);
    }
}

template <typename Data>
void Domain::discover(const Data& data, bool is_writer) noexcept {
    try {
        auto endpoint = std::make_shared<Discovered>();
        endpoint->is_writer = is_writer;
        endpoint->since_ns = platform::monotonic_ns();
        describe(data, *endpoint);
        if (_ends.moved_peers) {
            const auto& places = data.remote_locators().unicast;
            _ends.moved_peers->note_endpoint(data.guid().guidPrefix, {places.begin(), places.end()});
        }
        bool is_first_refused = false;
        {
            const std::lock_guard<std::mutex> lock(_mutex);
            if (is_writer && endpoint->ours && is_requester(endpoint->info) && !claim_locked(endpoint)) {
                is_first_refused = !std::exchange(_has_refused_claimant, true);
            }
            _directory[to_guid(data.guid())] = endpoint;
            for (const std::shared_ptr<Endpoint>& own : _own) {
                judge_locked(*own, endpoint);
            }
        }
        if (is_first_refused) {
            mw::log_warning<mw::LogPart::ENGINE>("Domain::discover", [&] {
                return "more than " + std::to_string(MOST_CLAIMANTS) + " requesters claim one identity (topic '" +
                       endpoint->info.topic_name +
                       "'): a further one gets no replies until another of them leaves. This is logged once";
            });
        }
    } catch (const std::exception&) {
        // Memory is short: the endpoint is treated as plain.
    }
}

// @return false if there are too many. @throws std::bad_alloc
bool Domain::claim_locked(const std::shared_ptr<Discovered>& requester) {
    Claimants& claimants = _requesters[requester->info.guid];
    const auto known = std::find_if(claimants.begin(), claimants.end(),
                                    [&](const auto& claimant) { return claimant->rtps_guid == requester->rtps_guid; });
    std::shared_ptr<const Discovered> before;
    if (known != claimants.end()) {
        requester->since_ns = (*known)->since_ns;
        before = std::exchange(*known, requester);
    } else if (claimants.size() < MOST_CLAIMANTS) {
        claimants.push_back(requester);
    } else {
        return false;
    }
    _lost_requesters.erase(requester->info.guid);
    const mw::EndpointInfo nothing;
    const mw::EndpointInfo& answers_before = before ? before->answers : nothing;
    const mw::EndpointInfo& answers = requester->answers;
    if (answers_before.topic_name != answers.topic_name || !(answers_before.guid == answers.guid)) {
        notify_of_requester_locked(answers_before.topic_name.empty() ? answers.topic_name : answers_before.topic_name);
    }
    return true;
}

void Domain::forget(const rtps::GUID_t& guid) noexcept {
    std::lock_guard<std::mutex> lock(_mutex);
    const auto place = _directory.find(to_guid(guid));
    if (place == _directory.end()) {
        return;
    }
    const std::shared_ptr<const Discovered> gone = std::move(place->second);
    _directory.erase(place);
    gone->is_lost.store(kind_of_leaving() == mw::PeerEventKind::LOST);
    for (const std::shared_ptr<Endpoint>& own : _own) {
        own->forget_misfit(guid);
    }
    const auto requester = gone->is_writer ? _requesters.find(gone->info.guid) : _requesters.end();
    if (requester == _requesters.end()) {
        return;
    }
    Claimants& claimants = requester->second;
    const auto claim = std::find(claimants.begin(), claimants.end(), gone);
    if (claim == claimants.end()) {
        return;
    }
    claimants.erase(claim);
    if (claimants.size() + 1 == MOST_CLAIMANTS) {
        admit_waiting_claimant_locked(gone->info.guid, claimants);
    }
    if (claimants.empty()) {
        _requesters.erase(requester);
        if (gone->is_lost.load()) {
            note_loss_locked(*gone);
        }
    }
    notify_of_requester_locked(gone->answers.topic_name);
}

// One that was refused while there were too many.
void Domain::admit_waiting_claimant_locked(const DDS_GUID_t& guid, Claimants& claimants) noexcept {
    const auto waits = [&](const auto& entry) {
        const std::shared_ptr<const Discovered>& other = entry.second;
        return other->is_writer && other->ours && other->info.guid == guid && is_requester(other->info) &&
               std::find(claimants.begin(), claimants.end(), other) == claimants.end();
    };
    const auto waiting = std::find_if(_directory.begin(), _directory.end(), waits);
    if (waiting != _directory.end()) {
        claimants.push_back(waiting->second);  // there is memory for it: one has just left
    }
}

void Domain::note_loss_locked(const Discovered& requester) noexcept {
    const std::int64_t now_ns = platform::monotonic_ns();
    for (auto place = _lost_requesters.begin(); place != _lost_requesters.end();) {
        place = place->second.deadline_ns <= now_ns ? _lost_requesters.erase(place) : std::next(place);
    }
    try {
        _lost_requesters[requester.info.guid] = {requester.info.participant_guid, now_ns + RETURN_NS};
    } catch (const std::exception&) {
        // Memory is short: no answer waits for it.
    }
}

void Domain::notify_of_requester_locked(const std::string& topic) noexcept {
    for (const std::shared_ptr<Endpoint>& own : _own) {
        if (own->on_requester_changed(topic)) {
            _dispatcher->start_timer(own, platform::monotonic_ns());
        }
    }
}

void Domain::judge_locked(Endpoint& own, const std::shared_ptr<const Discovered>& other) noexcept {
    if (own.is_writer() == other->is_writer || own.info().topic_name != other->info.topic_name) {
        return;
    }
    mw::PeerEvent event = own.is_writer() ? judge(own.info(), other->info) : judge(other->info, own.info());
    if (event.kind != mw::PeerEventKind::MATCHED) {  // matches are reported when Fast DDS has made them
        event.peer = info_of(other);
        own.note_misfit(other->rtps_guid, event);
    }
}

}  // namespace fastdds
}  // namespace norvane
