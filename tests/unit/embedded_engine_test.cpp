// SPDX-License-Identifier: Apache-2.0
// The embedded engine at the seam: scripted sinks and a counting pool above it, no middleware.
#include "engines/embedded/EmbeddedEngine.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "engines/EngineModule.hpp"
#include "support/Eventually.hpp"

namespace norvane {
namespace test {
namespace {

using mw::Admission;

constexpr DDS_Duration_t LONG_TIME = {60, 0};
constexpr std::size_t ROOMY = 1000000;

DDS_GUID_t guid_of(int number) {
    DDS_GUID_t guid = {};
    guid.value[0] = 0x77;
    guid.value[15] = static_cast<DDS_Octet>(number);
    return guid;
}

std::int64_t integer_of(const DDS_SequenceNumber_t& number) { return (static_cast<std::int64_t>(number.high) << 32) | number.low; }

DDS_SequenceNumber_t number_of(std::int64_t number) {
    return {static_cast<DDS_Long>(number >> 32), static_cast<DDS_UnsignedLong>(number & 0xffffffff)};
}

// Samples are integers. Counts those alive, so that a test sees what was kept.
class IntegerPool : public mw::SamplePool {
public:
    virtual ~IntegerPool() { EXPECT_EQ(0, live) << "samples were not given back"; }
    mw::Sample* make_copy(const void* data) noexcept override {
        if (fails) {
            return nullptr;
        }
        mw::Sample* sample = new mw::Sample;
        sample->pool = this;
        sample->data = new int(*static_cast<const int*>(data));
        ++live;
        ++copies;
        return sample;
    }
    mw::Sample* make_decoded(const std::uint8_t*, std::size_t) noexcept override { return nullptr; }
    const DDS_TypeOperations& type() const noexcept override { return _type; }
    void take_back(mw::Sample& sample) noexcept override {
        delete static_cast<int*>(sample.data);
        delete &sample;
        --live;
    }

    std::atomic<int> live{0};
    std::atomic<int> copies{0};
    std::atomic<bool> fails{false};

private:
    DDS_TypeOperations _type = {};
};

// What both kinds of sink do: note events in words, run a listener, and object to upcalls that come too late.
class Listening {
public:
    std::string events() {
        std::lock_guard<std::mutex> lock(_mutex);
        return _events;
    }
    std::function<void()> on_announce;  // when there is one, announcements are wanted
    std::atomic<bool> closed{false};
    std::atomic<int> announced{0};

protected:
    bool note(const mw::PeerEvent& event) {
        EXPECT_FALSE(closed) << "event after close";
        static const char* const KINDS[] = {"matched", "deleted", "lost", "qos", "type"};
        std::lock_guard<std::mutex> lock(_mutex);
        _events += (_events.empty() ? "" : " ") + std::string(KINDS[static_cast<int>(event.kind)]);
        if (event.kind == mw::PeerEventKind::INCOMPATIBLE_QOS) {
            _events += std::to_string(event.policy) + ":" + std::to_string(event.offered) + "<" + std::to_string(event.requested);
        }
        last_peer = event.peer->guid;
        return static_cast<bool>(on_announce);
    }
    void run_listener() {
        EXPECT_FALSE(closed) << "announcement after close";
        ++announced;
        if (on_announce) {
            on_announce();
        }
    }

public:
    DDS_GUID_t last_peer = DDS_GUID_UNKNOWN;

protected:
    std::mutex _mutex;

private:
    std::string _events;
};

// What a test asks of an endpoint.
struct Wish {
    bool reliable = true;
    bool transient_local = false;
    DDS_Long depth = 0;  // 0: keep all
    DDS_Long max_samples = DDS_LENGTH_UNLIMITED;
    int route = 0;  // 0: none
    std::string topic = "topic";
    std::string type = "integer";
    std::uint64_t hash = 1;
    DDS_GUID_t guid = DDS_GUID_AUTO;

    template <typename Qos>
    Qos qos() const {
        Qos qos;
        qos.reliability.kind = reliable ? DDS_RELIABLE_RELIABILITY_QOS : DDS_BEST_EFFORT_RELIABILITY_QOS;
        qos.durability.kind = transient_local ? DDS_TRANSIENT_LOCAL_DURABILITY_QOS : DDS_VOLATILE_DURABILITY_QOS;
        qos.history.kind = depth == 0 ? DDS_KEEP_ALL_HISTORY_QOS : DDS_KEEP_LAST_HISTORY_QOS;
        qos.history.depth = depth;
        qos.resource_limits.max_samples = max_samples;
        return qos;
    }
    mw::EndpointInfo info() const {
        mw::EndpointInfo info;
        info.guid = guid;
        info.topic_name = topic;
        info.type_name = type;
        info.type_hash = hash;
        return info;
    }
};

// A participant, and the pool of all its endpoints: it outlives them, as samples outlive their writer.
struct Domain {
    explicit Domain(DDS_DomainId_t domain_id) {
        mw::DomainSettings settings;
        settings.domain_id = domain_id;
        DDS_ReturnCode_t code = DDS_RETCODE_ERROR;
        std::string failure;
        port = embedded::embedded_engine().join(settings, code, failure);
        EXPECT_EQ(DDS_RETCODE_OK, code) << failure;
    }
    IntegerPool pool;
    std::unique_ptr<mw::DomainPort> port;
};

// A store of limited room.
class FakeReader : public mw::SampleSink, public Listening {
public:
    FakeReader(Domain& domain, const Wish& wish, std::size_t room = ROOMY) : capacity(room) {
        const DDS_DataReaderQos qos = wish.qos<DDS_DataReaderQos>();
        mw::ReaderSettings settings;
        settings.info = wish.info();
        settings.qos = &qos;
        settings.pool = &domain.pool;
        settings.routed = wish.route != 0;
        settings.route = guid_of(wish.route);
        port = domain.port->make_reader(settings, code, failure);
    }
    ~FakeReader() {
        close();
        EXPECT_EQ(0U, _reserved) << "a slot was neither filled nor given back";
        while (!_held.empty()) {
            mw::release(*_held.front());
            _held.pop_front();
        }
    }
    DDS_ReturnCode_t enable() { return port->enable(*this); }
    void close() {
        if (port) {
            port->close();
        }
        closed = true;
    }

    Admission admit(const mw::SampleMetadata&, const void* data) noexcept override {
        EXPECT_NE(nullptr, data);
        std::lock_guard<std::mutex> lock(_mutex);
        return admit_locked();
    }
    void abandon() noexcept override {
        std::lock_guard<std::mutex> lock(_mutex);
        --_reserved;
    }
    bool commit(mw::Sample& sample, platform::WakeBatch&) noexcept override {
        std::lock_guard<std::mutex> lock(_mutex);
        return commit_locked(sample);
    }
    Admission deliver(mw::Sample& sample, platform::WakeBatch&, bool& announce) noexcept override {
        std::lock_guard<std::mutex> lock(_mutex);
        const Admission said = admit_locked();
        announce = said == Admission::SLOT && commit_locked(sample);
        return said;
    }
    bool sample_lost() noexcept override {
        EXPECT_FALSE(closed) << "loss after close";
        ++lost;
        return false;
    }
    bool peer_changed(const mw::PeerEvent& event) noexcept override { return note(event); }
    void announce() noexcept override { run_listener(); }

    // Takes the oldest sample. @return its value; -1 when there is none.
    int take() {
        mw::Sample* sample = nullptr;
        bool tell = false;
        {
            std::lock_guard<std::mutex> lock(_mutex);
            if (_held.empty()) {
                return -1;
            }
            sample = _held.front();
            _held.pop_front();
            tell = _refused;
            _refused = false;
        }
        const int value = *static_cast<int*>(sample->data);
        metadata = sample->metadata;
        numbers.push_back(integer_of(sample->metadata.identity.sequence_number));
        mw::release(*sample);
        if (tell) {
            port->room_freed();
        }
        return value;
    }
    std::vector<int> take_all() {
        std::vector<int> values;
        for (int value = take(); value != -1; value = take()) {
            values.push_back(value);
        }
        return values;
    }
    std::size_t held() {
        std::lock_guard<std::mutex> lock(_mutex);
        return _held.size();
    }

    std::unique_ptr<mw::ReaderPort> port;
    DDS_ReturnCode_t code = DDS_RETCODE_ERROR;
    std::string failure;
    std::atomic<std::size_t> capacity;
    std::atomic<Admission> answer{Admission::SLOT};  // what it says when there is room
    std::atomic<int> refuse_next{0};                 // so many times it says FULL all the same, and will not tell of room
    std::atomic<int> refusals{0};
    std::atomic<int> lost{0};
    mw::SampleMetadata metadata;        // of the sample taken last
    std::vector<std::int64_t> numbers;  // of those taken; for the one thread that takes

private:
    Admission admit_locked() {
        EXPECT_FALSE(closed) << "delivery after close";
        if (refuse_next > 0) {
            --refuse_next;
            return Admission::FULL;
        }
        if (answer == Admission::SLOT && _held.size() + _reserved >= capacity) {
            _refused = true;
            ++refusals;
            return Admission::FULL;
        }
        _reserved += answer == Admission::SLOT ? 1 : 0;
        return answer;
    }
    bool commit_locked(mw::Sample& sample) {
        --_reserved;
        mw::retain(sample);
        _held.push_back(&sample);
        return static_cast<bool>(on_announce);
    }

    std::deque<mw::Sample*> _held;
    std::size_t _reserved = 0;
    bool _refused = false;
};

class FakeWriter : public mw::PeerSink, public Listening {
public:
    FakeWriter(Domain& domain, const Wish& wish) {
        const DDS_DataWriterQos qos = wish.qos<DDS_DataWriterQos>();
        mw::WriterSettings settings;
        settings.info = wish.info();
        settings.qos = &qos;
        settings.pool = &domain.pool;
        port = domain.port->make_writer(settings, code, failure);
    }
    ~FakeWriter() {
        close();
        port.reset();
    }
    DDS_ReturnCode_t enable() { return port->enable(*this); }
    void close() {
        if (port) {
            port->close();
        }
        closed = true;
    }
    bool peer_changed(const mw::PeerEvent& event) noexcept override { return note(event); }
    void announce() noexcept override { run_listener(); }

    DDS_ReturnCode_t write(int value, DDS_Duration_t patience = DDS_DURATION_ZERO, int related = 0) {
        mw::WriteRequest request;
        request.related_identity.writer_guid = related == 0 ? DDS_GUID_UNKNOWN : guid_of(related);
        request.max_blocking_time = patience;
        return write(value, request);
    }
    DDS_ReturnCode_t write(int value, mw::WriteRequest& request) {
        request.data = &value;
        return port->write(request, identity, addressed);
    }
    // 0 when the last write failed.
    std::int64_t number() const { return identity == DDS_UNKNOWN_SAMPLE_IDENTITY ? 0 : integer_of(identity.sequence_number); }

    std::unique_ptr<mw::WriterPort> port;
    DDS_ReturnCode_t code = DDS_RETCODE_ERROR;
    std::string failure;
    DDS_SampleIdentity_t identity;  // of the last write
    bool addressed = false;
};

// A domain of its own for each test.
class EmbeddedEngineTest : public ::testing::Test {
protected:
    std::unique_ptr<FakeWriter> writer(const Wish& wish = Wish()) {
        auto made = std::make_unique<FakeWriter>(_domain, wish);
        EXPECT_EQ(DDS_RETCODE_OK, made->code) << made->failure;
        EXPECT_EQ(DDS_RETCODE_OK, made->enable());
        return made;
    }
    std::unique_ptr<FakeReader> reader(const Wish& wish = Wish(), std::size_t room = ROOMY) {
        auto made = std::make_unique<FakeReader>(_domain, wish, room);
        EXPECT_EQ(DDS_RETCODE_OK, made->code) << made->failure;
        EXPECT_EQ(DDS_RETCODE_OK, made->enable());
        return made;
    }
    static DDS_DomainId_t next_domain() {
        static DDS_DomainId_t next = 5000;
        return next++;
    }
    const DDS_DomainId_t _domain_id = next_domain();
    Domain _domain{_domain_id};
};

Wish wish(std::function<void(Wish&)> change) {
    Wish made;
    change(made);
    return made;
}
Wish routed(int route, bool reliable = true) {
    return wish([&](Wish& made) {
        made.route = route;
        made.reliable = reliable;
    });
}
Wish transient_local(DDS_Long depth = 0, DDS_Long max_samples = DDS_LENGTH_UNLIMITED, int route = 0) {
    return wish([&](Wish& made) {
        made.transient_local = true;
        made.depth = depth;
        made.max_samples = max_samples;
        made.route = route;
    });
}

TEST_F(EmbeddedEngineTest, both_ends_are_told_whether_they_match_and_only_matches_get_samples_and_goodbyes) {
    struct {
        const char* name;
        std::function<void(Wish& writer, Wish& reader)> change;
        const char* event;
    } const CASES[] = {
        {"alike", [](Wish&, Wish&) {}, "matched"},
        {"best-effort reader", [](Wish&, Wish& r) { r.reliable = false; }, "matched"},
        {"best-effort writer", [](Wish& w, Wish&) { w.reliable = false; }, "qos11:1<2"},
        {"both best effort", [](Wish& w, Wish& r) { w.reliable = r.reliable = false; }, "matched"},
        {"transient-local writer", [](Wish& w, Wish&) { w.transient_local = true; }, "matched"},
        {"transient-local reader", [](Wish&, Wish& r) { r.transient_local = true; }, "qos2:0<1"},
        {"two policies", [](Wish& w, Wish& r) { w.reliable = !(r.transient_local = true); }, "qos11:1<2"},
        {"another type", [](Wish&, Wish& r) { r.type = "text"; }, "type"},
        {"another layout", [](Wish&, Wish& r) { r.hash = 2; }, "type"},
        {"type before policy", [](Wish& w, Wish& r) { w.reliable = false, r.hash = 2; }, "type"},
        {"another topic", [](Wish&, Wish& r) { r.topic = "other"; }, ""},
    };
    for (const auto& row : CASES) {
        for (const bool writer_first : {true, false}) {
            SCOPED_TRACE(std::string(row.name) + (writer_first ? ", writer first" : ", reader first"));
            Wish writer_wish;
            Wish reader_wish;
            row.change(writer_wish, reader_wish);
            FakeWriter writer(_domain, writer_wish);
            FakeReader reader(_domain, reader_wish);
            std::atomic<int> listened{0};
            writer.on_announce = reader.on_announce = [&] { ++listened; };
            EXPECT_EQ(DDS_RETCODE_OK, writer_first ? writer.enable() : reader.enable());
            EXPECT_EQ("", writer.events() + reader.events()) << "the other one is not enabled yet";
            EXPECT_EQ(DDS_RETCODE_OK, writer_first ? reader.enable() : writer.enable());
            EXPECT_EQ(row.event, writer.events());
            EXPECT_EQ(row.event, reader.events());
            const bool met = *row.event != '\0';
            EXPECT_EQ(met ? 2 : 0, listened);
            EXPECT_EQ(met ? reader.port->info().guid : DDS_GUID_UNKNOWN, writer.last_peer);
            EXPECT_EQ(met ? writer.port->info().guid : DDS_GUID_UNKNOWN, reader.last_peer);
            const bool matched = std::string(row.event) == "matched";
            EXPECT_EQ(DDS_RETCODE_OK, writer.write(7));
            EXPECT_EQ(matched, writer.addressed);
            EXPECT_EQ(matched ? 7 : -1, reader.take());
            writer_first ? writer.close() : reader.close();
            EXPECT_EQ(row.event + std::string(matched ? " deleted" : ""), writer_first ? reader.events() : writer.events());
            EXPECT_EQ(row.event, writer_first ? writer.events() : reader.events()) << "who leaves is told nothing";
            if (!writer_first) {
                EXPECT_EQ(DDS_RETCODE_OK, writer.write(8));
                EXPECT_FALSE(writer.addressed);
            }
        }
    }
    Domain neighbour(_domain_id);
    Domain elsewhere(next_domain());
    EXPECT_NE(neighbour.port->guid(), _domain.port->guid());
    FakeWriter writer(_domain, Wish());
    FakeReader near_one(neighbour, Wish());
    FakeReader far_one(elsewhere, Wish());
    EXPECT_EQ(DDS_RETCODE_OK, writer.enable());
    EXPECT_EQ(DDS_RETCODE_OK, near_one.enable());
    EXPECT_EQ(DDS_RETCODE_OK, far_one.enable());
    EXPECT_EQ("matched", near_one.events()) << "another participant of the domain number";
    EXPECT_EQ("", far_one.events()) << "another domain number";
}

TEST_F(EmbeddedEngineTest, guids_are_generated_or_granted_and_belong_to_one_endpoint_of_the_domain_at_a_time) {
    std::set<std::string> seen;
    for (int round = 0; round < 100; ++round) {
        const FakeWriter writer(_domain, Wish());
        const FakeReader reader(_domain, Wish());
        for (const DDS_GUID_t& guid : {writer.port->info().guid, reader.port->info().guid}) {
            EXPECT_NE(DDS_GUID_AUTO, guid);
            EXPECT_TRUE(seen.insert(std::string(guid.value, guid.value + 16)).second);
        }
        EXPECT_EQ(_domain.port->guid(), writer.port->info().participant_guid);
    }
    const Wish mine = wish([](Wish& made) { made.guid = guid_of(1); });
    auto owner = writer(mine);
    EXPECT_EQ(guid_of(1), owner->port->info().guid);
    EXPECT_EQ(DDS_RETCODE_OK, owner->write(1));
    EXPECT_EQ(guid_of(1), owner->identity.writer_guid);
    const FakeReader second(_domain, mine);
    EXPECT_EQ(nullptr, second.port);
    EXPECT_EQ(DDS_RETCODE_PRECONDITION_NOT_MET, second.code);
    EXPECT_NE(std::string::npos, second.failure.find("77000000000000000000000000000001")) << second.failure;
    EXPECT_EQ(nullptr, FakeWriter(_domain, mine).port) << "the refused one must not have given the GUID back";
    Domain elsewhere(next_domain());
    EXPECT_NE(nullptr, FakeWriter(elsewhere, mine).port);
    owner->close();
    EXPECT_NE(nullptr, FakeWriter(_domain, mine).port) << "closed, though not destroyed";
    EXPECT_NE(nullptr, FakeReader(_domain, mine).port) << "the one before was never enabled";

    const FakeWriter nobody(_domain, wish([](Wish& made) { made.guid = DDS_GUID_UNKNOWN; }));
    EXPECT_EQ(nullptr, nobody.port);
    EXPECT_EQ(DDS_RETCODE_BAD_PARAMETER, nobody.code);
    EXPECT_EQ(guid_of(9), FakeReader(_domain, routed(9)).port->info().partner_guid);

    DDS_DataReaderQos qos;
    qos.durability.kind = DDS_TRANSIENT_DURABILITY_QOS;
    mw::ReaderSettings settings;
    settings.qos = &qos;
    settings.pool = &_domain.pool;
    DDS_ReturnCode_t code = DDS_RETCODE_OK;
    std::string failure;
    EXPECT_EQ(nullptr, _domain.port->make_reader(settings, code, failure));
    EXPECT_EQ(DDS_RETCODE_UNSUPPORTED, code);
    EXPECT_NE("", failure);
}

TEST_F(EmbeddedEngineTest, numbers_rise_from_one_may_be_asked_for_and_are_not_used_up_by_failures) {
    auto sender = writer();
    EXPECT_EQ(DDS_RETCODE_OK, sender->write(1));
    EXPECT_EQ(1, sender->number());
    EXPECT_FALSE(sender->addressed);
    EXPECT_EQ(0, _domain.pool.copies) << "nobody to copy it for";
    auto receiver = reader(Wish(), 4);
    struct {
        std::int64_t wanted;  // 0: automatic
        bool no_copy;
        DDS_ReturnCode_t code;
        std::int64_t got;
    } const CASES[] = {
        {0, false, DDS_RETCODE_OK, 2},
        {0, true, DDS_RETCODE_OUT_OF_RESOURCES, 0},
        {2, false, DDS_RETCODE_BAD_PARAMETER, 0},
        {-5, false, DDS_RETCODE_BAD_PARAMETER, 0},
        {INT64_MAX, false, DDS_RETCODE_BAD_PARAMETER, 0},
        {0, false, DDS_RETCODE_OK, 3},
        {0x1ffffffff, false, DDS_RETCODE_OK, 0x1ffffffff},
        {0x1fffffffe, false, DDS_RETCODE_BAD_PARAMETER, 0},
        {0, false, DDS_RETCODE_OK, 0x200000000},
        {0, false, DDS_RETCODE_TIMEOUT, 0},  // the reader is full
    };
    for (const auto& row : CASES) {
        SCOPED_TRACE(::testing::Message() << "wanted " << row.wanted << " after " << sender->number());
        mw::WriteRequest request;
        request.sequence_number = row.wanted == 0 ? DDS_AUTO_SEQUENCE_NUMBER : number_of(row.wanted);
        _domain.pool.fails = row.no_copy;
        EXPECT_EQ(row.code, sender->write(1, request));
        EXPECT_EQ(row.code == DDS_RETCODE_OK, sender->addressed);
        if (row.code == DDS_RETCODE_OK) {
            EXPECT_EQ(row.got, sender->number());
            EXPECT_EQ(sender->port->info().guid, sender->identity.writer_guid);
        } else {
            EXPECT_EQ(DDS_UNKNOWN_SAMPLE_IDENTITY, sender->identity);
        }
    }
    receiver->take_all();
    EXPECT_EQ((std::vector<std::int64_t>{2, 3, 0x1ffffffff, 0x200000000}), receiver->numbers);
    mw::WriteRequest last;
    last.sequence_number = number_of(INT64_MAX - 1);
    EXPECT_EQ(DDS_RETCODE_OK, sender->write(1, last));
    EXPECT_EQ(DDS_RETCODE_OUT_OF_RESOURCES, sender->write(1)) << "the numbers are used up";
}

TEST_F(EmbeddedEngineTest, a_sample_carries_its_identities_and_times) {
    auto sender = writer();
    auto receiver = reader();
    mw::WriteRequest request;
    request.related_identity = {guid_of(3), {0, 44}};
    const DDS_Time_t before = _domain.port->current_time();
    EXPECT_EQ(DDS_RETCODE_OK, sender->write(1, request));
    receiver->take();
    EXPECT_EQ(sender->identity, receiver->metadata.identity);
    EXPECT_EQ(request.related_identity, receiver->metadata.related_identity);
    EXPECT_EQ(receiver->metadata.reception_timestamp, receiver->metadata.source_timestamp);
    EXPECT_GE((receiver->metadata.reception_timestamp - before).sec, 0);
    EXPECT_LT((receiver->metadata.reception_timestamp - before).sec, 60);
    request.source_timestamp = {12, 34};
    EXPECT_EQ(DDS_RETCODE_OK, sender->write(1, request));
    receiver->take();
    EXPECT_EQ(request.source_timestamp, receiver->metadata.source_timestamp);
    EXPECT_GE(receiver->metadata.reception_timestamp.sec, before.sec);
}

// One letter a reader: S takes, F is full, b is full and best effort, f filters it out, u has no use for it, m has no memory.
TEST_F(EmbeddedEngineTest, a_write_reaches_all_or_none) {
    struct {
        const char* readers;
        DDS_ReturnCode_t code;
        bool addressed;
    } const CASES[] = {
        {"S", DDS_RETCODE_OK, true},
        {"F", DDS_RETCODE_TIMEOUT, false},
        {"b", DDS_RETCODE_OK, true},
        {"f", DDS_RETCODE_OK, false},
        {"u", DDS_RETCODE_OK, true},
        {"m", DDS_RETCODE_OUT_OF_RESOURCES, false},
        {"SS", DDS_RETCODE_OK, true},
        {"SF", DDS_RETCODE_TIMEOUT, false},
        {"FS", DDS_RETCODE_TIMEOUT, false},
        {"SSbfu", DDS_RETCODE_OK, true},
        {"bSF", DDS_RETCODE_TIMEOUT, false},
        {"bSm", DDS_RETCODE_OUT_OF_RESOURCES, false},
        {"ff", DDS_RETCODE_OK, false},
        {"fu", DDS_RETCODE_OK, true},
        {"bf", DDS_RETCODE_OK, true},
        {"SSSSSSSSSSSS", DDS_RETCODE_OK, true},  // more than announcements find room for without the heap
    };
    for (const auto& row : CASES) {
        SCOPED_TRACE(row.readers);
        auto sender = writer();
        std::vector<std::unique_ptr<FakeReader>> readers;
        const std::string letters = row.readers;
        for (const char letter : letters) {
            readers.push_back(
                reader(wish([&](Wish& made) { made.reliable = letter != 'b'; }), letter == 'F' || letter == 'b' ? 0 : 9));
            readers.back()->on_announce = [] {};
            readers.back()->answer = letter == 'f'   ? Admission::FILTERED
                                     : letter == 'u' ? Admission::UNWANTED
                                     : letter == 'm' ? Admission::NO_MEMORY
                                                     : Admission::SLOT;
        }
        EXPECT_EQ(row.code, sender->write(5));
        EXPECT_EQ(row.addressed, sender->addressed);
        EXPECT_EQ(row.code == DDS_RETCODE_OK ? 1 : 0, sender->number());
        for (std::size_t index = 0; index < letters.size(); ++index) {
            const bool stored = row.code == DDS_RETCODE_OK && letters[index] == 'S';
            EXPECT_EQ(stored ? std::vector<int>{5} : std::vector<int>(), readers[index]->take_all()) << index;
            EXPECT_EQ(stored ? 1 : 0, readers[index]->announced) << index;
            EXPECT_EQ(row.code == DDS_RETCODE_OK && letters[index] == 'b' ? 1 : 0, readers[index]->lost) << index;
        }
    }
}

TEST_F(EmbeddedEngineTest, routed_readers_get_what_is_related_to_their_writer_and_nothing_else) {
    auto sender = writer();
    auto everything = reader();
    auto one = reader(routed(1));
    auto two = reader(routed(2));
    auto also_two = reader(routed(2, false));
    struct {
        int related;
        std::set<FakeReader*> addressees;
    } const CASES[] = {
        {0, {everything.get()}},
        {1, {everything.get(), one.get()}},
        {2, {everything.get(), two.get(), also_two.get()}},
        {3, {everything.get()}},
    };
    for (const bool with_everything : {true, false}) {
        for (const auto& row : CASES) {
            SCOPED_TRACE(::testing::Message() << "related " << row.related << ", with everything " << with_everything);
            EXPECT_EQ(DDS_RETCODE_OK, sender->write(9, DDS_DURATION_ZERO, row.related));
            EXPECT_EQ(with_everything || row.addressees.size() > 1, sender->addressed);
            for (FakeReader* reader : {everything.get(), one.get(), two.get(), also_two.get()}) {
                const bool gets = row.addressees.count(reader) != 0 && (with_everything || reader != everything.get());
                EXPECT_EQ(gets ? 9 : -1, reader->take());
                EXPECT_EQ(-1, reader->take());
            }
        }
        everything->close();
    }
    // Out of the middle of a route, and then the whole route.
    two->close();
    EXPECT_EQ(DDS_RETCODE_OK, sender->write(10, DDS_DURATION_ZERO, 2));
    EXPECT_EQ(10, also_two->take());
    also_two->close();
    EXPECT_EQ(DDS_RETCODE_OK, sender->write(11, DDS_DURATION_ZERO, 2));
    EXPECT_FALSE(sender->addressed);
    EXPECT_EQ(DDS_RETCODE_OK, sender->write(12, DDS_DURATION_ZERO, 1));
    EXPECT_EQ(12, one->take());
}

// Waits until a write has been refused twice: once before, and once after it has made up its mind to sleep.
void wait_until_blocked(FakeReader& reader) {
    ASSERT_TRUE(eventually([&] { return reader.refusals >= 2; }));
}

TEST_F(EmbeddedEngineTest, a_blocked_write_ends_by_room_either_end_leaving_or_the_deadline) {
    struct {
        const char* name;
        DDS_Duration_t patience;
        std::function<void(FakeWriter&, FakeReader&)> release;
        DDS_ReturnCode_t code;
        std::vector<int> first;   // what is in the full reader afterwards
        std::vector<int> second;  // and in the roomy one
    } const CASES[] = {
        {"room", LONG_TIME, [](FakeWriter&, FakeReader& full) { EXPECT_EQ(1, full.take()); }, DDS_RETCODE_OK, {2}, {1, 2}},
        {"room, no deadline",
         DDS_DURATION_INFINITE,
         [](FakeWriter&, FakeReader& full) { full.take(); },
         DDS_RETCODE_OK,
         {2},
         {1, 2}},
        {"the reader leaves", LONG_TIME, [](FakeWriter&, FakeReader& full) { full.close(); }, DDS_RETCODE_OK, {1}, {1, 2}},
        {"the writer leaves",
         LONG_TIME,
         [](FakeWriter& writer, FakeReader&) { writer.close(); },
         DDS_RETCODE_ALREADY_DELETED,
         {1},
         {1}},
        {"the deadline", {0, 50000000}, [](FakeWriter&, FakeReader&) {}, DDS_RETCODE_TIMEOUT, {1}, {1}},
        {"false hope",
         {0, 50000000},
         [](FakeWriter&, FakeReader& full) { full.port->room_freed(); },
         DDS_RETCODE_TIMEOUT,
         {1},
         {1}},
    };
    for (const auto& row : CASES) {
        for (const bool alone : {false, true}) {
            SCOPED_TRACE(std::string(row.name) + (alone ? ", alone" : ", with a roomy reader"));
            auto sender = writer();
            auto roomy = alone ? nullptr : reader();
            auto full = reader(Wish(), 1);
            ASSERT_EQ(DDS_RETCODE_OK, sender->write(1));
            const auto begin = std::chrono::steady_clock::now();
            auto blocked = std::async(std::launch::async, [&] { return sender->write(2, row.patience); });
            wait_until_blocked(*full);
            row.release(*sender, *full);
            ASSERT_EQ(std::future_status::ready, blocked.wait_for(std::chrono::seconds(20)));
            EXPECT_EQ(row.code, blocked.get());
            const auto took = std::chrono::steady_clock::now() - begin;
            EXPECT_TRUE(row.code != DDS_RETCODE_TIMEOUT || took >= std::chrono::milliseconds(50));
            EXPECT_EQ(row.code == DDS_RETCODE_OK ? 2 : 0, sender->number());
            EXPECT_EQ(row.code == DDS_RETCODE_OK && (!alone || row.first.back() == 2), sender->addressed);
            EXPECT_EQ(row.first, full->take_all());
            EXPECT_TRUE(alone || row.second == roomy->take_all());
        }
    }
}

// The room that comes between the refusal and the decision to sleep: nobody will tell of it.
TEST_F(EmbeddedEngineTest, a_write_looks_once_more_before_it_sleeps_and_never_sleeps_without_patience) {
    for (const bool alone : {true, false}) {
        auto sender = writer();
        auto other = alone ? nullptr : reader();
        auto receiver = reader();
        receiver->refuse_next = 1;
        EXPECT_EQ(DDS_RETCODE_OK, sender->write(1, LONG_TIME));
        receiver->refuse_next = 1;
        EXPECT_EQ(DDS_RETCODE_TIMEOUT, sender->write(2, DDS_DURATION_ZERO));
        EXPECT_EQ(DDS_RETCODE_OK, sender->write(2, DDS_DURATION_ZERO));
        EXPECT_EQ((std::vector<int>{1, 2}), receiver->take_all());
    }
}

TEST_F(EmbeddedEngineTest, concurrent_writes_through_a_narrow_reader_arrive_once_in_the_order_of_their_numbers) {
    constexpr int THREADS = 8;
    constexpr int WRITES = 400;
    auto sender = writer();
    auto narrow = reader(Wish(), 10);
    auto wide = reader();
    std::vector<std::thread> threads;
    std::atomic<int> failed{0};
    for (int thread = 0; thread < THREADS; ++thread) {
        threads.emplace_back([&, thread] {
            for (int index = 0; index < WRITES; ++index) {
                mw::WriteRequest request;
                const int value = thread * WRITES + index;
                request.data = &value;
                // Every fourth has no patience, and tries again: its failures must leave no gap.
                request.max_blocking_time = index % 4 == 0 ? DDS_DURATION_ZERO : LONG_TIME;
                DDS_SampleIdentity_t identity;
                bool addressed = false;
                DDS_ReturnCode_t code = DDS_RETCODE_TIMEOUT;
                while (code == DDS_RETCODE_TIMEOUT) {
                    code = sender->port->write(request, identity, addressed);
                }
                failed += code == DDS_RETCODE_OK ? 0 : 1;
            }
        });
    }
    std::vector<int> arrived;
    EXPECT_TRUE(eventually(
        [&] {
            for (int value = narrow->take(); value != -1; value = narrow->take()) {
                arrived.push_back(value);
            }
            return arrived.size() == THREADS * WRITES || failed != 0;
        },
        std::chrono::seconds(60)));
    narrow->capacity = ROOMY;  // after a failure: let the writers go
    narrow->port->room_freed();
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(0, failed);
    EXPECT_EQ(arrived, wide->take_all());
    std::vector<std::int64_t> contiguous;
    for (std::int64_t number = 1; number <= THREADS * WRITES; ++number) {
        contiguous.push_back(number);
    }
    EXPECT_EQ(contiguous, narrow->numbers);
    EXPECT_EQ(contiguous, wide->numbers);
    std::sort(arrived.begin(), arrived.end());
    EXPECT_EQ(arrived.end(), std::adjacent_find(arrived.begin(), arrived.end()));
}

TEST_F(EmbeddedEngineTest, a_late_reader_gets_what_a_transient_local_writer_keeps) {
    struct {
        const char* name;
        Wish writer;
        Wish reader;
        std::size_t room;
        std::vector<int> at_once;
        std::vector<int> after_taking;  // as room comes
        int lost;
    } const CASES[] = {
        {"all", transient_local(), transient_local(), ROOMY, {1, 2, 3, 4, 5}, {}, 0},
        {"the last three", transient_local(3), transient_local(), ROOMY, {3, 4, 5}, {}, 0},
        {"bounded", transient_local(4, 2), transient_local(), ROOMY, {4, 5}, {}, 0},
        {"a volatile reader", transient_local(), Wish(), ROOMY, {}, {}, 0},
        {"a small reader", transient_local(), transient_local(), 2, {1, 2}, {3, 4, 5}, 0},
        {"a small best-effort reader",
         transient_local(),
         wish([](Wish& made) {
             made.transient_local = true;
             made.reliable = false;
         }),
         2,
         {1, 2},
         {},
         3},
        {"a routed reader", transient_local(), transient_local(0, DDS_LENGTH_UNLIMITED, 1), ROOMY, {1, 3, 5}, {}, 0},
        {"a small routed reader", transient_local(), transient_local(0, DDS_LENGTH_UNLIMITED, 2), 1, {2}, {4}, 0},
    };
    for (const auto& row : CASES) {
        SCOPED_TRACE(row.name);
        auto sender = writer(row.writer);
        for (int value = 1; value <= 5; ++value) {
            EXPECT_EQ(DDS_RETCODE_OK, sender->write(value, DDS_DURATION_ZERO, value % 2 == 1 ? 1 : 2));
        }
        FakeReader late(_domain, row.reader, row.room);
        late.on_announce = [] {};
        EXPECT_EQ(DDS_RETCODE_OK, late.enable());
        EXPECT_EQ(1, late.announced);
        EXPECT_EQ(row.at_once.size(), late.held());
        EXPECT_EQ(row.lost, late.lost);
        const bool owes = !row.after_taking.empty();
        EXPECT_EQ(owes ? DDS_RETCODE_TIMEOUT : DDS_RETCODE_OK, sender->port->wait_for_acknowledgments(DDS_DURATION_ZERO));
        std::vector<int> expected = row.at_once;
        expected.insert(expected.end(), row.after_taking.begin(), row.after_taking.end());
        EXPECT_EQ(expected, late.take_all()) << "all of it, in order";
        EXPECT_EQ(DDS_RETCODE_OK, sender->port->wait_for_acknowledgments(DDS_DURATION_ZERO));
    }
}

TEST_F(EmbeddedEngineTest, nothing_overtakes_a_backlog_and_who_waits_for_it_wakes) {
    struct {
        const char* name;
        std::function<void(FakeWriter&, FakeReader&)> release;
        DDS_ReturnCode_t write;
        DDS_ReturnCode_t acknowledged;
        std::vector<int> expected;
    } const CASES[] = {
        {"room",
         [](FakeWriter&, FakeReader& late) { late.capacity = 8, late.port->room_freed(); },
         DDS_RETCODE_OK,
         DDS_RETCODE_OK,
         {1, 2, 3, 4}},
        {"the reader leaves", [](FakeWriter&, FakeReader& late) { late.close(); }, DDS_RETCODE_OK, DDS_RETCODE_OK, {1}},
        {"the writer leaves",
         [](FakeWriter& sender, FakeReader&) { sender.close(); },
         DDS_RETCODE_ALREADY_DELETED,
         DDS_RETCODE_ALREADY_DELETED,
         {1}},
    };
    for (const auto& row : CASES) {
        SCOPED_TRACE(row.name);
        auto sender = writer(transient_local());
        for (int value = 1; value <= 3; ++value) {
            EXPECT_EQ(DDS_RETCODE_OK, sender->write(value));
        }
        auto late = reader(transient_local(), 1);
        late->capacity = 2;  // room, but not for anything newer than the backlog
        EXPECT_EQ(DDS_RETCODE_TIMEOUT, sender->write(4));
        EXPECT_EQ(DDS_RETCODE_TIMEOUT, sender->port->wait_for_acknowledgments({0, 1000000}));
        late->capacity = 1;
        auto writing = std::async(std::launch::async, [&] { return sender->write(4, LONG_TIME); });
        auto waiting = std::async(std::launch::async, [&] { return sender->port->wait_for_acknowledgments(LONG_TIME); });
        // Neither can be seen asleep: give both the chance, by refusing in vain a few times what both wait for.
        for (int round = 0; round < 20; ++round) {
            late->port->room_freed();
            std::this_thread::yield();
        }
        row.release(*sender, *late);
        EXPECT_EQ(row.write, writing.get());
        EXPECT_EQ(row.acknowledged, waiting.get());
        EXPECT_EQ(row.expected, late->take_all());
    }
}

TEST_F(EmbeddedEngineTest, a_bounded_keep_all_history_that_is_full_blocks_until_the_deadline_or_close) {
    auto sender = writer(transient_local(0, 2));
    EXPECT_EQ(DDS_RETCODE_OK, sender->write(1));
    EXPECT_EQ(DDS_RETCODE_OK, sender->write(2));
    EXPECT_EQ(DDS_RETCODE_TIMEOUT, sender->write(3));
    EXPECT_EQ(DDS_RETCODE_TIMEOUT, sender->write(3, {0, 20000000}));
    std::atomic<bool> begun{false};
    auto blocked = std::async(std::launch::async, [&] {
        begun = true;
        return sender->write(3, LONG_TIME);
    });
    EXPECT_TRUE(eventually([&] { return begun && _domain.pool.live == 3; })) << "it has made its copy";
    sender->close();
    EXPECT_EQ(DDS_RETCODE_ALREADY_DELETED, blocked.get());
    EXPECT_EQ(0, _domain.pool.live) << "close gives back what was kept";
}

TEST_F(EmbeddedEngineTest, a_reader_that_has_no_memory_for_the_replay_is_not_enabled) {
    auto sender = writer(transient_local());
    EXPECT_EQ(DDS_RETCODE_OK, sender->write(1));
    FakeReader late(_domain, transient_local(0, DDS_LENGTH_UNLIMITED, 0));
    late.answer = Admission::NO_MEMORY;
    EXPECT_EQ(DDS_RETCODE_OUT_OF_RESOURCES, late.enable());
    late.closed = true;
    EXPECT_EQ(DDS_RETCODE_OK, sender->write(2));
    EXPECT_FALSE(sender->addressed);
    EXPECT_EQ("", sender->events() + late.events());
}

TEST_F(EmbeddedEngineTest, close_waits_for_a_running_listener) {
    auto sender = writer();
    auto receiver = reader();
    std::promise<void> inside;
    std::promise<void> go_on;
    receiver->on_announce = [&] {
        inside.set_value();
        go_on.get_future().wait();
    };
    auto writing = std::async(std::launch::async, [&] { return sender->write(1); });
    inside.get_future().wait();
    std::atomic<bool> left{false};
    std::thread closer([&] {
        receiver->port->close();
        left = true;
    });
    // The peer's event shows that the close is under way.
    EXPECT_TRUE(eventually([&] { return sender->events() == "matched deleted"; }));
    EXPECT_FALSE(left);
    EXPECT_EQ(DDS_RETCODE_OK, sender->write(2)) << "nobody else is held up";
    EXPECT_FALSE(left);
    go_on.set_value();
    closer.join();
    EXPECT_EQ(DDS_RETCODE_OK, writing.get());
}

TEST_F(EmbeddedEngineTest, a_listener_may_write_and_make_and_delete_what_the_write_around_it_still_uses) {
    auto sender = writer();
    auto first = reader();
    auto second = reader();
    auto answers = writer(wish([](Wish& made) { made.topic = "answers"; }));
    auto back = reader(wish([](Wish& made) { made.topic = "answers"; }));
    std::unique_ptr<FakeReader> made;
    // Deletes the other reader, whose announcement is due in the same write, and the writer itself.
    first->on_announce = [&] {
        if (first->announced > 1) {
            return;  // the writer has gone
        }
        EXPECT_EQ(DDS_RETCODE_OK, answers->write(first->take()));
        made = reader();
        second.reset();
        sender.reset();
    };
    second->on_announce = [] { ADD_FAILURE() << "announced after it was deleted"; };
    const int value = 3;
    mw::WriteRequest request;
    request.data = &value;
    DDS_SampleIdentity_t identity;
    bool addressed = false;
    EXPECT_EQ(DDS_RETCODE_OK, sender->port->write(request, identity, addressed));
    EXPECT_EQ(1, integer_of(identity.sequence_number));
    EXPECT_TRUE(addressed);
    EXPECT_EQ(3, back->take());
    EXPECT_EQ("matched deleted", first->events());
    EXPECT_EQ("matched deleted", made->events());
}

TEST_F(EmbeddedEngineTest, endpoints_come_and_go_under_load_without_an_upcall_too_late) {
    constexpr int ROUNDS = 150;
    std::atomic<bool> stop{false};
    std::atomic<int> written{0};
    auto steady = writer(transient_local(5));
    auto witness = reader();
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 2; ++thread) {
        threads.emplace_back([&, thread] {
            for (int value = 0; !stop; ++value) {
                mw::WriteRequest request;
                request.data = &value;
                request.related_identity.writer_guid = guid_of(value % 3);
                request.max_blocking_time = thread == 0 ? DDS_DURATION_ZERO : LONG_TIME;
                DDS_SampleIdentity_t identity;
                bool addressed = false;
                written += steady->port->write(request, identity, addressed) == DDS_RETCODE_OK ? 1 : 0;
            }
        });
    }
    std::atomic<int> churning{2};
    for (int thread = 0; thread < 2; ++thread) {
        threads.emplace_back([&, thread] {
            for (int round = 0; round < ROUNDS; ++round) {
                FakeReader passing(_domain, transient_local(0, DDS_LENGTH_UNLIMITED, (round + thread) % 3), 1 + round % 4U);
                passing.on_announce = [] {};
                FakeWriter guest(_domain, transient_local());
                EXPECT_EQ(DDS_RETCODE_OK, passing.enable());
                EXPECT_EQ(DDS_RETCODE_OK, guest.enable());
                guest.write(round, DDS_DURATION_ZERO, 1);
                for (int taken = 0; taken < round % 8; ++taken) {
                    passing.take();
                }
            }
            --churning;
        });
    }
    EXPECT_TRUE(eventually(
        [&] {
            witness->take_all();
            return churning == 0;
        },
        std::chrono::seconds(60)));
    stop = true;
    for (std::thread& thread : threads) {
        thread.join();
    }
    witness->take_all();
    EXPECT_GT(written, 0);
    std::vector<std::int64_t> numbers = witness->numbers;
    EXPECT_GE(static_cast<int>(numbers.size()), written) << "the witness lost some";
    EXPECT_EQ(DDS_RETCODE_OK, steady->port->wait_for_acknowledgments(DDS_DURATION_ZERO)) << "what was owed to those who left";
    EXPECT_EQ(5, _domain.pool.live) << "what it keeps, and nothing else";
}

TEST(EngineSelectionTest, engines_are_found_by_name_and_refusals_say_why) {
    std::string failure;
    mw::Engine* const engine = mw::select_engine("embedded", failure);
    ASSERT_NE(nullptr, engine);
    EXPECT_EQ(engine, mw::select_engine("embedded", failure));
    EXPECT_STREQ("embedded", engine->name());
    EXPECT_FALSE(engine->leaves_process());
    EXPECT_EQ("", failure);
    const mw::EngineEntry other_abi = [](std::uint32_t) -> mw::Engine* { return nullptr; };
    const mw::EngineEntry right_one = [](std::uint32_t abi) {
        return abi == mw::ENGINE_ABI ? &embedded::embedded_engine() : nullptr;
    };
    struct {
        std::function<mw::Engine*()> ask;
        std::vector<std::string> words;
    } const CASES[] = {
        {[&] { return mw::select_engine("", failure); }, {"\"\"", "embedded", "fastdds"}},
        {[&] { return mw::select_engine("Embedded", failure); }, {"\"Embedded\"", "embedded", "fastdds"}},
        {[&] { return mw::open_engine_module("libnorvane_none.so", failure); },
         {"libnorvane_none.so", "cannot be opened", "install"}},
        {[&] { return mw::open_engine_module("libm.so.6", failure); }, {"libm.so.6", "norvane_engine"}},
        {[&] { return mw::engine_of_entry(other_abi, "libother.so", failure); },
         {"libother.so", "ABI " + std::to_string(mw::ENGINE_ABI)}},
    };
    for (const auto& row : CASES) {
        failure.clear();
        EXPECT_EQ(nullptr, row.ask());
        for (const std::string& word : row.words) {
            EXPECT_NE(std::string::npos, failure.find(word)) << failure;
        }
    }
    EXPECT_EQ(engine, mw::engine_of_entry(right_one, "libright.so", failure));
}

}  // namespace
}  // namespace test
}  // namespace norvane
