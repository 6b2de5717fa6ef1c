// SPDX-License-Identifier: Apache-2.0
#include "engines/fastdds/reading/Reader.hpp"

#include <exception>
#include <utility>
#include <vector>

#include <fastdds/rtps/RTPSDomain.h>
#include <fastrtps/attributes/TopicAttributes.h>
#include <fastrtps/qos/ReaderQos.h>

#include "engines/fastdds/PayloadPool.hpp"
#include "engines/fastdds/attributes.hpp"
#include "engines/fastdds/discovery/LocalWriters.hpp"
#include "engines/fastdds/writing/Writer.hpp"
#include "platform/Clock.hpp"

namespace norvane {
namespace fastdds {

namespace dds = eprosima::fastdds::dds;

// ---- history ------------------------------------------------------------------------------------------------------

Reader::History::History(Reader& reader) : rtps::ReaderHistory(history_attributes()), _reader(reader) {}

bool Reader::History::can_change_be_added_nts(const rtps::GUID_t& writer_guid, std::uint32_t payload_size,
                                              std::size_t missing_before, bool& /*will_never_be_accepted*/) const {
    _reader._missing_before = missing_before;
    if (!_reader.is_in_order_only() || missing_before == 0) {
        return true;
    }
    if (!writer_guid.is_on_same_process_as(_reader._reader->getGuid())) {
        return _reader._refused.count(to_guid(writer_guid)) != 0 &&
               _reader._backlog.has_room_for(to_guid(writer_guid), payload_size);
    }
    // Fast DDS does not send it again. Earlier ones are being delivered by another thread, were refused, or are for other readers.
    try {
        _reader._refused[to_guid(writer_guid)] = rtps::SequenceNumber_t(0, 1);
    } catch (const std::exception&) {
        return true;  // better out of order than never
    }
    _reader._domain->dispatcher().start_timer(_reader.shared_from_this(), platform::monotonic_ns());
    return false;
}

bool Reader::History::received_change(rtps::CacheChange_t* change, std::size_t missing_before,
                                      dds::SampleRejectedStatusKind& reason) {
    reason = dds::NOT_REJECTED;
    // A sample in fragments is asked about when it is complete.
    const bool is_whole = change->getFragmentCount() == 0;
    const bool is_early = is_whole && missing_before != 0 && _reader.is_in_order_only();
    if (is_early ||
        (is_whole && _reader._bounded && _reader.is_queried_locked(*change) && _reader._query.answer == mw::Admission::FULL)) {
        _reader.keep_locked(*change);
        return false;
    }
    return rtps::ReaderHistory::received_change(change, missing_before);
}

bool Reader::History::completed_change(rtps::CacheChange_t* change, std::size_t missing_before,
                                       dds::SampleRejectedStatusKind& reason) {
    reason = dds::NOT_REJECTED;
    const bool is_early = missing_before != 0 && _reader.is_in_order_only();
    if (is_early ||
        (_reader._bounded && _reader.passes_locked(*change) && _reader.query_admission_locked(*change) == mw::Admission::FULL)) {
        _reader.keep_locked(*change);
        return false;
    }
    return true;
}

// ---- life ---------------------------------------------------------------------------------------------------------

Reader::Reader(const std::shared_ptr<Domain>& domain, const mw::ReaderSettings& settings)
    : Endpoint(settings.info),
      _domain(domain),
      _intake(*this, *settings.pool),
      _reliable(settings.qos->reliability.kind == DDS_RELIABLE_RELIABILITY_QOS),
      _is_transient_local(settings.qos->durability.kind == DDS_TRANSIENT_LOCAL_DURABILITY_QOS),
      _bounded(settings.qos->resource_limits.max_samples != DDS_LENGTH_UNLIMITED),
      _looks_inside(!settings.routed && !settings.filter_expression.empty()),
      _routed(settings.routed),
      _route(settings.route),
      _history(*this),
      _matches(*domain, _info) {}

Reader::~Reader() { close(); }

DDS_ReturnCode_t Reader::prepare(const mw::ReaderSettings& settings, std::string& failure) {
    rtps::ReaderAttributes attributes = reader_attributes(settings.info.topic_name, *settings.qos);
    const std::lock_guard<std::mutex> lock(Domain::endpoints_mutex());
    _reader = rtps::RTPSDomain::createRTPSReader(&_domain->participant(), attributes, PayloadPool::get(), &_history, this);
    if (_reader == nullptr) {
        failure = "Fast DDS makes no reader";
        return DDS_RETCODE_ERROR;
    }
    _info.participant_guid = _domain->guid();
    if (_info.guid == DDS_GUID_AUTO) {
        _info.guid = to_guid(_reader->getGuid());
    }
    if (_routed && _info.partner_guid == DDS_GUID_UNKNOWN) {
        _info.partner_guid = _route;
    }
    _reader->set_content_filter(this);
    _domain->add_reader(*_reader, _history);
    return DDS_RETCODE_OK;
}

DDS_ReturnCode_t Reader::enable(mw::SampleSink& sink) noexcept {
    _intake.attach(sink);
    attach(sink);
    try {
        _domain->add(shared_from_this());
        dds::ReaderQos qos;
        qos.m_reliability.kind = _reliable ? dds::RELIABLE_RELIABILITY_QOS : dds::BEST_EFFORT_RELIABILITY_QOS;
        qos.m_durability.kind = _is_transient_local ? dds::TRANSIENT_LOCAL_DURABILITY_QOS : dds::VOLATILE_DURABILITY_QOS;
        qos.m_userData.setValue(announce_reader(_info, _routed ? Routing::OWN : Routing::NONE, _route));
        qos.data_sharing.off();
        bool registered = false;
        {
            const std::lock_guard<std::mutex> endpoints_lock(Domain::endpoints_mutex());
            registered = _domain->participant().registerReader(_reader, topic_attributes(_info.topic_name, _info.type_name), qos);
        }
        const std::shared_ptr<Endpoint> writer = registered && _routed ? _domain->find_own_writer(_route) : nullptr;
        if (writer) {
            std::static_pointer_cast<Writer>(writer)->advertise();
        }
        return registered ? DDS_RETCODE_OK : DDS_RETCODE_ERROR;
    } catch (const std::exception&) {
        return DDS_RETCODE_OUT_OF_RESOURCES;
    }
}

void Reader::close() noexcept {
    const std::lock_guard<std::mutex> turn(_close_mutex);
    if (!begin_to_close()) {
        return;
    }
    _calls.shut();
    _calls.wait_until_empty();
    wait_until_quiet();
    _domain->remove(*this);
    _domain->give_back_guid(_info.guid);
    if (_reader != nullptr) {
        _domain->remove_reader(*_reader);
        const Domain::Removal removal(*_domain);
        rtps::RTPSDomain::removeRTPSReader(_reader);
    }
}

// ---- room ---------------------------------------------------------------------------------------------------------

void Reader::room_freed() noexcept {
    const Call call(_calls);
    if (!call.may_run()) {
        return;
    }
    std::unordered_map<DDS_GUID_t, rtps::SequenceNumber_t, GuidHash> refused;
    {
        const Lock lock(_reader->getMutex());
        refused.swap(_refused);
        for (const auto& entry : refused) {
            take_backlog_locked(entry.first);
        }
    }
    for (const auto& entry : refused) {
        const std::shared_ptr<Endpoint> writer = LocalWriters::get().find(entry.first);
        if (writer) {
            std::static_pointer_cast<Writer>(writer)->redeliver(*_reader, entry.second);
        }
    }
}

std::int64_t Reader::run_timer() noexcept {
    room_freed();
    return platform::NO_DEADLINE;
}

// Only behind a refusal: what follows a sample that was lost on the wire is sent again together with it.
void Reader::keep_locked(const rtps::CacheChange_t& change) noexcept {
    if (_reliable && _refused.count(to_guid(change.writerGUID)) != 0 &&
        !change.writerGUID.is_on_same_process_as(_reader->getGuid())) {
        _backlog.keep(change);
    }
}

// As if it came from the wire: Fast DDS accepts what has come in its turn, and passes over what it has by now.
void Reader::take_backlog_locked(const DDS_GUID_t& writer) noexcept {
    _backlog.hand_out(writer, [this](rtps::CacheChange_t& change) { return _reader->processDataMsg(&change); });
    if (_refused.count(writer) == 0) {
        _backlog.forget(writer);
    }
}

// ---- samples ------------------------------------------------------------------------------------------------------

// Decides about samples that need no room.
bool Reader::passes_locked(const rtps::CacheChange_t& change) {
    const MatchedWriters::Match* const match = _matches.find(change.writerGUID);
    if (change.kind != rtps::ALIVE || (match != nullptr && !match->fits)) {
        return false;
    }
    return !_routed || answered_writer(change) == _route;
}

bool Reader::is_queried_locked(const rtps::CacheChange_t& change) const noexcept {
    return _query.open && _query.writer == change.writerGUID && _query.number == change.sequenceNumber;
}

mw::Admission Reader::query_admission_locked(const rtps::CacheChange_t& change) {
    if (_query.open && _query.answer == mw::Admission::SLOT) {
        _intake.sink().abandon();  // Fast DDS had no memory for it
    }
    const auto refused = _refused.emplace(to_guid(change.writerGUID), change.sequenceNumber);
    const mw::SampleMetadata metadata = _matches.metadata_of(change);
    _query.writer = change.writerGUID;
    _query.number = change.sequenceNumber;
    _query.open = true;
    _query.sample.reset();
    const void* data = nullptr;
    if (_looks_inside) {
        // A sample that the filter rejects must not wait for room.
        _query.sample = _intake.decode(change.serializedPayload.data, change.serializedPayload.length);
        data = _query.sample ? _query.sample->data : nullptr;
    }
    _query.answer = _looks_inside && data == nullptr ? mw::Admission::NO_MEMORY : _intake.sink().admit(metadata, data);
    if (_query.answer == mw::Admission::FULL && !_reliable) {
        _query.answer = mw::Admission::UNWANTED;
        _intake.count_loss();
    } else if (_query.answer == mw::Admission::NO_MEMORY) {
        // It would not be asked about again: one sample counted as lost is better than a writer that stops.
        _query.answer = mw::Admission::UNWANTED;
        _intake.count_loss();
    }
    if (_query.answer != mw::Admission::FULL && refused.second) {
        _refused.erase(to_guid(change.writerGUID));
    }
    return _query.answer;
}

bool Reader::is_relevant(const rtps::CacheChange_t& change, const rtps::GUID_t& /*reader_guid*/) const {
    Reader& self = const_cast<Reader&>(*this);  // Fast DDS holds the mutex
    try {
        if (!self.passes_locked(change)) {
            return false;
        }
        if (!_bounded) {
            return true;
        }
        if (_missing_before != 0 && is_in_order_only()) {
            return true;  // not its turn: it is refused, and looked at again then
        }
        const mw::Admission answer =
            is_queried_locked(change) && _query.answer != mw::Admission::FULL ? _query.answer : self.query_admission_locked(change);
        return answer == mw::Admission::SLOT || answer == mw::Admission::FULL;
    } catch (const std::exception&) {
        return true;  // memory is short: decided later
    }
}

void Reader::onNewCacheChangeAdded(rtps::RTPSReader* /*reader*/, const rtps::CacheChange_t* change) {
    try {
        deliver_locked(*change);
    } catch (const std::exception&) {
        _intake.count_loss();
    }
    _history.remove_change(const_cast<rtps::CacheChange_t*>(change));
}

void Reader::deliver_locked(const rtps::CacheChange_t& change) {
    const mw::SampleMetadata metadata = _matches.metadata_of(change);
    mw::Admission admission = mw::Admission::SLOT;
    mw::SampleReference sample;
    if (is_queried_locked(change) && _query.answer == mw::Admission::SLOT) {
        _query.open = false;
        sample = std::move(_query.sample);
    } else {
        admission = passes_locked(change) ? _intake.sink().admit(metadata, nullptr) : mw::Admission::FILTERED;
    }
    if (admission == mw::Admission::FULL || admission == mw::Admission::NO_MEMORY) {
        _intake.count_loss();
    }
    if (admission != mw::Admission::SLOT) {
        return;
    }
    if (!sample) {
        sample = _intake.decode(change.serializedPayload.data, change.serializedPayload.length);
    }
    _intake.store(std::move(sample), metadata);
}

// ---- peers --------------------------------------------------------------------------------------------------------

void Reader::on_writer_discovery(rtps::RTPSReader* /*reader*/, rtps::WriterDiscoveryInfo::DISCOVERY_STATUS reason,
                                 const rtps::GUID_t& writer_guid, const rtps::WriterProxyData* /*writer_info*/) {
    const Lock lock(_reader->getMutex());
    if (reason == rtps::WriterDiscoveryInfo::REMOVED_WRITER) {
        _refused.erase(to_guid(writer_guid));
        _backlog.forget(to_guid(writer_guid));
    }
    const mw::PeerEvent event = _matches.report(reason, writer_guid);
    if (event.peer) {
        note(event);
    }
}

}  // namespace fastdds
}  // namespace norvane
