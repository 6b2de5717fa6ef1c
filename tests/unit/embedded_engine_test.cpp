// SPDX-License-Identifier: Apache-2.0
// The embedded engine at the seam: scripted sinks and a counting pool above it, no middleware. What an application can see of it is in
// conformance/; here is what needs a reader that refuses when it is told to.
#include "engines/embedded/EmbeddedEngine.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <numeric>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "engines/EngineModule.hpp"
#include "support/AllocationProbe.hpp"
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

// Samples are integers. Counts those alive, so that a test sees what was kept.
class IntegerPool : public mw::SamplePool {
public:
    virtual ~IntegerPool() { EXPECT_EQ(0, live) << "samples were not given back"; }
    mw::Sample* make_copy(const void* data) noexcept override {
        mw::Sample* sample = new mw::Sample;
        sample->pool = this;
        sample->data = new int(*static_cast<const int*>(data));
        ++live;
        ++copies;
        return sample;
    }
    mw::Sample* make_decoded(const std::uint8_t*, std::size_t) noexcept override { return nullptr; }
    std::size_t encoded_size(const void*) noexcept override { return 0; }
    std::size_t encode(const void*, std::uint8_t*, std::size_t) noexcept override { return 0; }
    const DDS_TypeOperations& type() const noexcept override { return _type; }
    void take_back(mw::Sample& sample) noexcept override {
        delete static_cast<int*>(sample.data);
        delete &sample;
        --live;
    }

    std::atomic<int> live{0};
    std::atomic<int> copies{0};

private:
    DDS_TypeOperations _type = {};
};

// A participant, and the pool of all its endpoints: it outlives them, as samples outlive their writer.
struct Domain {
    explicit Domain(DDS_DomainId_t domain_id) {
        mw::DomainSettings settings;
        settings.domain_id = domain_id;
        port = embedded::embedded_engine().join(settings, code, failure);
        EXPECT_EQ(DDS_RETCODE_OK, code) << failure;
    }
    IntegerPool pool;
    std::unique_ptr<mw::DomainPort> port;
    DDS_ReturnCode_t code = DDS_RETCODE_ERROR;  // of the last thing made here
    std::string failure;
};

// What a test asks of an endpoint.
struct Wish {
    bool reliable = true;
    bool transient_local = false;
    DDS_Long depth = 0;  // 0: keep all
    DDS_Long max_samples = DDS_LENGTH_UNLIMITED;
    int route = 0;  // 0: none
    DDS_GUID_t guid = DDS_GUID_AUTO;

    Wish best_effort() const {
        return with([](Wish& wish) { wish.reliable = false; });
    }
    Wish kept(DDS_Long last = 0, DDS_Long at_most = DDS_LENGTH_UNLIMITED) const {
        return with([&](Wish& wish) { wish.transient_local = true, wish.depth = last, wish.max_samples = at_most; });
    }
    Wish routed(int to) const {
        return with([&](Wish& wish) { wish.route = to; });
    }
    Wish named(const DDS_GUID_t& own_guid) const {
        return with([&](Wish& wish) { wish.guid = own_guid; });
    }

    // Settings for the engine; `qos` must outlive them.
    template <typename Settings, typename Qos>
    Settings settings(Domain& domain, Qos& qos) const {
        qos.reliability.kind = reliable ? DDS_RELIABLE_RELIABILITY_QOS : DDS_BEST_EFFORT_RELIABILITY_QOS;
        qos.durability.kind = transient_local ? DDS_TRANSIENT_LOCAL_DURABILITY_QOS : DDS_VOLATILE_DURABILITY_QOS;
        qos.history.kind = depth == 0 ? DDS_KEEP_ALL_HISTORY_QOS : DDS_KEEP_LAST_HISTORY_QOS;
        qos.history.depth = depth;
        qos.resource_limits.max_samples = max_samples;
        Settings made;
        made.info.guid = guid;
        made.info.topic_name = "topic";
        made.info.type_name = "integer";
        made.qos = &qos;
        made.pool = &domain.pool;
        return made;
    }
    mw::ReaderSettings reader_settings(Domain& domain, DDS_DataReaderQos& qos) const {
        mw::ReaderSettings made = settings<mw::ReaderSettings>(domain, qos);
        made.routed = route != 0;
        made.route = guid_of(route);
        return made;
    }

private:
    template <typename Change>
    Wish with(Change change) const {
        Wish wish = *this;
        change(wish);
        return wish;
    }
};

// What both kinds of sink do: note events, count announcements, and object to upcalls that come too late.
template <typename Sink>
class Listening : public Sink {
public:
    Listening() { _events.reserve(10000); }
    bool peer_changed(const mw::PeerEvent& event) noexcept override {
        EXPECT_FALSE(closed) << "event after close";
        std::lock_guard<std::mutex> lock(_mutex);
        const bool matched = event.kind == mw::PeerEventKind::MATCHED;
        _events += matched ? "+" : event.kind == mw::PeerEventKind::DELETED ? "-" : "?";
        wanted += matched ? 1 : 0;
        return matched;
    }
    void announce() noexcept override {
        EXPECT_FALSE(closed) << "announcement after close";
        EXPECT_LE(++announced, wanted) << "announced what nobody wanted to be told";
    }
    // @return what has happened since the last call: + a match, - a goodbye.
    std::string events() {
        std::lock_guard<std::mutex> lock(_mutex);
        const std::string happened = _events;
        _events.clear();
        return happened;
    }

    std::atomic<int> announced{0};
    std::atomic<int> wanted{0};  // announcements: of matches, not of goodbyes, and of samples; several may come as one
    std::atomic<bool> closed{false};

protected:
    std::mutex _mutex;

private:
    std::string _events;
};

// A store of limited room.
class FakeReader : public Listening<mw::SampleSink> {
public:
    FakeReader(Domain& domain, const Wish& wish, std::size_t room = ROOMY) : capacity(room) {
        DDS_DataReaderQos qos;
        port = domain.port->make_reader(wish.reader_settings(domain, qos), domain.code, domain.failure);
        _held.reserve(100);
    }
    ~FakeReader() {
        close();
        EXPECT_EQ(0U, _reserved) << "a slot was neither filled nor given back";
        while (_taken < _held.size()) {
            mw::release(*_held[_taken++]);
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
        if (on_admit) {
            on_admit();
        }
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

    // Takes the oldest sample. @return its value; -1 when there is none.
    int take(bool may_tell = true) {
        mw::Sample* sample = nullptr;
        bool tell = false;
        {
            std::lock_guard<std::mutex> lock(_mutex);
            if (_taken == _held.size()) {
                return -1;
            }
            sample = _held[_taken++];
            if (_taken == _held.size()) {
                _held.clear();
                _taken = 0;
            }
            tell = _refused && may_tell;
            _refused = _refused && !tell;
        }
        const int value = *static_cast<int*>(sample->data);
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

    std::unique_ptr<mw::ReaderPort> port;
    std::function<void()> on_admit;
    std::atomic<std::size_t> capacity;
    std::atomic<Admission> answer{Admission::SLOT};  // what it says when there is room
    std::atomic<int> refuse_next{0};                 // so many times it says FULL all the same, and will not tell of room
    std::atomic<int> refusals{0};
    std::atomic<int> lost{0};
    std::vector<std::int64_t> numbers;  // of those taken; for the one thread that takes

private:
    Admission admit_locked() {
        EXPECT_FALSE(closed) << "delivery after close";
        if (refuse_next > 0) {
            --refuse_next;
            return Admission::FULL;
        }
        if (answer == Admission::SLOT && _held.size() - _taken + _reserved >= capacity) {
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
        ++wanted;
        return true;
    }

    std::vector<mw::Sample*> _held;
    std::size_t _taken = 0;  // of those, from the front
    std::size_t _reserved = 0;
    bool _refused = false;
};

class FakeWriter : public Listening<mw::PeerSink> {
public:
    FakeWriter(Domain& domain, const Wish& wish) {
        DDS_DataWriterQos qos;
        port = domain.port->make_writer(wish.settings<mw::WriterSettings>(domain, qos), domain.code, domain.failure);
    }
    ~FakeWriter() { close(); }
    DDS_ReturnCode_t enable() { return port->enable(*this); }
    void close() {
        if (port) {
            port->close();
        }
        closed = true;
    }
    DDS_ReturnCode_t write(int value, DDS_Duration_t patience = DDS_DURATION_ZERO, int related = 0) {
        mw::WriteRequest request;
        request.related_identity.writer_guid = related == 0 ? DDS_GUID_UNKNOWN : guid_of(related);
        request.max_blocking_time = patience;
        return write(value, request);
    }
    DDS_ReturnCode_t write(int value, mw::WriteRequest& request) {
        request.data = &value;
        DDS_SampleIdentity_t assigned;
        bool was_addressed = false;
        const DDS_ReturnCode_t code = port->write(request, assigned, was_addressed);
        EXPECT_EQ(code == DDS_RETCODE_OK, assigned != DDS_UNKNOWN_SAMPLE_IDENTITY);
        std::lock_guard<std::mutex> lock(_mutex);
        identity = assigned;
        addressed = was_addressed;
        return code;
    }
    // 0 when the last write failed.
    std::int64_t number() const { return identity == DDS_UNKNOWN_SAMPLE_IDENTITY ? 0 : integer_of(identity.sequence_number); }

    std::unique_ptr<mw::WriterPort> port;
    DDS_SampleIdentity_t identity;  // of the last write
    bool addressed = false;
};

// A domain of its own for each test.
class EmbeddedEngineTest : public ::testing::Test {
protected:
    std::unique_ptr<FakeWriter> writer(const Wish& wish = Wish()) { return enabled(std::make_unique<FakeWriter>(_domain, wish)); }
    std::unique_ptr<FakeReader> reader(const Wish& wish = Wish(), std::size_t room = ROOMY) {
        return enabled(std::make_unique<FakeReader>(_domain, wish, room));
    }
    template <typename Fake>
    std::unique_ptr<Fake> enabled(std::unique_ptr<Fake> made) {
        EXPECT_EQ(DDS_RETCODE_OK, _domain.code) << _domain.failure;
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

TEST_F(EmbeddedEngineTest, guids_are_generated_or_granted_and_belong_to_one_endpoint_of_the_domain_at_a_time) {
    std::set<std::string> seen;
    for (int round = 0; round < 100; ++round) {
        const FakeWriter writer(_domain, Wish());
        const FakeReader reader(_domain, Wish());
        EXPECT_EQ(_domain.port->guid(), writer.port->info().participant_guid);
        for (const DDS_GUID_t& guid : {writer.port->info().guid, reader.port->info().guid}) {
            EXPECT_NE(DDS_GUID_AUTO, guid);
            EXPECT_TRUE(seen.insert(std::string(guid.value, guid.value + 16)).second);
        }
    }
    const Wish mine = Wish().named(guid_of(1));
    auto owner = writer(mine);
    EXPECT_EQ(DDS_RETCODE_OK, owner->write(1));
    EXPECT_EQ(guid_of(1), owner->identity.writer_guid);
    EXPECT_EQ(nullptr, FakeReader(_domain, mine).port);
    EXPECT_EQ(DDS_RETCODE_PRECONDITION_NOT_MET, _domain.code);
    EXPECT_NE(std::string::npos, _domain.failure.find("77000000000000000000000000000001")) << _domain.failure;
    EXPECT_EQ(nullptr, FakeWriter(_domain, mine).port) << "the refused one must not have given the GUID back";
    Domain elsewhere(next_domain());
    EXPECT_NE(nullptr, FakeWriter(elsewhere, mine).port);
    owner->close();
    EXPECT_NE(nullptr, FakeWriter(_domain, mine).port) << "closed, though not destroyed";
    EXPECT_NE(nullptr, FakeReader(_domain, mine).port) << "the one before was never enabled";
    EXPECT_EQ(nullptr, FakeWriter(_domain, Wish().named(DDS_GUID_UNKNOWN)).port);
    EXPECT_EQ(DDS_RETCODE_BAD_PARAMETER, _domain.code);
    EXPECT_EQ(guid_of(9), FakeReader(_domain, Wish().routed(9)).port->info().partner_guid);

    auto sender = writer();
    FakeReader far_one(elsewhere, Wish());
    EXPECT_EQ(DDS_RETCODE_OK, far_one.enable());
    EXPECT_EQ("", far_one.events()) << "another domain number";
    mw::WriteRequest last;
    last.sequence_number = {0x7fffffff, 0xfffffffe};
    EXPECT_EQ(DDS_RETCODE_OK, sender->write(1, last));
    EXPECT_EQ(DDS_RETCODE_OUT_OF_RESOURCES, sender->write(1)) << "the numbers are used up";

    DDS_DataReaderQos qos;
    const mw::ReaderSettings settings = Wish().reader_settings(_domain, qos);
    qos.durability.kind = DDS_TRANSIENT_DURABILITY_QOS;
    EXPECT_EQ(nullptr, _domain.port->make_reader(settings, _domain.code, _domain.failure));
    EXPECT_EQ(DDS_RETCODE_UNSUPPORTED, _domain.code);
}

// One letter a reader: S takes, F is full, b is full and best effort, f filters it out, u has no use for it, m has no memory.
TEST_F(EmbeddedEngineTest, a_write_reaches_all_or_none) {
    const struct {
        const char* readers;
        DDS_ReturnCode_t code;
        bool addressed;
    } CASES[] = {
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
            readers.push_back(reader(letter == 'b' ? Wish().best_effort() : Wish(), letter == 'F' || letter == 'b' ? 0 : 9));
            const std::size_t special = std::string("fum").find(letter);
            const Admission answers[] = {Admission::FILTERED, Admission::UNWANTED, Admission::NO_MEMORY};
            readers.back()->answer = special == std::string::npos ? Admission::SLOT : answers[special];
        }
        EXPECT_EQ(row.code, sender->write(5));
        EXPECT_EQ(row.addressed, sender->addressed);
        EXPECT_EQ(row.code == DDS_RETCODE_OK ? 1 : 0, sender->number());
        for (std::size_t index = 0; index < letters.size(); ++index) {
            const bool stored = row.code == DDS_RETCODE_OK && letters[index] == 'S';
            EXPECT_EQ(stored ? std::vector<int>{5} : std::vector<int>(), readers[index]->take_all()) << index;
            EXPECT_EQ(stored ? 2 : 1, readers[index]->announced) << index << ": for the match, and for the sample";
            EXPECT_EQ(row.code == DDS_RETCODE_OK && letters[index] == 'b' ? 1 : 0, readers[index]->lost) << index;
        }
    }
}

TEST_F(EmbeddedEngineTest, a_route_goes_with_its_last_reader_and_the_others_stay) {
    auto sender = writer();
    auto everything = reader();
    std::vector<std::unique_ptr<FakeReader>> routed;
    routed.push_back(reader(Wish().routed(1)));
    routed.push_back(reader(Wish().routed(1)));
    for (int value = 3; value > 0; --value) {
        for (const int related : {0, 1, 2}) {
            EXPECT_EQ(DDS_RETCODE_OK, sender->write(value * 10 + related, DDS_DURATION_ZERO, related));
            EXPECT_EQ(value * 10 + related, everything->take());
        }
        for (const auto& each : routed) {
            EXPECT_EQ(std::vector<int>{value * 10 + 1}, each->take_all());
        }
        routed.resize(routed.empty() ? 0 : routed.size() - 1);
    }
}

// Nobody will tell of it: the writer must look a second time once it knows what it would sleep on.
TEST_F(EmbeddedEngineTest, room_that_comes_between_the_refusal_and_the_sleep_is_found) {
    for (const bool alone : {true, false}) {
        auto sender = writer();
        auto other = alone ? nullptr : reader();
        auto receiver = reader();
        receiver->refuse_next = 1;
        EXPECT_EQ(DDS_RETCODE_OK, sender->write(1, LONG_TIME));
        receiver->refuse_next = 1;
        EXPECT_EQ(DDS_RETCODE_TIMEOUT, sender->write(2)) << "no patience, no second look";
        EXPECT_EQ(std::vector<int>{1}, receiver->take_all());
    }
}

// A claim that comes to nothing makes a reader look full for a moment. Who was refused then is not told of room by the reader.
TEST_F(EmbeddedEngineTest, who_was_refused_for_the_sake_of_an_abandoned_claim_gets_the_room_after_all) {
    const Wish kept = Wish().kept();
    for (const bool owed : {true, false}) {
        SCOPED_TRACE(owed ? "a sample from before the reader's time" : "a write");
        auto other = owed ? writer(kept) : writer();
        EXPECT_EQ(DDS_RETCODE_OK, other->write(1));
        EXPECT_EQ(DDS_RETCODE_OK, other->write(2));
        auto wanted = owed ? reader(kept, 1) : reader(Wish(), 1);
        EXPECT_EQ(owed ? 1 : -1, wanted->take(false));
        auto claimer = writer(kept);
        auto full = reader(kept, 0);  // owes `other` nothing but refusals; volatile writers do not match it
        std::future<DDS_ReturnCode_t> refused;
        full->on_admit = [&] {  // `wanted` is claimed now
            const int before = wanted->refusals;
            refused = std::async(std::launch::async, [&] {
                if (!owed) {
                    return other->write(2, LONG_TIME);
                }
                wanted->port->room_freed();
                return DDS_RETCODE_OK;
            });
            EXPECT_TRUE(eventually([&] { return wanted->refusals >= before + (owed ? 1 : 2); }));
            full->on_admit = nullptr;
        };
        EXPECT_EQ(DDS_RETCODE_TIMEOUT, claimer->write(9));
        EXPECT_EQ(DDS_RETCODE_OK, refused.get());
        EXPECT_EQ(std::vector<int>{2}, wanted->take_all());
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
                // Every fourth has no patience, and tries again: its failures must leave no gap.
                DDS_ReturnCode_t code = DDS_RETCODE_TIMEOUT;
                while (code == DDS_RETCODE_TIMEOUT) {
                    code = sender->write(thread * WRITES + index, index % 4 == 0 ? DDS_DURATION_ZERO : LONG_TIME);
                }
                failed += code == DDS_RETCODE_OK ? 0 : 1;
            }
        });
    }
    std::vector<int> arrived;
    const auto drain = [&] {
        const std::vector<int> more = narrow->take_all();
        arrived.insert(arrived.end(), more.begin(), more.end());
        return arrived.size() == THREADS * WRITES;
    };
    EXPECT_TRUE(eventually(drain, std::chrono::seconds(60)));
    narrow->close();  // after a failure: let the writers go
    std::for_each(threads.begin(), threads.end(), [](std::thread& thread) { thread.join(); });
    EXPECT_EQ(0, failed);
    EXPECT_EQ(arrived, wide->take_all());
    std::vector<std::int64_t> contiguous(THREADS * WRITES);
    std::iota(contiguous.begin(), contiguous.end(), 1);
    EXPECT_EQ(contiguous, narrow->numbers);
    EXPECT_EQ(contiguous, wide->numbers);
    std::sort(arrived.begin(), arrived.end());
    EXPECT_EQ(arrived.end(), std::adjacent_find(arrived.begin(), arrived.end()));
}

TEST_F(EmbeddedEngineTest, a_late_reader_gets_what_a_transient_local_writer_keeps) {
    const Wish kept = Wish().kept();
    const struct {
        const char* name;
        Wish writer;
        Wish reader;
        std::size_t room;
        int refuses;               // so many times, although it has room
        std::vector<int> at_once;  // of 1 to 5; the odd ones are related to 1, the even ones to 2
        std::vector<int> later;    // as room comes
        int lost;
    } CASES[] = {
        {"all", kept, kept, ROOMY, 0, {1, 2, 3, 4, 5}, {}, 0},
        {"the last three", kept.kept(3), kept, ROOMY, 0, {3, 4, 5}, {}, 0},
        {"bounded", kept.kept(4, 2), kept, ROOMY, 0, {4, 5}, {}, 0},
        {"a volatile reader", kept, Wish(), ROOMY, 0, {}, {}, 0},
        {"a small reader", kept, kept, 2, 0, {1, 2}, {3, 4, 5}, 0},
        {"a reader that refuses once", kept, kept, ROOMY, 1, {}, {1, 2, 3, 4, 5}, 0},
        {"a small best-effort reader", kept, kept.best_effort(), 2, 0, {1, 2}, {}, 3},
        {"a routed reader", kept, kept.routed(1), ROOMY, 0, {1, 3, 5}, {}, 0},
        {"a small routed reader", kept, kept.routed(2), 1, 0, {2}, {4}, 0},
    };
    for (const auto& row : CASES) {
        SCOPED_TRACE(row.name);
        auto sender = writer(row.writer);
        for (int value = 1; value <= 5; ++value) {
            EXPECT_EQ(DDS_RETCODE_OK, sender->write(value, DDS_DURATION_ZERO, value % 2 == 1 ? 1 : 2));
        }
        FakeReader late(_domain, row.reader, row.room);
        late.refuse_next = row.refuses;
        EXPECT_EQ(DDS_RETCODE_OK, late.enable());
        EXPECT_EQ(1, late.announced) << "once for the match and all that came with it";
        EXPECT_EQ(row.lost, late.lost);
        const bool owes = !row.later.empty();
        EXPECT_EQ(owes ? DDS_RETCODE_TIMEOUT : DDS_RETCODE_OK, sender->port->wait_for_acknowledgments(DDS_DURATION_ZERO));
        EXPECT_EQ(owes ? DDS_RETCODE_TIMEOUT : DDS_RETCODE_OK, sender->write(6, DDS_DURATION_ZERO, row.reader.route));
        for (const int value : row.at_once) {
            EXPECT_EQ(value, late.take(false));
        }
        const int announced = late.announced;
        late.port->room_freed();
        late.capacity = ROOMY;
        late.port->room_freed();
        EXPECT_EQ(owes, late.announced > announced);
        EXPECT_EQ(DDS_RETCODE_OK, owes ? sender->write(6, DDS_DURATION_ZERO, row.reader.route) : DDS_RETCODE_OK);
        std::vector<int> expected = row.later;
        expected.push_back(6);
        EXPECT_EQ(row.lost == 0 ? expected : std::vector<int>(), late.take_all()) << "in order, the new one last";
        EXPECT_EQ(DDS_RETCODE_OK, sender->port->wait_for_acknowledgments(DDS_DURATION_ZERO));
    }
}

TEST_F(EmbeddedEngineTest, who_waits_for_a_backlog_wakes_when_it_is_settled_or_an_end_leaves) {
    const struct {
        const char* name;
        std::function<void(FakeWriter&, FakeReader&)> release;
        DDS_ReturnCode_t code;
        std::vector<int> expected;
    } CASES[] = {
        {"room", [](FakeWriter&, FakeReader& late) { late.capacity = 8, late.port->room_freed(); }, DDS_RETCODE_OK, {1, 2, 3, 4}},
        {"the reader leaves", [](FakeWriter&, FakeReader& late) { late.close(); }, DDS_RETCODE_OK, {1}},
        {"the writer leaves", [](FakeWriter& sender, FakeReader&) { sender.close(); }, DDS_RETCODE_ALREADY_DELETED, {1}},
    };
    for (const auto& row : CASES) {
        SCOPED_TRACE(row.name);
        auto sender = writer(Wish().kept());
        for (int value = 1; value <= 3; ++value) {
            EXPECT_EQ(DDS_RETCODE_OK, sender->write(value));
        }
        auto late = reader(Wish().kept(), 1);
        EXPECT_EQ(DDS_RETCODE_TIMEOUT, sender->port->wait_for_acknowledgments({0, 1000000}));
        const int copies = _domain.pool.copies;
        auto writing = std::async(std::launch::async, [&] { return sender->write(4, LONG_TIME); });
        auto waiting = std::async(std::launch::async, [&] { return sender->port->wait_for_acknowledgments(LONG_TIME); });
        // As far as it can be seen: asleep, or about to look for the last time before.
        EXPECT_TRUE(eventually([&] { return _domain.pool.copies > copies; }));
        EXPECT_EQ(std::future_status::timeout, waiting.wait_for(std::chrono::milliseconds(5)));
        row.release(*sender, *late);
        EXPECT_EQ(row.code, writing.get());
        EXPECT_EQ(row.code, waiting.get());
        EXPECT_EQ(row.expected, late->take_all());
    }
}

TEST_F(EmbeddedEngineTest, a_bounded_keep_all_history_that_is_full_blocks_until_the_deadline_or_close) {
    auto sender = writer(Wish().kept(0, 2));
    EXPECT_EQ(DDS_RETCODE_OK, sender->write(1));
    EXPECT_EQ(DDS_RETCODE_OK, sender->write(2));
    EXPECT_EQ(DDS_RETCODE_TIMEOUT, sender->write(3));
    EXPECT_EQ(DDS_RETCODE_TIMEOUT, sender->write(3, {0, 20000000}));
    auto blocked = std::async(std::launch::async, [&] { return sender->write(3, LONG_TIME); });
    EXPECT_TRUE(eventually([&] { return _domain.pool.live == 3; })) << "it has made its copy";
    sender->close();
    EXPECT_EQ(DDS_RETCODE_ALREADY_DELETED, blocked.get());
    EXPECT_EQ(0, _domain.pool.live) << "close gives back what was kept";
}

TEST_F(EmbeddedEngineTest, where_memory_is_short_an_endpoint_is_refused_and_leaves_nothing_behind) {
    auto sender = writer(Wish().kept());
    EXPECT_EQ(DDS_RETCODE_OK, sender->write(1, DDS_DURATION_ZERO, 1));
    FakeReader sink(_domain, Wish());  // only lends its upcalls
    DDS_DataReaderQos reader_qos;
    DDS_DataWriterQos writer_qos;
    const mw::ReaderSettings reader_settings = Wish().kept().routed(1).named(guid_of(5)).reader_settings(_domain, reader_qos);
    const auto writer_settings = Wish().named(guid_of(6)).settings<mw::WriterSettings>(_domain, writer_qos);
    // @return what is left of the events when each match has taken its goodbye along.
    const auto less_pairs = [](std::string events) {
        while (events.compare(0, 2, "+-") == 0) {
            events.erase(0, 2);
        }
        return events;
    };
    const auto attempts = [&](auto make) {
        long refused = 0;
        const long failures = fail_each_allocation([&] {
            _domain.code = DDS_RETCODE_OK;
            const auto port = make();
            _domain.code = port ? port->enable(sink) : _domain.code;
            refused += _domain.code == DDS_RETCODE_OUT_OF_RESOURCES ? 1 : 0;
        });
        EXPECT_EQ(DDS_RETCODE_OK, _domain.code) << "the run without a failure";
        EXPECT_EQ(failures, refused);
        EXPECT_GT(failures, 5);
    };
    for (const std::size_t room : {ROOMY, std::size_t(0)}) {  // zero: the replay stays owed
        sink.capacity = room;
        attempts([&] { return _domain.port->make_reader(reader_settings, _domain.code, _domain.failure); });
        EXPECT_EQ(DDS_RETCODE_OK, sender->port->wait_for_acknowledgments(DDS_DURATION_ZERO))
            << "nothing is owed to those who failed";
        EXPECT_EQ("", less_pairs(sender->events()));
    }
    auto witness = reader();
    witness->events();
    attempts([&] { return _domain.port->make_writer(writer_settings, _domain.code, _domain.failure); });
    EXPECT_EQ("", less_pairs(witness->events()));
    // The reader itself has no memory for what is replayed to it.
    FakeReader poor(_domain, Wish().kept().routed(1));
    poor.answer = Admission::NO_MEMORY;
    EXPECT_EQ(DDS_RETCODE_OUT_OF_RESOURCES, poor.enable());
    poor.closed = true;
    EXPECT_EQ(DDS_RETCODE_OK, sender->write(2, DDS_DURATION_ZERO, 1));
    EXPECT_EQ(2, witness->take());
    const auto newcomer = writer();
    EXPECT_EQ("", poor.events()) << "it is not seen any more";
}

TEST(EngineSelectionTest, engines_are_found_by_name_and_refusals_say_why) {
    std::string failure;
    mw::Engine* const engine = mw::select_engine("embedded", failure);
    ASSERT_NE(nullptr, engine);
    EXPECT_EQ(engine, mw::select_engine("embedded", failure));
    EXPECT_STREQ("embedded", engine->name());
    EXPECT_FALSE(engine->leaves_process());
    const mw::EngineEntry other_abi = [](std::uint32_t) -> mw::Engine* { return nullptr; };
    const mw::EngineEntry right_one = [](std::uint32_t abi) {
        return abi == mw::ENGINE_ABI ? &embedded::embedded_engine() : nullptr;
    };
    const std::string abi = "ABI " + std::to_string(mw::ENGINE_ABI);
    const struct {
        std::function<mw::Engine*()> ask;
        std::vector<std::string> words;
    } CASES[] = {
        {[&] { return mw::select_engine("", failure); }, {"\"\"", "embedded", "fastdds"}},
        {[&] { return mw::select_engine("Embedded", failure); }, {"\"Embedded\"", "embedded", "fastdds"}},
        {[&] { return mw::open_engine_module("libnorvane_none.so", failure); },
         {"libnorvane_none.so", "cannot be opened", "install"}},
        {[&] { return mw::open_engine_module("libm.so.6", failure); }, {"libm.so.6", "norvane_engine"}},
        {[&] { return mw::engine_of_entry(other_abi, "libother.so", failure); }, {"libother.so", abi}},
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
