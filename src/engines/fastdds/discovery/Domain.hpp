// SPDX-License-Identifier: Apache-2.0
// One participant of Fast DDS: whom it has discovered, which endpoints are its own, and its threads.
//
// 1. Fast DDS tells of every endpoint, those of this participant included, before it matches any. The directory is kept from that.
// 2. The directory's mutex is taken under locks of Fast DDS: it is never held while Fast DDS is called. Sinks are told of misfits under it.
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
#include "engines/fastdds/transport/UdpTransport.hpp"

namespace norvane {
namespace fastdds {

class Domain : private rtps::RTPSParticipantListener {
public:
    /// @param window  samples that a writer without a bound of its own has on the way at most.
    /// @param boxes   of its participant's transport.
    Domain(std::int64_t window, bool writer_filters, TransportEnds ends) noexcept
        : _window(window), _writer_filters(writer_filters), _ends(std::move(ends)) {}
    ~Domain() override;

    /// Joins. @return false when Fast DDS refuses.
    /// @throws std::exception  no thread, or no memory.
    bool join(std::uint32_t domain_id, const rtps::RTPSParticipantAttributes& attributes);

    /// Leaves: ends the threads and the participant. Every endpoint is closed. Endpoints hold the domain, and the threads hold endpoints: so
    /// this is not left to the destructor.
    void leave() noexcept;

    /// Held while Fast DDS makes, registers or removes an endpoint, of whichever participant of the process: where that happens on several
    /// threads at once, it pairs endpoints that are being destroyed. Above all locks of Fast DDS; no callback takes it.
    static std::mutex& endpoints_mutex() noexcept;

    /// Held instead while one is removed: the participants of this process are told of that on the calling thread, so their timer threads stand
    /// still meanwhile (EventThread).
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
    /// @return how many writers of this participant are those of requesters.
    std::int64_t requester_count() const noexcept { return _requester_count.load(std::memory_order_relaxed); }
    std::int64_t window() const noexcept { return _window; }
    bool writer_filters() const noexcept { return _writer_filters; }
    /// @return null when what is sent never waits.
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
    /// @return octets of a datagram to another machine at most; 0: as long as a message of Fast DDS.
    std::uint32_t far_datagram() const noexcept { return _ends.far_datagram; }
    DDS_GUID_t guid() const noexcept { return to_guid(_participant->getGuid()); }

    /// Reserves a virtual GUID. @return false when an endpoint has it, as far as is known.
    bool claim_guid(const DDS_GUID_t& guid);
    void give_back_guid(const DDS_GUID_t& guid) noexcept;
    /// @return a GUID for a reader that Fast DDS knows nothing of.
    DDS_GUID_t make_guid() noexcept;

    /// Lists an endpoint, and tells it of those that do not fit it.
    /// @throws std::bad_alloc
    void add(const std::shared_ptr<Endpoint>& endpoint);
    void remove(const Endpoint& endpoint) noexcept;

    /// @return what is known of an endpoint; null when nothing is.
    std::shared_ptr<const Discovered> find(const rtps::GUID_t& guid) noexcept;
    /// @return what is known of a writer of ours that asks, and expects answers; null when the GUID is that of no such writer.
    std::shared_ptr<const Discovered> find_requester(const DDS_GUID_t& writer_guid) noexcept;
    /// @return until when to wait for a requester of ours that was lost, and may be back: it was only stopped, or cut off. 0 when there is no such.
    /// @param participant  gets the one that it was of.
    std::int64_t return_deadline_ns(const DDS_GUID_t& writer_guid, DDS_GUID_t& participant) noexcept;
    /// @return the writers of ours whose answers on a topic go to a part of a shared reader.
    /// @throws std::bad_alloc
    std::vector<std::shared_ptr<const Discovered>> find_sharing_requesters(const std::string& topic);
    /// @return the writer of this participant, enabled and not closed, that has the virtual GUID; null when there is none.
    std::shared_ptr<Endpoint> find_own_writer(const DDS_GUID_t& guid) noexcept;
    /// @return how a peer has left of which Fast DDS tells on the calling thread that it is gone: one thread finds leases expired.
    mw::PeerEventKind kind_of_leaving() const noexcept {
        return _event_thread->is_current() ? mw::PeerEventKind::LOST : mw::PeerEventKind::DELETED;
    }
    /// @return the part of a shared reader that gets the answers to a writer of this participant; null when there is none.
    std::shared_ptr<Endpoint> find_share(const DDS_GUID_t& asking) noexcept;
    ReplyReaders& reply_readers() noexcept { return _reply_readers; }

private:
    struct Loss {
        DDS_GUID_t participant;
        std::int64_t deadline_ns;  // until which it may be back
    };

    void onReaderDiscovery(rtps::RTPSParticipant* participant, rtps::ReaderDiscoveryInfo&& info) override;
    void onWriterDiscovery(rtps::RTPSParticipant* participant, rtps::WriterDiscoveryInfo&& info) override;
    template <typename Data>
    void discover(const Data& data, bool is_writer) noexcept;
    void forget(const rtps::GUID_t& guid) noexcept;
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
    mutable std::uint64_t _pause = 0;  // of a removal. Guarded by the mutex of all endpoints

    std::mutex _mutex;
    std::unordered_map<DDS_GUID_t, std::shared_ptr<const Discovered>, GuidHash> _directory;
    std::unordered_map<DDS_GUID_t, std::shared_ptr<const Discovered>, GuidHash> _requesters;  // by their virtual GUIDs
    std::unordered_map<DDS_GUID_t, Loss, GuidHash> _lost_requesters;                          // the same, not long ago
    std::unordered_set<DDS_GUID_t, GuidHash> _own_guids;                                      // virtual GUIDs
    std::vector<std::shared_ptr<Endpoint>> _own;
    std::atomic<std::int64_t> _requester_count{0};  // of this participant's own
    std::atomic<std::uint32_t> _last_entity{0};     // of the GUIDs made here
    ReplyReaders _reply_readers;
};

}  // namespace fastdds
}  // namespace norvane

#endif
