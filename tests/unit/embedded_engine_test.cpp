// SPDX-License-Identifier: Apache-2.0
// The embedded engine at the seam: scripted sinks and a counting pool above it, no middleware. What an application can see of it is
// in conformance/; here is what needs a reader that refuses when it is told to.
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
#include <numeric>
#include <string>
#include <thread>
#include <vector>

#include "engines/EngineModule.hpp"
#include "support/Eventually.hpp"
#include "support/ThreadState.hpp"

namespace norvane::test {
namespace {

using mw::Admission;

constexpr DDS_Duration_t LONG_TIME = {60, 0};
constexpr std::size_t ROOMY = 1000000;

std::int64_t integer_of(const DDS_SequenceNumber_t& number) { return (static_cast<std::int64_t>(number.high) << 32) | number.low; }

// Samples are integers. Counts what is alive, so that a test sees what was kept.
class IntegerPool : public mw::SamplePool {
public:
    virtual ~IntegerPool() { EXPECT_EQ(0, live) << "samples were not given back"; }
    mw::Sample* make_copy(const void* data) noexcept override {
        mw::Sample* sample = new mw::Sample;
        sample->pool = this;
        sample->data = new int(*static_cast<const int*>(data));
        ++live;
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

private:
    DDS_TypeOperations _type = {};
};

// A participant, and the pool of all its endpoints: it outlives them, as samples outlive their writer.
struct Domain {
    explicit Domain(DDS_DomainId_t domain_id) {
        mw::DomainSettings settings;
        settings.domain_id = domain_id;
        port = embedded::embedded_engine().join(settings, code, failure);
    }
    IntegerPool pool;
    std::unique_ptr<mw::DomainPort> port;
    DDS_ReturnCode_t code = DDS_RETCODE_ERROR;
    std::string failure;
};

// What a test asks of an endpoint.
struct Wish {
    bool reliable = true;
    bool transient_local = false;

    // Settings for the engine; `qos` must outlive them.
    template <typename Settings, typename Qos>
    Settings settings(Domain& domain, Qos& qos) const {
        qos.reliability.kind = reliable ? DDS_RELIABLE_RELIABILITY_QOS : DDS_BEST_EFFORT_RELIABILITY_QOS;
        qos.durability.kind = transient_local ? DDS_TRANSIENT_LOCAL_DURABILITY_QOS : DDS_VOLATILE_DURABILITY_QOS;
        qos.history.kind = DDS_KEEP_ALL_HISTORY_QOS;
        Settings made;
        made.info.topic_name = "topic";
        made.info.type_name = "integer";
        made.qos = &qos;
        made.pool = &domain.pool;
        return made;
    }
};
const Wish PLAIN = {true, false};
const Wish BEST_EFFORT = {false, false};
const Wish KEPT = {true, true};

// A store of limited room.
class FakeReader : public mw::SampleSink {
public:
    FakeReader(Domain& domain, const Wish& wish, std::size_t room) : capacity(room) {
        DDS_DataReaderQos qos;
        port = domain.port->make_reader(wish.settings<mw::ReaderSettings>(domain, qos), domain.code, domain.failure);
    }
    ~FakeReader() {
        port->close();
        EXPECT_EQ(0U, _reserved) << "a slot was neither filled nor given back";
        take_all();
    }

    bool peer_changed(const mw::PeerEvent&) noexcept override {
        ++peers;
        return false;
    }
    void announce() noexcept override { ++announced; }
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
        ++lost;
        return false;
    }

    // Takes the oldest sample, and tells the engine of the room if that was refused some. @return its value; -1 when there is none.
    int take(bool may_tell = true) {
        mw::Sample* sample = nullptr;
        bool tell = false;
        {
            std::lock_guard<std::mutex> lock(_mutex);
            if (_held.empty()) {
                return -1;
            }
            sample = _held.front();
            _held.pop_front();
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
    std::atomic<int> announced{0};
    std::atomic<int> peers{0};
    std::vector<std::int64_t> numbers;  // of those taken; for the one thread that takes

private:
    Admission admit_locked() {
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
        return true;
    }

    std::mutex _mutex;
    std::deque<mw::Sample*> _held;
    std::size_t _reserved = 0;
    bool _refused = false;
};

class FakeWriter : public mw::PeerSink {
public:
    FakeWriter(Domain& domain, const Wish& wish) {
        DDS_DataWriterQos qos;
        port = domain.port->make_writer(wish.settings<mw::WriterSettings>(domain, qos), domain.code, domain.failure);
    }
    ~FakeWriter() { port->close(); }
    bool peer_changed(const mw::PeerEvent&) noexcept override { return false; }
    void announce() noexcept override {}
    DDS_ReturnCode_t write(int value, DDS_Duration_t patience = DDS_DURATION_ZERO) {
        mw::WriteRequest request;
        request.max_blocking_time = patience;
        return write(value, request);
    }
    DDS_ReturnCode_t write(int value, mw::WriteRequest& request) {
        request.data = &value;
        DDS_SampleIdentity_t assigned;
        bool was_addressed = false;
        const DDS_ReturnCode_t code = port->write(request, assigned, was_addressed);
        EXPECT_EQ(code == DDS_RETCODE_OK, assigned != DDS_UNKNOWN_SAMPLE_IDENTITY);
        addressed = was_addressed;
        number = code == DDS_RETCODE_OK ? integer_of(assigned.sequence_number) : 0;
        return code;
    }

    std::unique_ptr<mw::WriterPort> port;
    std::atomic<std::int64_t> number{0};  // of the last write; 0 when it failed
    std::atomic<bool> addressed{false};
};

// A domain of its own for each test.
class EmbeddedEngineTest : public ::testing::Test {
protected:
    std::unique_ptr<FakeWriter> writer(const Wish& wish = PLAIN) { return enabled(std::make_unique<FakeWriter>(_domain, wish)); }
    std::unique_ptr<FakeReader> reader(const Wish& wish = PLAIN, std::size_t room = ROOMY) {
        return enabled(std::make_unique<FakeReader>(_domain, wish, room));
    }
    template <typename Fake>
    std::unique_ptr<Fake> enabled(std::unique_ptr<Fake> made) {
        EXPECT_EQ(DDS_RETCODE_OK, made->port->enable(*made));
        return made;
    }
    static DDS_DomainId_t next_domain() {
        static DDS_DomainId_t next = 5000;
        return next++;
    }
    Domain _domain{next_domain()};
};

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
            readers.push_back(reader(letter == 'b' ? BEST_EFFORT : PLAIN, letter == 'F' || letter == 'b' ? 0 : 9));
            const std::size_t special = std::string("fum").find(letter);
            const Admission answers[] = {Admission::FILTERED, Admission::UNWANTED, Admission::NO_MEMORY};
            readers.back()->answer = special == std::string::npos ? Admission::SLOT : answers[special];
        }
        EXPECT_EQ(row.code, sender->write(5));
        EXPECT_EQ(row.addressed, sender->addressed);
        EXPECT_EQ(row.code == DDS_RETCODE_OK ? 1 : 0, sender->number);
        for (std::size_t index = 0; index < letters.size(); ++index) {
            const bool stored = row.code == DDS_RETCODE_OK && letters[index] == 'S';
            EXPECT_EQ(stored ? std::vector<int>{5} : std::vector<int>(), readers[index]->take_all()) << index;
            EXPECT_EQ(stored ? 1 : 0, readers[index]->announced) << index;
            EXPECT_EQ(row.code == DDS_RETCODE_OK && letters[index] == 'b' ? 1 : 0, readers[index]->lost) << index;
        }
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
    for (const bool owed : {true, false}) {
        SCOPED_TRACE(owed ? "a sample from before the reader's time" : "a write");
        auto other = owed ? writer(KEPT) : writer();
        EXPECT_EQ(DDS_RETCODE_OK, other->write(1));
        EXPECT_EQ(DDS_RETCODE_OK, other->write(2));
        auto wanted = reader(owed ? KEPT : PLAIN, 1);
        EXPECT_EQ(owed ? 1 : -1, wanted->take(false));
        auto claimer = writer(KEPT);
        auto full = reader(KEPT, 0);  // owes `other` nothing but refusals; volatile writers do not match it
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
    auto narrow = reader(PLAIN, 10);
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
    narrow->port->close();  // after a failure: let the writers go
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

TEST_F(EmbeddedEngineTest, numbers_that_are_used_up_and_a_reader_without_memory_for_a_replay_are_refused) {
    auto sender = writer(KEPT);
    FakeReader poor(_domain, KEPT, ROOMY);
    mw::WriteRequest last;
    last.sequence_number = {0x7fffffff, 0xfffffffe};
    EXPECT_EQ(DDS_RETCODE_OK, sender->write(1, last));
    EXPECT_EQ(DDS_RETCODE_OUT_OF_RESOURCES, sender->write(1));
    poor.answer = Admission::NO_MEMORY;
    EXPECT_EQ(DDS_RETCODE_OUT_OF_RESOURCES, poor.port->enable(poor));
    const int peers = poor.peers;
    const auto newcomer = writer();
    EXPECT_EQ(peers, poor.peers) << "it is seen all the same";
}

TEST_F(EmbeddedEngineTest, who_waits_for_a_backlog_wakes_when_it_is_settled_or_an_end_leaves) {
    const struct {
        const char* name;
        std::function<void(FakeWriter&, FakeReader&)> release;
        DDS_ReturnCode_t code;
        std::vector<int> expected;
    } CASES[] = {
        {"room", [](FakeWriter&, FakeReader& late) { late.capacity = 8, late.port->room_freed(); }, DDS_RETCODE_OK, {1, 2, 3, 4}},
        {"the reader leaves", [](FakeWriter&, FakeReader& late) { late.port->close(); }, DDS_RETCODE_OK, {1}},
        {"the writer leaves", [](FakeWriter& sender, FakeReader&) { sender.port->close(); }, DDS_RETCODE_ALREADY_DELETED, {1}},
    };
    for (const auto& row : CASES) {
        SCOPED_TRACE(row.name);
        auto sender = writer(KEPT);
        for (int value = 1; value <= 3; ++value) {
            EXPECT_EQ(DDS_RETCODE_OK, sender->write(value));
        }
        auto late = reader(KEPT, 1);
        EXPECT_EQ(DDS_RETCODE_TIMEOUT, sender->port->wait_for_acknowledgments({0, 1000000}));
        const int live = _domain.pool.live;
        auto writing = std::async(std::launch::async, [&] { return sender->write(4, LONG_TIME); });
        std::atomic<long> thread{0};
        auto waiting = std::async(std::launch::async, [&] {
            thread = this_thread_number();
            return sender->port->wait_for_acknowledgments(LONG_TIME);
        });
        EXPECT_TRUE(eventually([&] { return _domain.pool.live > live && is_asleep(thread); }));
        row.release(*sender, *late);
        EXPECT_EQ(row.code, writing.get());
        EXPECT_EQ(row.code, waiting.get());
        EXPECT_EQ(row.expected, late->take_all());
    }
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
}  // namespace norvane::test
