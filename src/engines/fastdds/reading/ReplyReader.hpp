// SPDX-License-Identifier: Apache-2.0
// A reader on Fast DDS that the requesters of one participant share: it hands each answer to the requester that asked. So a replier
// has one reader for all of them, which is discovered once, and each answer is matched once.
//
// 1. The mutex is that of the RTPS reader, which Fast DDS holds in its callbacks. It guards routes and matched writers. Order: it,
//    then the participant's directory or a sink.
// 2. It takes every answer that a requester of the participant waits for. These requesters have no bound, so none of them stops
//    another.
#ifndef NORVANE_ENGINES_FASTDDS_READING_REPLYREADER_HPP
#define NORVANE_ENGINES_FASTDDS_READING_REPLYREADER_HPP

#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>

#include <fastdds/rtps/history/ReaderHistory.h>
#include <fastdds/rtps/reader/RTPSReader.h>
#include <fastdds/rtps/reader/ReaderListener.h>
#include <fastdds/rtps/interfaces/IReaderDataFilter.hpp>

#include "engines/fastdds/discovery/Domain.hpp"
#include "engines/fastdds/discovery/MatchedWriters.hpp"

namespace norvane {
namespace fastdds {

class ReplyRoute;

class ReplyReader final : private rtps::ReaderListener, private eprosima::fastdds::rtps::IReaderDataFilter {
public:
    ReplyReader(const std::shared_ptr<Domain>& domain, const mw::EndpointInfo& info);
    /// Removes the RTPS reader. Every route has been removed.
    ~ReplyReader() override;

    /// Makes the RTPS reader, which is not announced yet. @return false if Fast DDS refuses; `failure` has the reason.
    [[nodiscard]] bool prepare(const DDS_DataReaderQos& qos, std::string& failure);

    /// Begins to serve a requester, and reports the writers matched so far to it. The first one makes the reader announced.
    /// @return OK; ERROR if Fast DDS refuses.
    /// @throws std::bad_alloc
    [[nodiscard]] DDS_ReturnCode_t add(ReplyRoute& route);
    /// When it returns, no upcall of the route runs or will run.
    void remove(const ReplyRoute& route) noexcept;

private:
    typedef std::unique_lock<eprosima::fastrtps::RecursiveTimedMutex> Lock;

    void deliver_locked(const rtps::CacheChange_t& change);

    // ---- callbacks of Fast DDS
    void onNewCacheChangeAdded(rtps::RTPSReader* reader, const rtps::CacheChange_t* change) override;
    void on_writer_discovery(rtps::RTPSReader* reader, rtps::WriterDiscoveryInfo::DISCOVERY_STATUS reason,
                             const rtps::GUID_t& writer_guid, const rtps::WriterProxyData* writer_info) override;
    bool is_relevant(const rtps::CacheChange_t& change, const rtps::GUID_t& reader_guid) const override;

    const std::shared_ptr<Domain> _domain;
    mw::EndpointInfo _info;
    rtps::ReaderHistory _history;
    rtps::RTPSReader* _reader = nullptr;
    bool _is_advertised = false;  // guarded by the mutex of all endpoints

    MatchedWriters _matches;
    std::unordered_multimap<DDS_GUID_t, ReplyRoute*, GuidHash> _routes;  // by the writer whose answers they take
};

}  // namespace fastdds
}  // namespace norvane

#endif
