// SPDX-License-Identifier: Apache-2.0
// A writer on Fast DDS: it encodes samples, sends them or holds them, and bounds what is on the way.
//
// 1. The mutex is that of the RTPS writer, which Fast DDS holds in most callbacks. It guards matched readers, window, pace and held
//    answers. Order: it, then the participant's directory or a sink. Encoding happens outside of it.
// 2. Sequence numbers are those of Fast DDS, which have no gaps.
// 3. What is on the way is bounded by the Window; heartbeats follow the Pace. No thread sleeps with the mutex held.
// 4. A sample that answers one of our requesters is sent when HeldAnswers releases it.
#ifndef NORVANE_ENGINES_FASTDDS_WRITING_WRITER_HPP
#define NORVANE_ENGINES_FASTDDS_WRITING_WRITER_HPP

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <unordered_set>

#include <fastdds/rtps/history/WriterHistory.h>
#include <fastdds/rtps/writer/RTPSWriter.h>
#include <fastdds/rtps/writer/WriterListener.h>
#include <fastrtps/qos/WriterQos.h>
#include <fastdds/rtps/interfaces/IReaderDataFilter.hpp>

#include "engines/fastdds/Endpoint.hpp"
#include "engines/fastdds/discovery/Domain.hpp"
#include "engines/fastdds/writing/AnsweredRequests.hpp"
#include "engines/fastdds/writing/HeldAnswers.hpp"
#include "engines/fastdds/writing/MatchedReaders.hpp"
#include "engines/fastdds/writing/Pace.hpp"
#include "engines/fastdds/writing/Window.hpp"

namespace norvane {
namespace fastdds {

class Writer final : public Endpoint, private rtps::WriterListener, private eprosima::fastdds::rtps::IReaderDataFilter {
public:
    Writer(const std::shared_ptr<Domain>& domain, const mw::WriterSettings& settings);
    ~Writer() override;

    /// Makes the RTPS writer, which is not announced yet. @return OK, or a code; `failure` then has the reason, for the log.
    [[nodiscard]] DDS_ReturnCode_t prepare(const mw::WriterSettings& settings, std::string& failure);

    /// As mw::WriterPort.
    [[nodiscard]] DDS_ReturnCode_t enable(mw::PeerSink& sink) noexcept;
    [[nodiscard]] DDS_ReturnCode_t write(const mw::WriteRequest& request, DDS_SampleIdentity_t& identity, bool& addressed) noexcept;
    mw::WriteCounts counts() noexcept;
    [[nodiscard]] DDS_ReturnCode_t wait_for_acknowledgments(const DDS_Duration_t& max_wait) noexcept;
    void close() noexcept;

    /// Announces that a share of the participant's reply reader takes the answers to this writer. @param answers  null: no longer.
    /// @throws std::bad_alloc
    void advertise_answers(const mw::EndpointInfo* answers);
    /// Announces the writer to peers, if it is not announced yet. @return whether it is. @throws std::bad_alloc
    bool advertise();

    /// @return where the reader of the answers to this writer notes which requests were answered.
    const std::shared_ptr<AnsweredRequests>& answered() const noexcept { return _answered; }

    /// Delivers the samples from a number on to a reader of this process that had no room for them, as many as it accepts now. Fast
    /// DDS does not repeat samples inside a process.
    void redeliver(rtps::RTPSReader& reader, const rtps::SequenceNumber_t& from) noexcept;

    bool is_writer() const noexcept override { return true; }
    bool on_requester_changed(const std::string& topic) noexcept override;
    void announce_soon() noexcept override { _domain->dispatcher().announce(shared_from_this()); }
    std::int64_t run_timer() noexcept override;
    void ask_soon() noexcept override;
    std::uint32_t fragments_of(std::int64_t number) noexcept override;

private:
    typedef std::unique_lock<eprosima::fastrtps::RecursiveTimedMutex> Lock;

    class History final : public rtps::WriterHistory {
    public:
        using rtps::WriterHistory::WriterHistory;
        /// From now on samples that are longer go in fragments of at most so many octets.
        void fragment_above(std::uint32_t octets) noexcept { high_mark_for_frag_ = octets; }
    };

    rtps::CacheChange_t* encode(const void* data);
    [[nodiscard]] DDS_ReturnCode_t write_blocking(const mw::WriteRequest& request, rtps::CacheChange_t*& change,
                                                  DDS_SampleIdentity_t& identity, bool& addressed);
    [[nodiscard]] DDS_ReturnCode_t write_locked(const mw::WriteRequest& request, rtps::CacheChange_t*& change,
                                                DDS_SampleIdentity_t& identity, bool& addressed);
    bool send_locked(rtps::CacheChange_t& change, rtps::WriteParams& params, bool addressed);
    std::int64_t send_held_locked(std::int64_t now_ns) noexcept;
    eprosima::fastdds::dds::WriterQos announced_qos() const;
    bool advertise_locked();
    std::int64_t make_room_locked() noexcept;
    bool has_room_locked() noexcept;
    void sweep_locked() noexcept;
    std::int64_t answered_locked() const noexcept;
    bool is_acknowledged_locked(std::int64_t number) noexcept;
    bool is_all_acknowledged_locked() noexcept;
    void send_heartbeat() noexcept;
    void send_deferred() noexcept;
    void send_first_heartbeat_locked() noexcept;
    void adapt_pace_locked() noexcept;
    void choose_sending_locked() noexcept;
    void note_distance_locked(const rtps::ReaderProxyData* reader, const rtps::GUID_t& guid) noexcept;
    void sleep(std::uint32_t seen, std::int64_t deadline_ns) noexcept;
    void wake_up() noexcept;

    // ---- callbacks of Fast DDS
    void on_reader_discovery(rtps::RTPSWriter* writer, rtps::ReaderDiscoveryInfo::DISCOVERY_STATUS reason,
                             const rtps::GUID_t& reader_guid, const rtps::ReaderProxyData* reader_info) override;
    void onWriterChangeReceivedByAll(rtps::RTPSWriter* writer, rtps::CacheChange_t* change) override;
    bool is_relevant(const rtps::CacheChange_t& change, const rtps::GUID_t& reader_guid) const override;

    const std::shared_ptr<Domain> _domain;
    mw::SamplePool& _pool;
    const std::shared_ptr<std::atomic<std::int64_t>> _last_number;
    const bool _reliable;
    const bool _is_transient_local;
    const bool _keeps_last_only;
    const std::int64_t _history_limit;
    std::unique_ptr<History> _history;
    Window _window;
    Pace _pace;                // its timer is the worker of the participant
    rtps::WriterTimes _times;  // as the QoS has them
    rtps::RTPSWriter* _writer = nullptr;
    std::atomic<bool> _advertises_later{false};        // of a requester, whose reader is created next
    bool _is_advertised = false;                       // guarded by the mutex of all endpoints, as is
    std::unique_ptr<const mw::EndpointInfo> _answers;  // what was announced of the reader of the answers

    std::uint32_t _near_fragment = 0;  // octets, where every reader is on this machine
    std::uint32_t _far_fragment = 0;
    std::unordered_set<DDS_GUID_t, GuidHash> _far_readers;
    std::atomic<bool> _heartbeat_is_due{false};

    MatchedReaders _readers;
    HeldAnswers _held;
    const std::shared_ptr<AnsweredRequests> _answered = std::make_shared<AnsweredRequests>();
    bool _reply_acknowledges = false;  // a reply proves that its request has arrived
    std::int64_t _matched_since = 0;   // the last number before the matched readers changed
    mw::WriteCounts _counts;
    bool _leaves_gap = false;              // the last sample was for no reader
    bool _matched_foreign_reader = false;  // since the last sample
    rtps::CacheChange_t _ack_query;        // asks whether a number is acknowledged
    std::uint32_t _redeliveries = 1;       // Fast DDS itself acknowledges with 1
    platform::FutexWord _changes{0};       // acknowledged, peer gone, closed
    std::atomic<std::uint32_t> _sleepers{0};
};

}  // namespace fastdds
}  // namespace norvane

#endif
