// SPDX-License-Identifier: Apache-2.0
#include "engines/fastdds/reading/ReplyReader.hpp"

#include <algorithm>
#include <exception>
#include <utility>

#include <fastdds/rtps/RTPSDomain.h>
#include <fastrtps/attributes/TopicAttributes.h>
#include <fastrtps/qos/ReaderQos.h>

#include "engines/fastdds/PayloadPool.hpp"
#include "engines/fastdds/attributes.hpp"
#include "engines/fastdds/reading/ReplyRoute.hpp"

namespace norvane {
namespace fastdds {

namespace dds = eprosima::fastdds::dds;

namespace {

// The reader is announced, not the requesters that share it.
mw::EndpointInfo shared_info(const mw::EndpointInfo& of_one, const Domain& domain) {
    mw::EndpointInfo info;
    info.participant_guid = domain.guid();
    info.topic_name = of_one.topic_name;
    info.type_name = of_one.type_name;
    info.type_hash = of_one.type_hash;
    info.reliability = of_one.reliability;
    info.durability = of_one.durability;
    info.role_name = of_one.role_name;
    return info;
}

}  // namespace

ReplyReader::ReplyReader(const std::shared_ptr<Domain>& domain, const mw::EndpointInfo& info)
    : _domain(domain), _info(shared_info(info, *domain)), _history(history_attributes()), _matches(*domain, _info) {}

ReplyReader::~ReplyReader() {
    if (_reader != nullptr) {
        _domain->remove_reader(*_reader);
        const Domain::Removal removal(*_domain);
        rtps::RTPSDomain::removeRTPSReader(_reader);
    }
}

bool ReplyReader::prepare(const DDS_DataReaderQos& qos, std::string& failure) {
    rtps::ReaderAttributes attributes = reader_attributes(_info.topic_name, qos);
    const std::lock_guard<std::mutex> lock(Domain::endpoints_mutex());
    _reader = rtps::RTPSDomain::createRTPSReader(&_domain->participant(), attributes, PayloadPool::get(), &_history, this);
    if (_reader == nullptr) {
        failure = "Fast DDS makes no reader";
        return false;
    }
    _info.guid = to_guid(_reader->getGuid());
    _reader->set_content_filter(this);
    _domain->add_reader(*_reader, _history);
    return true;
}

DDS_ReturnCode_t ReplyReader::add(ReplyRoute& route) {
    {
        const Lock lock(_reader->getMutex());
        _routes.emplace(route.writer(), &route);
        _matches.for_each_confirmed([&](const std::shared_ptr<const Discovered>& peer) {
            route.note({mw::PeerEventKind::MATCHED, info_of(peer)});
        });
    }
    const std::lock_guard<std::mutex> lock(Domain::endpoints_mutex());
    if (!_is_advertised) {
        dds::ReaderQos qos;
        qos.m_reliability.kind = dds::RELIABLE_RELIABILITY_QOS;
        qos.m_durability.kind = dds::VOLATILE_DURABILITY_QOS;
        qos.m_userData.setValue(announce_reader(_info, Routing::SHARED));
        qos.data_sharing.off();
        _is_advertised = _domain->participant().registerReader(_reader, topic_attributes(_info.topic_name, _info.type_name), qos);
    }
    return _is_advertised ? DDS_RETCODE_OK : DDS_RETCODE_ERROR;
}

void ReplyReader::remove(const ReplyRoute& route) noexcept {
    const Lock lock(_reader->getMutex());
    const auto range = _routes.equal_range(route.writer());
    const auto place = std::find_if(range.first, range.second, [&](const auto& entry) { return entry.second == &route; });
    if (place != range.second) {
        _routes.erase(place);
    }
}

// ---- callbacks of Fast DDS ----------------------------------------------------------------------------------------

void ReplyReader::deliver_locked(const rtps::CacheChange_t& change) {
    const mw::SampleMetadata metadata = _matches.metadata_of(change);
    const auto range = _routes.equal_range(metadata.related_identity.writer_guid);
    for (auto place = range.first; place != range.second; ++place) {
        place->second->deliver(change.writerGUID, metadata, change.serializedPayload.data, change.serializedPayload.length);
    }
}

void ReplyReader::onNewCacheChangeAdded(rtps::RTPSReader* /*reader*/, const rtps::CacheChange_t* change) {
    try {
        deliver_locked(*change);
    } catch (const std::exception&) {
        for (const auto& entry : _routes) {
            entry.second->count_loss();  // its requester is not known
        }
    }
    _history.remove_change(const_cast<rtps::CacheChange_t*>(change));
}

void ReplyReader::on_writer_discovery(rtps::RTPSReader* /*reader*/, rtps::WriterDiscoveryInfo::DISCOVERY_STATUS reason,
                                      const rtps::GUID_t& writer_guid, const rtps::WriterProxyData* /*writer_info*/) {
    const Lock lock(_reader->getMutex());
    const mw::PeerEvent event = _matches.report(reason, writer_guid);
    if (event.peer) {
        for (const auto& entry : _routes) {
            entry.second->note(event);
        }
    }
}

bool ReplyReader::is_relevant(const rtps::CacheChange_t& change, const rtps::GUID_t& /*reader_guid*/) const {
    // Fast DDS holds the mutex.
    ReplyReader& self = const_cast<ReplyReader&>(*this);
    try {
        const MatchedWriters::Match* const match = self._matches.find(change.writerGUID);
        return change.kind == rtps::ALIVE && (match == nullptr || match->fits) && _routes.count(answered_writer(change)) != 0;
    } catch (const std::exception&) {
        return true;  // memory is short: decided later
    }
}

}  // namespace fastdds
}  // namespace norvane
