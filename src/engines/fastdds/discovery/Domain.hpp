// SPDX-License-Identifier: Apache-2.0
// One participant of Fast DDS: the endpoints that it has discovered, its own endpoints, and its threads.
//
// 1. Fast DDS reports every endpoint, those of this participant included, before it matches any. That fills the directory.
// 2. The directory's mutex is taken under locks of Fast DDS, and never held while Fast DDS is called. Sinks learn of incompatible
//    peers under it.
// 3. Endpoints are listed from before they are enabled until they are closed.
#ifndef NORVANE_ENGINES_FASTDDS_DISCOVERY_DOMAIN_HPP
#define NORVANE_ENGINES_FASTDDS_DISCOVERY_DOMAIN_HPP

#include <algorithm>
#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

#include <fastdds/rtps/attributes/RTPSParticipantAttributes.h>
#include <fastdds/rtps/participant/RTPSParticipant.h>
#include <fastdds/rtps/participant/RTPSParticipantListener.h>

#include "engines/fastdds/Dispatcher.hpp"
#include "engines/fastdds/Endpoint.hpp"
#include "engines/fastdds/discovery/Announcement.hpp"
#include "engines/fastdds/quirks_2_9/EventThread.hpp"
#include "engines/fastdds/reading/ReplyReaders.hpp"
#include "engines/fastdds/transport/AddressWatch.hpp"
#include "engines/fastdds/transport/UdpTransport.hpp"

namespace norvane {
namespace fastdds {

class Domain : private rtps::RTPSParticipantListener {
public:
    /// @param window  samples on the way at most, of a writer without a bound of its own.
    /// @param ends  of the participant's transport.
    Domain(std::int64_t window, bool writer_filters, TransportEnds ends) noexcept
        : _window(window), _writer_filters(writer_filters), _ends(std::move(ends)) {}
    ~Domain() override;

    /// Joins. @return false if Fast DDS refuses.
    /// @throws std::exception  no thread, or no memory.
    bool join(std::uint32_t domain_id, const rtps::RTPSParticipantAttributes& attributes);

    /// Leaves: ends the threads and the participant. Every endpoint is closed. Not left to the destructor, since endpoints hold the
    /// domain and the threads hold endpoints.
    void leave() noexcept;

    /// Held while Fast DDS makes, registers or removes an endpoint of any participant of the process: if several threads do that at
    /// once, Fast DDS matches endpoints that are being destroyed. Precedes all locks of Fast DDS; no callback takes it.
    static std::mutex& endpoints_mutex() noexcept;

    /// Held instead while an endpoint is removed. The participants of this process are notified on the calling thread, so their
    /// timer threads are paused meanwhile (EventThread).
    class Removal {
    public:
        explicit Removal(const Domain& domain) noexcept;
        ~Removal();
        Removal(const Removal&) = delete;
        Removal& operator=(const Removal&) = delete;

    private:
        template <typename Action>
        void for_each_domain(const Action& action) const noexcept;

        const std::lock_guard<std::mutex> _lock;
        const Domain& _domain;
    };

    rtps::RTPSParticipant& participant() const noexcept { return *_participant; }
    Dispatcher& dispatcher() noexcept { return *_dispatcher; }
    /// @return the number of writers of this participant that belong to requesters.
    std::int64_t requester_count() const noexcept { return _requester_count.load(std::memory_order_relaxed); }
    std::int64_t window() const noexcept { return _window; }
    bool writer_filters() const noexcept { return _writer_filters; }
    /// @return null if batching is off.
    Outbox* outbox() const noexcept { return _ends.outbox.get(); }
    /// @return whether a peer at these places is on this machine, as far as is known.
    template <typename Locators>
    bool has_near(const Locators& places) const noexcept {
        return !_ends.interfaces || std::all_of(places.begin(), places.end(), [this](const rtps::Locator_t& place) {
            return _ends.interfaces->reach_within(place);
        });
    }
    /// The readers of a writer of this participant have its samples up to a number of Fast DDS.
    void note_acknowledged(const rtps::GUID_t& writer, std::int64_t number) const noexcept {
        if (_ends.paths) {
            _ends.paths->acknowledge(writer, number);
        }
    }
    /// A reader of this participant exists. Both are borrowed until `remove_reader`. @throws std::bad_alloc
    void add_reader(rtps::RTPSReader& reader, rtps::ReaderHistory& history) const {
        if (_ends.jumps) {
            _ends.jumps->add(reader, history);
        }
    }
    /// Fast DDS removes the reader of this participant next.
    void remove_reader(const rtps::RTPSReader& reader) const noexcept {
        if (_ends.jumps) {
            _ends.jumps->remove(reader);
        }
    }
    /// A reader of this participant has matched a writer. May be called under the mutex of that reader.
    void note_match() const noexcept {
        if (_ends.jumps) {
            _ends.jumps->note_match();
        }
    }
    /// @return octets of a datagram to another machine at most; 0: as long as a message of Fast DDS.
    std::uint32_t far_datagram() const noexcept { return _ends.far_datagram; }
    /// @return octets of a sample at most.
    std::uint32_t largest_sample() const noexcept { return _ends.largest_sample; }
    DDS_GUID_t guid() const noexcept { return to_guid(_participant->getGuid()); }

    /// Reserves a virtual GUID. @return false if a known endpoint has it.
    bool claim_guid(const DDS_GUID_t& guid);
    void give_back_guid(const DDS_GUID_t& guid) noexcept;
    /// @return a GUID for a reader that Fast DDS does not know of.
    DDS_GUID_t make_guid() noexcept;

    /// Lists an endpoint, and reports incompatible peers to it.
    /// @throws std::bad_alloc
    void add(const std::shared_ptr<Endpoint>& endpoint);
    void remove(const Endpoint& endpoint) noexcept;

    /// @return what is known of an endpoint; null if nothing is.
    std::shared_ptr<const Discovered> find(const rtps::GUID_t& guid) noexcept;
    /// Several endpoints may claim one virtual GUID: a requester, its predecessor that was killed and whose lease has not expired, and
    /// a stranger. None displaces another: what is meant for the GUID goes to each of them.
    /// @return what is known of the writer of a requester of ours, of the latest of those with that GUID; null if there is none.
    std::shared_ptr<const Discovered> find_requester(const DDS_GUID_t& writer_guid) noexcept;
    /// @param fits  gets each of those with that GUID; does not call the domain. @return whether it is true of any.
    template <typename Fits>
    bool has_requester(const DDS_GUID_t& writer_guid, const Fits& fits) noexcept {
        const std::lock_guard<std::mutex> lock(_mutex);
        const auto place = _requesters.find(writer_guid);
        return place != _requesters.end() &&
               std::any_of(place->second.begin(), place->second.end(), [&](const auto& claimant) { return fits(*claimant); });
    }
    /// @return until when to wait for a requester of ours whose lease expired: it may only have been stopped or cut off. 0 if there
    ///         is none.
    /// @param participant  gets the participant of that requester.
    std::int64_t return_deadline_ns(const DDS_GUID_t& writer_guid, DDS_GUID_t& participant) noexcept;
    /// @return our writers whose answers on a topic go to a share of a common reader.
    /// @throws std::bad_alloc
    std::vector<std::shared_ptr<const Discovered>> find_sharing_requesters(const std::string& topic);
    /// @return the enabled and open writer of this participant that has the virtual GUID; null if there is none.
    std::shared_ptr<Endpoint> find_own_writer(const DDS_GUID_t& guid) noexcept;
    /// @return LOST when called on the timer thread (the one that detects expired leases), otherwise DELETED.
    mw::PeerEventKind kind_of_leaving() const noexcept {
        return _event_thread->is_current() ? mw::PeerEventKind::LOST : mw::PeerEventKind::DELETED;
    }
    /// @return the share of a common reader for the answers to a writer of this participant; null if there is none.
    std::shared_ptr<Endpoint> find_share(const DDS_GUID_t& asking) noexcept;
    ReplyReaders& reply_readers() noexcept { return _reply_readers; }

private:
    typedef std::vector<std::shared_ptr<const Discovered>> Claimants;  // in order of their announcement

    struct Loss {
        DDS_GUID_t participant;
        std::int64_t deadline_ns;  // until then it may be back
    };

    void onParticipantDiscovery(rtps::RTPSParticipant* participant, rtps::ParticipantDiscoveryInfo&& info) override;
    void onReaderDiscovery(rtps::RTPSParticipant* participant, rtps::ReaderDiscoveryInfo&& info) override;
    void onWriterDiscovery(rtps::RTPSParticipant* participant, rtps::WriterDiscoveryInfo&& info) override;
    template <typename Data>
    void discover(const Data& data, bool is_writer) noexcept;
    void forget(const rtps::GUID_t& guid) noexcept;
    void watch_addresses() noexcept;
    void on_addresses_changed() noexcept;
    bool claim_locked(const std::shared_ptr<Discovered>& requester);
    void admit_waiting_claimant_locked(const DDS_GUID_t& guid, Claimants& claimants) noexcept;
    void note_loss_locked(const Discovered& requester) noexcept;
    void notify_of_requester_locked(const std::string& topic) noexcept;
    void judge_locked(Endpoint& own, const std::shared_ptr<const Discovered>& other) noexcept;

    const std::int64_t _window;
    const bool _writer_filters;
    const TransportEnds _ends;
    std::uint32_t _domain_id = 0;
    std::unique_ptr<Dispatcher> _dispatcher;
    rtps::RTPSParticipant* _participant = nullptr;
    std::unique_ptr<EventThread> _event_thread;
    std::unique_ptr<AddressWatch::Subscription> _addresses;  // null: not watched
    mutable std::uint64_t _pause = 0;                        // of a removal; guarded by the mutex of all endpoints

    std::mutex _mutex;
    std::unordered_map<DDS_GUID_t, std::shared_ptr<const Discovered>, GuidHash> _directory;
    std::unordered_map<DDS_GUID_t, Claimants, GuidHash> _requesters;  // by their virtual GUIDs
    std::unordered_map<DDS_GUID_t, Loss, GuidHash> _lost_requesters;  // those whose lease expired a short while ago
    std::unordered_set<DDS_GUID_t, GuidHash> _own_guids;              // virtual GUIDs
    bool _has_refused_claimant = false;                               // and logged that
    std::vector<std::shared_ptr<Endpoint>> _own;
    std::atomic<std::int64_t> _requester_count{0};  // of this participant's own
    std::atomic<std::uint32_t> _last_entity{0};     // of the GUIDs made here
    ReplyReaders _reply_readers;
};

}  // namespace fastdds
}  // namespace norvane

#endif
