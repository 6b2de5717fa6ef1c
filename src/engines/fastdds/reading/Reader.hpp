// SPDX-License-Identifier: Apache-2.0
// A reader on Fast DDS: it takes samples from the RTPS reader into its sink, and refuses those that the sink has no room for.
//
// 1. The mutex is that of the RTPS reader, which Fast DDS holds in most callbacks. It guards peers and refusals. Order: it, then
//    the participant's directory or a sink.
// 2. A reliable bounded reader asks its sink for room before Fast DDS accepts a sample, and accepts in order only. A refused sample
//    is not acknowledged. One of another process waits in the backlog, or is sent again; a writer of this process is asked for it
//    when there is room.
// 3. A refusal is recorded before the sink is asked: otherwise room that comes in between would go unnoticed.
#ifndef NORVANE_ENGINES_FASTDDS_READING_READER_HPP
#define NORVANE_ENGINES_FASTDDS_READING_READER_HPP

#include <cstdint>
#include <memory>
#include <mutex>
#include <unordered_map>

#include <fastdds/rtps/history/ReaderHistory.h>
#include <fastdds/rtps/reader/RTPSReader.h>
#include <fastdds/rtps/reader/ReaderListener.h>
#include <fastdds/rtps/interfaces/IReaderDataFilter.hpp>

#include "engines/fastdds/Endpoint.hpp"
#include "engines/fastdds/discovery/Domain.hpp"
#include "engines/fastdds/discovery/MatchedWriters.hpp"
#include "engines/fastdds/reading/Backlog.hpp"
#include "engines/fastdds/reading/SampleIntake.hpp"

namespace norvane {
namespace fastdds {

class Reader final : public Endpoint, private rtps::ReaderListener, private eprosima::fastdds::rtps::IReaderDataFilter {
public:
    Reader(const std::shared_ptr<Domain>& domain, const mw::ReaderSettings& settings);
    ~Reader() override;

    /// Makes the RTPS reader, which is not announced yet. @return OK, or a code; `failure` then has the reason, for the log.
    [[nodiscard]] DDS_ReturnCode_t prepare(const mw::ReaderSettings& settings, std::string& failure);

    /// As mw::ReaderPort.
    [[nodiscard]] DDS_ReturnCode_t enable(mw::SampleSink& sink) noexcept;
    void room_freed() noexcept;
    void close() noexcept;

    bool is_writer() const noexcept override { return false; }
    void announce_soon() noexcept override { _domain->dispatcher().announce(shared_from_this()); }
    /// Asks writers of this process for what was refused.
    std::int64_t run_timer() noexcept override;

private:
    typedef std::unique_lock<eprosima::fastrtps::RecursiveTimedMutex> Lock;

    // Fast DDS keeps a sample here from acceptance to delivery.
    class History final : public rtps::ReaderHistory {
    public:
        explicit History(Reader& reader);
        bool can_change_be_added_nts(const rtps::GUID_t& writer_guid, std::uint32_t payload_size, std::size_t missing_before,
                                     bool& will_never_be_accepted) const override;
        using rtps::ReaderHistory::completed_change;
        using rtps::ReaderHistory::received_change;
        bool received_change(rtps::CacheChange_t* change, std::size_t missing_before,
                             eprosima::fastdds::dds::SampleRejectedStatusKind& reason) override;
        bool completed_change(rtps::CacheChange_t* change, std::size_t missing_before,
                              eprosima::fastdds::dds::SampleRejectedStatusKind& reason) override;

    private:
        Reader& _reader;
    };

    // What the sink answered about the last sample.
    struct AdmissionQuery {
        rtps::GUID_t writer;
        rtps::SequenceNumber_t number;
        mw::Admission answer;
        bool open = false;
        mw::SampleReference sample;  // decoded if the answer depends on its content
    };

    bool is_in_order_only() const noexcept { return _bounded && _reliable; }
    void keep_locked(const rtps::CacheChange_t& change) noexcept;
    void take_backlog_locked(const DDS_GUID_t& writer) noexcept;
    bool passes_locked(const rtps::CacheChange_t& change);
    mw::Admission query_admission_locked(const rtps::CacheChange_t& change);
    bool is_queried_locked(const rtps::CacheChange_t& change) const noexcept;
    void deliver_locked(const rtps::CacheChange_t& change);

    // ---- callbacks of Fast DDS
    void onNewCacheChangeAdded(rtps::RTPSReader* reader, const rtps::CacheChange_t* change) override;
    void on_writer_discovery(rtps::RTPSReader* reader, rtps::WriterDiscoveryInfo::DISCOVERY_STATUS reason,
                             const rtps::GUID_t& writer_guid, const rtps::WriterProxyData* writer_info) override;
    bool is_relevant(const rtps::CacheChange_t& change, const rtps::GUID_t& reader_guid) const override;

    const std::shared_ptr<Domain> _domain;
    SampleIntake _intake;
    const bool _reliable;
    const bool _is_transient_local;
    const bool _bounded;
    const bool _looks_inside;  // its filter is on the data
    const bool _routed;
    const DDS_GUID_t _route;
    History _history;
    rtps::RTPSReader* _reader = nullptr;

    MatchedWriters _matches;
    std::unordered_map<DDS_GUID_t, rtps::SequenceNumber_t, GuidHash> _refused;  // the first refused number of each writer
    Backlog _backlog;                                                           // what was refused after that
    std::size_t _missing_before = 0;                                            // the sample that Fast DDS is just taking in
    AdmissionQuery _query;
};

}  // namespace fastdds
}  // namespace norvane

#endif
