// SPDX-License-Identifier: Apache-2.0
#include "engines/fastdds/writing/Writer.hpp"

#include <algorithm>
#include <exception>
#include <limits>

#include <fastdds/rtps/RTPSDomain.h>
#include <fastdds/rtps/builtin/data/ReaderProxyData.h>
#include <fastdds/rtps/reader/RTPSReader.h>
#include <fastdds/rtps/writer/StatefulWriter.h>
#include <fastrtps/attributes/TopicAttributes.h>

#include "engines/fastdds/PayloadPool.hpp"
#include "engines/fastdds/attributes.hpp"
#include "engines/fastdds/discovery/LocalWriters.hpp"
#include "middleware/Log.hpp"
#include "middleware/clock.hpp"
#include "platform/Clock.hpp"

namespace norvane {
namespace fastdds {

namespace {

namespace dds = eprosima::fastdds::dds;

// Fast DDS does not report every acknowledgement: threads that wait for one look themselves at this interval.
constexpr std::int64_t LOOK_AGAIN_NS = 2 * 1000 * 1000;
constexpr std::int64_t RETRY_NS = 5 * 1000 * 1000;
// The reader of a requester is usually created right after its writer; on a busy machine some ten milliseconds later.
constexpr std::int64_t ADVERTISING_DELAY_NS = 100 * 1000 * 1000;
// The timer thread of Fast DDS drops a timer that is due in more than a day. Each running timer slows it down at every other one,
// by a comparison under a mutex: with the timers of a thousand writers it does nothing else.
constexpr std::int64_t NEVER_NS = 30LL * 24 * 3600 * 1000 * 1000 * 1000;

eprosima::fastrtps::Duration_t to_duration(std::int64_t ns) {
    return eprosima::fastrtps::Duration_t(static_cast<std::int32_t>(ns / 1000000000), static_cast<std::uint32_t>(ns % 1000000000));
}

rtps::SequenceNumber_t to_rtps_number(std::int64_t number) noexcept {
    return rtps::SequenceNumber_t(static_cast<std::int32_t>(number >> 32), static_cast<std::uint32_t>(number));
}

std::int64_t limit_of(const DDS_DataWriterQos& qos) noexcept {
    std::int64_t limit = std::numeric_limits<std::int64_t>::max();
    if (qos.resource_limits.max_samples != DDS_LENGTH_UNLIMITED) {
        limit = qos.resource_limits.max_samples;
    }
    if (qos.history.kind == DDS_KEEP_LAST_HISTORY_QOS && qos.durability.kind != DDS_VOLATILE_DURABILITY_QOS) {
        limit = std::min<std::int64_t>(limit, qos.history.depth);
    }
    return limit;
}

}  // namespace

Writer::Writer(const std::shared_ptr<Domain>& domain, const mw::WriterSettings& settings)
    : Endpoint(settings.info),
      _domain(domain),
      _pool(*settings.pool),
      _last_number(settings.last_number),
      _reliable(settings.qos->reliability.kind == DDS_RELIABLE_RELIABILITY_QOS),
      _is_transient_local(settings.qos->durability.kind == DDS_TRANSIENT_LOCAL_DURABILITY_QOS),
      _keeps_last_only(settings.qos->history.kind == DDS_KEEP_LAST_HISTORY_QOS),
      _history_limit(limit_of(*settings.qos)),
      _history(std::make_unique<History>(history_attributes())),
      _window(std::min(_is_transient_local ? std::numeric_limits<std::int64_t>::max() : _history_limit, domain->window())),
      _pace(_reliable && !_is_transient_local),
      _readers(*domain, *this, settings.qos->writer_resource_limits.max_remote_reader_filters),
      _held(*domain, _readers, settings.qos->reliability.max_blocking_time, _window.most() / 2) {}

Writer::~Writer() { close(); }

DDS_ReturnCode_t Writer::prepare(const mw::WriterSettings& settings, std::string& failure) {
    rtps::WriterAttributes attributes = writer_attributes(settings.info.topic_name, *settings.qos);
    _times = attributes.times;
    if (_pace.drives_heartbeats()) {
        attributes.times.heartbeatPeriod = to_duration(NEVER_NS);
        attributes.times.nackSupressionDuration = to_duration(NEVER_NS);
    }
    // A writer with a GUID chosen by the application may receive late answers meant for its predecessor of the same GUID.
    _reply_acknowledges = _pace.drives_heartbeats() && is_requester(settings.info) && settings.info.guid == DDS_GUID_AUTO;
    // Otherwise Fast DDS adds a heartbeat to each sample that follows one removed without an acknowledgement.
    attributes.disable_heartbeat_piggyback = _reply_acknowledges;
    _pace.start(_times.heartbeatPeriod.to_ns(), _times.nackSupressionDuration.to_ns(), _reply_acknowledges);
    const std::lock_guard<std::mutex> lock(Domain::endpoints_mutex());
    _writer = rtps::RTPSDomain::createRTPSWriter(&_domain->participant(), attributes, PayloadPool::get(), _history.get(), this);
    if (_writer == nullptr) {
        failure = "Fast DDS makes no writer";
        return DDS_RETCODE_ERROR;
    }
    _ack_query.writerGUID = _writer->getGuid();
    _near_fragment = _far_fragment = _writer->getMaxDataSize();
    const std::uint32_t message = _domain->participant().getMaxMessageSize();
    if (_domain->far_datagram() != 0 && _domain->far_datagram() < message) {
        // What Fast DDS keeps free in a message is kept free in a datagram. Fragments begin at multiples of 4.
        _far_fragment = (_domain->far_datagram() - (message - _near_fragment)) & ~3U;
    }
    _info.participant_guid = _domain->guid();
    if (_info.guid == DDS_GUID_AUTO) {
        _info.guid = to_guid(_writer->getGuid());
    }
    if (_domain->writer_filters()) {
        _writer->reader_data_filter(this);
    }
    return DDS_RETCODE_OK;
}

DDS_ReturnCode_t Writer::enable(mw::PeerSink& sink) noexcept {
    attach(sink);
    try {
        LocalWriters::get().add(to_guid(_writer->getGuid()), shared_from_this());
        _domain->add(shared_from_this());
        // A writer with this GUID may have existed before, and its reader may still be there.
        const std::shared_ptr<Endpoint> share = _domain->find_share(_info.guid);
        if (!share && is_requester(_info)) {
            // Announced once, together with its reader. If it were announced without the reader first and then again, a peer that
            // is just asking Fast DDS for the first announcement would miss the second until the next discovery heartbeat, up to a
            // second later.
            _advertises_later.store(true);
            _domain->dispatcher().start_timer(shared_from_this(), platform::monotonic_ns() + ADVERTISING_DELAY_NS);
            return DDS_RETCODE_OK;
        }
        const std::lock_guard<std::mutex> endpoints_lock(Domain::endpoints_mutex());
        if (share) {
            _answers = std::make_unique<const mw::EndpointInfo>(share->info());
        }
        return advertise_locked() ? DDS_RETCODE_OK : DDS_RETCODE_ERROR;
    } catch (const std::exception&) {
        return DDS_RETCODE_OUT_OF_RESOURCES;
    }
}

dds::WriterQos Writer::announced_qos() const {
    dds::WriterQos qos;
    qos.m_reliability.kind = _reliable ? dds::RELIABLE_RELIABILITY_QOS : dds::BEST_EFFORT_RELIABILITY_QOS;
    qos.m_durability.kind = _is_transient_local ? dds::TRANSIENT_LOCAL_DURABILITY_QOS : dds::VOLATILE_DURABILITY_QOS;
    qos.m_userData.setValue(announce_writer(_info, _answers.get()));
    qos.data_sharing.off();
    return qos;
}

void Writer::advertise_answers(const mw::EndpointInfo* answers) {
    const Call call(_calls);
    const std::lock_guard<std::mutex> lock(Domain::endpoints_mutex());
    if (!call.may_run()) {
        return;
    }
    _answers = answers == nullptr ? nullptr : std::make_unique<const mw::EndpointInfo>(*answers);
    if (_is_advertised) {
        _domain->participant().updateWriter(_writer, topic_attributes(_info.topic_name, _info.type_name), announced_qos());
    } else {
        advertise_locked();
    }
}

bool Writer::advertise() {
    const Call call(_calls);
    const std::lock_guard<std::mutex> lock(Domain::endpoints_mutex());
    return call.may_run() && advertise_locked();
}

bool Writer::advertise_locked() {
    if (!_is_advertised) {
        _is_advertised =
            _domain->participant().registerWriter(_writer, topic_attributes(_info.topic_name, _info.type_name), announced_qos());
        _advertises_later.store(false);
    }
    return _is_advertised;
}

void Writer::close() noexcept {
    const std::lock_guard<std::mutex> turn(_close_mutex);
    if (!begin_to_close()) {
        return;
    }
    _calls.shut();
    wake_up();
    _calls.wait_until_empty();
    wait_until_quiet();
    _domain->remove(*this);
    _domain->give_back_guid(_info.guid);
    if (_writer == nullptr) {
        return;
    }
    LocalWriters::get().remove(to_guid(_writer->getGuid()));
    _held.clear([this](rtps::CacheChange_t* change) { _writer->release_change(change); });
    {
        // Fast DDS would remove them without the mutex, while a heartbeat that is being sent counts them.
        const Lock lock(_writer->getMutex());
        while (_history->remove_min_change()) {
        }
    }
    send_deferred();
    const Domain::Removal removal(*_domain);
    rtps::RTPSDomain::removeRTPSWriter(_writer);
}

// ---- writing ------------------------------------------------------------------------------------------------------

DDS_ReturnCode_t Writer::write(const mw::WriteRequest& request, DDS_SampleIdentity_t& identity, bool& addressed) noexcept {
    identity = DDS_UNKNOWN_SAMPLE_IDENTITY;
    addressed = false;
    const Call call(_calls);
    if (!call.may_run()) {
        return DDS_RETCODE_ALREADY_DELETED;
    }
    if (request.sequence_number != DDS_AUTO_SEQUENCE_NUMBER) {
        return DDS_RETCODE_UNSUPPORTED;
    }
    const Outbox::BatchScope batch(_domain->outbox());
    rtps::CacheChange_t* change = nullptr;
    DDS_ReturnCode_t code = DDS_RETCODE_OUT_OF_RESOURCES;
    try {
        if (_advertises_later.load(std::memory_order_relaxed)) {
            advertise();
        }
        change = encode(request.data);
        if (change != nullptr) {
            code = write_blocking(request, change, identity, addressed);
        }
    } catch (const std::exception&) {
        code = DDS_RETCODE_OUT_OF_RESOURCES;
    }
    if (change != nullptr) {
        _writer->release_change(change);
    }
    return code;
}

// @throws std::bad_alloc
rtps::CacheChange_t* Writer::encode(const void* data) {
    const std::size_t size = _pool.encoded_size(data);
    if (size == 0 || size > std::numeric_limits<std::uint32_t>::max()) {
        return nullptr;
    }
    if (size > _domain->largest_sample()) {
        mw::log_error<mw::LogPart::ENGINE>("Writer::write", [&] {
            return "topic '" + _info.topic_name + "': a sample of " + std::to_string(size) + " octets, and property " +
                   "norvane.fastdds.max_sample_size allows " + std::to_string(_domain->largest_sample()) +
                   ": peers refuse longer ones, unless the property allows them there, too";
        });
        return nullptr;
    }
    rtps::CacheChange_t* const change = _writer->new_change([size] { return static_cast<std::uint32_t>(size); }, rtps::ALIVE);
    if (change == nullptr) {
        return nullptr;
    }
    const std::size_t length = _pool.encode(data, change->serializedPayload.data, size);
    if (length == 0) {
        _writer->release_change(change);
        return nullptr;
    }
    change->serializedPayload.length = static_cast<std::uint32_t>(length);
    change->serializedPayload.encapsulation = CDR_LE;
    return change;
}

// @param change  null afterwards if it was written.
DDS_ReturnCode_t Writer::write_blocking(const mw::WriteRequest& request, rtps::CacheChange_t*& change,
                                        DDS_SampleIdentity_t& identity, bool& addressed) {
    const DDS_Duration_t& limit = request.max_blocking_time;
    const bool patient = limit.sec > 0 || (limit.sec == 0 && limit.nanosec > 0);
    std::int64_t deadline_ns = 0;
    for (;;) {
        const std::uint32_t seen = _changes.load();
        DDS_ReturnCode_t code = DDS_RETCODE_ALREADY_DELETED;
        {
            const Lock lock(_writer->getMutex());
            if (!_calls.is_shut()) {
                code = write_locked(request, change, identity, addressed);
            }
        }
        if (code != DDS_RETCODE_TIMEOUT) {
            return code;
        }
        send_heartbeat();
        if (!patient) {
            return code;
        }
        if (deadline_ns == 0) {
            deadline_ns = mw::deadline_after(limit);
        } else if (platform::monotonic_ns() >= deadline_ns) {
            return code;
        }
        sleep(seen, deadline_ns);
    }
}

DDS_ReturnCode_t Writer::write_locked(const mw::WriteRequest& request, rtps::CacheChange_t*& change, DDS_SampleIdentity_t& identity,
                                      bool& addressed) {
    sweep_locked();
    if (!has_room_locked()) {
        return DDS_RETCODE_TIMEOUT;
    }
    rtps::WriteParams params;  // a new one each time: Fast DDS writes identities into it
    params.related_sample_identity(to_rtps(request.related_identity));
    params.source_timestamp(to_rtps(request.source_timestamp == DDS_TIME_INVALID ? mw::current_time() : request.source_timestamp));
    const DDS_GUID_t& asker = request.related_identity.writer_guid;
    DDS_GUID_t participant = DDS_GUID_UNKNOWN;
    const std::int64_t deadline_ns = _held.deadline_of(asker, participant);
    if (deadline_ns != 0) {
        _held.add({change, params, asker, participant, deadline_ns});
        change = nullptr;
        addressed = true;
        ++_counts.written;
        _domain->dispatcher().start_timer(shared_from_this(), deadline_ns);
        return DDS_RETCODE_OK;
    }
    addressed = _readers.has_addressee(asker);
    if (!send_locked(*change, params, addressed)) {
        return DDS_RETCODE_ERROR;
    }
    change = nullptr;
    ++_counts.written;
    _counts.unaddressed += addressed ? 0 : 1;
    identity = {_info.guid, to_sequence_number(_window.last_sent())};
    return DDS_RETCODE_OK;
}

bool Writer::send_locked(rtps::CacheChange_t& change, rtps::WriteParams& params, bool addressed) {
    if (_is_transient_local && _keeps_last_only && static_cast<std::int64_t>(_history->getHistorySize()) >= _history_limit) {
        _history->remove_min_change();
    }
    if (_matched_foreign_reader) {
        send_first_heartbeat_locked();
    }
    const std::uint32_t length = change.serializedPayload.length;
    // Before it is added to the history: readers of this process receive it, and may acknowledge it, inside that call.
    _window.add(length, _pace.drives_heartbeats() ? platform::monotonic_ns() : 0);
    _last_number->store(_window.last_sent(), std::memory_order_release);
    if (!_history->add_change(&change, params)) {
        _window.take_back();
        return false;
    }
    if (!_reliable) {
        _window.acknowledge_all();
        if (!_is_transient_local) {
            _history->remove_min_change();
        }
        return true;
    }
    sweep_locked();
    if (_leaves_gap && addressed && !_writer->get_separate_sending()) {
        // Otherwise the reader waits for the next heartbeat before it takes the gap as final.
        send_heartbeat();
    }
    _leaves_gap = !addressed;
    if (_window.on_the_way() > 0) {
        if (_pace.is_heartbeat_due(length, _window.on_the_way(), _window.most())) {
            send_heartbeat();
        }
        if (!_pace.timer_runs()) {
            _domain->dispatcher().start_timer(shared_from_this(), _pace.start_timer(platform::monotonic_ns()));
        }
    }
    return true;
}

// At the limit, also drops samples beyond the first unacknowledged one if every reader that needs them has them, so that one silent
// reader does not stop the others.
// @return samples that are not acknowledged and still take room.
std::int64_t Writer::make_room_locked() noexcept {
    const auto kept = [this] { return static_cast<std::int64_t>(_history->getHistorySize()); };
    if (_is_transient_local || !_window.is_full()) {
        return _window.on_the_way();
    }
    if (kept() >= _window.most() || _window.has_too_many_octets()) {
        for (auto place = _history->changesBegin(); place != _history->changesEnd();) {
            const std::int64_t number = static_cast<std::int64_t>((*place)->sequenceNumber.to64long());
            if (number <= _window.acknowledged() || !is_acknowledged_locked(number)) {
                ++place;
                continue;
            }
            _window.release_octets_of(number);
            place = _history->remove_change(place, true);
        }
    }
    return std::min(_window.on_the_way(), kept());
}

bool Writer::has_room_locked() noexcept {
    const std::int64_t waiting = make_room_locked() + _held.size();
    if (waiting >= _window.most() || (waiting > 0 && _window.has_too_many_octets())) {
        return false;
    }
    return !_is_transient_local || _keeps_last_only || static_cast<std::int64_t>(_history->getHistorySize()) < _history_limit;
}

std::uint32_t Writer::fragments_of(std::int64_t number) noexcept {
    const Call call(_calls);
    if (!call.may_run()) {
        return 0;
    }
    const Lock lock(_writer->getMutex());
    rtps::CacheChange_t* change = nullptr;
    return _history->get_change(to_rtps_number(number), _writer->getGuid(), &change) ? change->getFragmentCount() : 0;
}

bool Writer::is_acknowledged_locked(std::int64_t number) noexcept {
    _ack_query.sequenceNumber = to_rtps_number(number);
    return _writer->is_acked_by_all(&_ack_query);
}

// A late reader may still lack samples that all others acknowledged long ago. Fast DDS says so only when asked about all of them.
bool Writer::is_all_acknowledged_locked() noexcept { return _writer->wait_for_all_acked(eprosima::fastrtps::Duration_t(0, 0)); }

// A reply makes the acknowledgement of its request, and the heartbeat that asks for it, superfluous. It proves nothing where
// several readers got the request. (Fast DDS counts a matched reader some time before it reports it.)
// @return the number up to which requests have arrived according to the replies; 0 if the replies prove nothing.
std::int64_t Writer::answered_locked() const noexcept {
    if (!_reply_acknowledges || _window.on_the_way() == 0 || _readers.size() != 1 ||
        static_cast<const rtps::StatefulWriter*>(_writer)->getMatchedReadersSize() != 1) {
        return 0;
    }
    std::int64_t number = 0;
    _readers.for_each([&](const DDS_GUID_t& /*reader*/, const Discovered& peer) { number = _answered->last_of(peer.rtps_guid); });
    return number > _matched_since && number <= _window.last_sent() ? number : 0;
}

void Writer::sweep_locked() noexcept {
    const std::int64_t octets_before = _window.octets();
    _window.advance(answered_locked(), [this](std::int64_t number) { return is_acknowledged_locked(number); });
    if (octets_before - _window.octets() >= static_cast<std::int64_t>(Paths::LARGE)) {
        _domain->note_acknowledged(_writer->getGuid(), _window.acknowledged());
    }
    if (!_is_transient_local) {
        while (_history->changesBegin() != _history->changesEnd() &&
               static_cast<std::int64_t>((*_history->changesBegin())->sequenceNumber.to64long()) <= _window.acknowledged()) {
            _history->remove_min_change();
        }
    }
}

void Writer::send_heartbeat() noexcept {
    if (!_reliable) {
        return;
    }
    auto& writer = *static_cast<rtps::StatefulWriter*>(_writer);
    const Lock lock(writer.getMutex());
    if (_pace.begins_nack_check(platform::monotonic_ns())) {
        // From here on samples sent so far may be sent again when a reader asks: before the heartbeat, whose answer may ask for
        // them.
        _readers.for_each([&](const DDS_GUID_t& reader, const Discovered&) { writer.perform_nack_supression(to_rtps(reader)); });
    }
    writer.send_periodic_heartbeat(false, false);
}

// Readers of other vendors may take the first heartbeat that they receive as their starting point, and never ask for samples lost
// before it. The one that Fast DDS sends at the match leaves before the announcement of a new writer, and is not heard. So another
// one precedes the first sample.
void Writer::send_first_heartbeat_locked() noexcept {
    _matched_foreign_reader = false;
    // Final and with the liveliness flag: Fast DDS sends it although nothing is missing, and readers do not answer it.
    static_cast<rtps::StatefulWriter*>(_writer)->send_periodic_heartbeat(true, true);
}

// Sends what waits in the outbox, of any thread.
void Writer::send_deferred() noexcept {
    if (_domain->outbox() != nullptr) {
        _domain->outbox()->flush();
    }
}

void Writer::choose_sending_locked() noexcept {
    // Readers that each get a few of many samples see gaps. Sent separately, each sample brings a heartbeat that closes the gap
    // before it; otherwise the sample would wait for the next heartbeat. A single reader sees no gaps, and is spared an
    // acknowledgement per sample.
    //
    // Not sent separately, Fast DDS repeats lost samples in one large datagram. A link that cannot carry it loses it again each
    // time.
    _writer->set_separate_sending((_readers.size() > 1 && _readers.has_routed()) || _pace.has_stalled());
}

void Writer::adapt_pace_locked() noexcept {
    const std::int64_t requesters = is_requester(_info) ? _domain->requester_count() : 0;
    if (!_reliable || !_pace.adapt(static_cast<std::int64_t>(_readers.size()), requesters) || _pace.drives_heartbeats()) {
        return;
    }
    rtps::WriterTimes times = _times;
    times.heartbeatPeriod = to_duration(_pace.period_ns());
    times.nackSupressionDuration = to_duration(_pace.nack_ns());
    static_cast<rtps::StatefulWriter*>(_writer)->updateTimes(times);
}

mw::WriteCounts Writer::counts() noexcept {
    const Call call(_calls);
    if (!call.may_run()) {
        return _counts;
    }
    const Lock lock(_writer->getMutex());
    sweep_locked();
    mw::WriteCounts counts = _counts;
    counts.unacknowledged = _window.on_the_way() + _held.size();
    return counts;
}

DDS_ReturnCode_t Writer::wait_for_acknowledgments(const DDS_Duration_t& max_wait) noexcept {
    const Call call(_calls);
    if (!call.may_run()) {
        return DDS_RETCODE_ALREADY_DELETED;
    }
    const std::int64_t deadline_ns = mw::deadline_after(max_wait);
    for (std::int64_t goal = -1;;) {
        const std::uint32_t seen = _changes.load();
        {
            const Lock lock(_writer->getMutex());
            if (_calls.is_shut()) {
                return DDS_RETCODE_ALREADY_DELETED;
            }
            sweep_locked();
            goal = goal < 0 || !_held.is_empty() ? _window.last_sent() : goal;
            if (_held.is_empty() && _window.acknowledged() >= goal && (!_is_transient_local || is_all_acknowledged_locked())) {
                return DDS_RETCODE_OK;
            }
        }
        if (platform::monotonic_ns() >= deadline_ns) {
            return DDS_RETCODE_TIMEOUT;
        }
        send_heartbeat();
        sleep(seen, deadline_ns);
    }
}

void Writer::sleep(std::uint32_t seen, std::int64_t deadline_ns) noexcept {
    send_deferred();
    _sleepers.fetch_add(1);
    platform::wait_on(_changes, seen, std::min(deadline_ns, platform::monotonic_ns() + LOOK_AGAIN_NS));
    _sleepers.fetch_sub(1);
}

void Writer::wake_up() noexcept {
    _changes.fetch_add(1);
    if (_sleepers.load() != 0) {
        platform::wake_all(_changes);
    }
}

// ---- timer, and samples for readers of this process that had no room -----------------------------------------------

std::int64_t Writer::run_timer() noexcept {
    const Call call(_calls);
    if (!call.may_run()) {
        return platform::NO_DEADLINE;
    }
    try {
        if (_advertises_later.load()) {
            advertise();
        }
    } catch (const std::exception&) {
        return platform::monotonic_ns() + RETRY_NS;
    }
    const Lock lock(_writer->getMutex());
    const std::int64_t now_ns = platform::monotonic_ns();
    sweep_locked();
    const std::int64_t again_ns = _readers.refresh() ? send_held_locked(now_ns) : now_ns + RETRY_NS;
    adapt_pace_locked();  // the number of requesters changes
    const std::int64_t on_the_way = _window.on_the_way();
    const Pace::Due due =
        _pace.run_timer(now_ns, on_the_way, _window.acknowledged(), on_the_way > 0 ? _window.oldest_sent_ns() : now_ns);
    if (due.progress_changed) {
        choose_sending_locked();
    }
    if (_heartbeat_is_due.exchange(false) || due.heartbeat) {
        send_heartbeat();
    }
    wake_up();
    return std::min(again_ns, due.next_ns);
}

void Writer::ask_soon() noexcept {
    _heartbeat_is_due.store(true);
    _domain->dispatcher().start_timer(shared_from_this(), platform::monotonic_ns());
}

// @return when to look again.
std::int64_t Writer::send_held_locked(std::int64_t now_ns) noexcept {
    bool has_room = true;
    const std::int64_t next_ns = _held.release(
        now_ns,
        [&] {
            has_room = make_room_locked() < _window.most();
            return has_room;
        },
        [&](HeldAnswer& answer, bool is_sent, bool addressed) {
            _counts.unaddressed += addressed ? 0 : 1;
            try {
                is_sent = is_sent && send_locked(*answer.change, answer.params, addressed);
            } catch (const std::exception&) {
                is_sent = false;
            }
            if (!is_sent) {
                _writer->release_change(answer.change);
            }
        });
    return has_room ? next_ns : now_ns + RETRY_NS;
}

void Writer::redeliver(rtps::RTPSReader& reader, const rtps::SequenceNumber_t& from) noexcept {
    const Call call(_calls);
    if (!call.may_run()) {
        return;
    }
    const Lock lock(_writer->getMutex());
    // Fast DDS marks what a local reader refuses as not acknowledged, and does not send it again. This delivers it as Fast DDS does
    // inside a process, in order.
    rtps::SequenceNumber_t next = from;
    for (auto place = _history->changesBegin(); place != _history->changesEnd(); ++place) {
        rtps::CacheChange_t* const change = *place;
        if (change->sequenceNumber < from) {
            continue;
        }
        if (change->write_params.related_sample_identity() != rtps::SampleIdentity::unknown()) {
            change->write_params.sample_identity(change->write_params.related_sample_identity());
        }
        if (!reader.processDataMsg(change)) {
            next = change->sequenceNumber;
            break;
        }
        next = change->sequenceNumber + 1;
    }
    bool accepted = false;
    _writer->process_acknack(_writer->getGuid(), reader.getGuid(), ++_redeliveries, rtps::SequenceNumberSet_t(next), true,
                             accepted);
    sweep_locked();
    wake_up();
}

// ---- callbacks of Fast DDS ----------------------------------------------------------------------------------------

void Writer::on_reader_discovery(rtps::RTPSWriter* /*writer*/, rtps::ReaderDiscoveryInfo::DISCOVERY_STATUS /*reason*/,
                                 const rtps::GUID_t& reader_guid, const rtps::ReaderProxyData* reader_info) {
    const std::shared_ptr<const Discovered> peer = _domain->find(reader_guid);
    Lock lock(_writer->getMutex());
    // Reports come without the mutex. Where one thread matches a reader while another ends its match, because its lease has ended,
    // they come in any order. So each report only says that something has changed.
    const bool is_matched = _writer->matched_reader_is_matched(reader_guid);
    if (is_matched && peer == nullptr) {
        // Fast DDS has matched a reader that it had forgotten meanwhile, and would never end that match.
        lock.unlock();
        _writer->matched_reader_remove(reader_guid);
        return;
    }
    note_distance_locked(is_matched ? reader_info : nullptr, reader_guid);
    if (!is_matched && _readers.remove(to_guid(reader_guid))) {
        wake_up();
    } else if (is_matched && _readers.add(to_guid(reader_guid), peer)) {
        _matched_foreign_reader = _matched_foreign_reader || (_pace.drives_heartbeats() && !peer->ours);
        if (!_held.is_empty()) {
            _domain->dispatcher().start_timer(shared_from_this(), platform::monotonic_ns());
        }
    } else {
        return;
    }
    _matched_since = _window.last_sent();
    choose_sending_locked();
    adapt_pace_locked();
    if (_readers.is_outdated()) {
        _domain->dispatcher().start_timer(shared_from_this(), platform::monotonic_ns() + RETRY_NS);
    }
}

// @param reader  null: it is gone.
void Writer::note_distance_locked(const rtps::ReaderProxyData* reader, const rtps::GUID_t& guid) noexcept {
    if (reader == nullptr || guid.is_on_same_process_as(_writer->getGuid()) ||
        _domain->has_near(reader->remote_locators().unicast)) {
        _far_readers.erase(to_guid(guid));
    } else {
        try {
            _far_readers.insert(to_guid(guid));
        } catch (const std::exception&) {
            // No memory: IP takes apart what is too long for the wire.
        }
    }
    _history->fragment_above(_far_readers.empty() ? _near_fragment : _far_fragment);
}

bool Writer::on_requester_changed(const std::string& topic) noexcept {
    const bool shares_with_it = topic == _info.topic_name;
    if (shares_with_it) {
        _readers.outdate();
    }
    return shares_with_it || _held.has_any();
}

// Called from the newest sample to the oldest, which would make each removal search the whole history: sweep_locked removes them
// instead.
void Writer::onWriterChangeReceivedByAll(rtps::RTPSWriter* /*writer*/, rtps::CacheChange_t* /*change*/) { wake_up(); }

bool Writer::is_relevant(const rtps::CacheChange_t& change, const rtps::GUID_t& reader_guid) const {
    return _readers.is_for(to_guid(reader_guid), to_guid(change.write_params.related_sample_identity().writer_guid()));
}

}  // namespace fastdds
}  // namespace norvane
