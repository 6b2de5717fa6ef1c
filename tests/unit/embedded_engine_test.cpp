// SPDX-License-Identifier: Apache-2.0
// The embedded engine at the seam: scripted sinks and a counting pool above it, no middleware. What an application can see of it is
// in conformance/; here is what needs a reader that refuses when it is told to.
#include "engines/embedded/EmbeddedEngine.hpp"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <deque>
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
#include "middleware/TypeSamplePool.hpp"
#include "norvane/details/cxx_type.hpp"
#include "support/Eventually.hpp"
#include "support/ThreadState.hpp"

namespace norvane::test {
namespace {

using mw::Admission;

constexpr DDS_Duration_t LONG_TIME = {60, 0};
constexpr std::size_t ROOMY = 1000000;

std::int64_t integer_of(const DDS_SequenceNumber_t& number) { return (static_cast<std::int64_t>(number.high) << 32) | number.low; }

// A participant, and the pool of all its endpoints, whose samples are integers: it outlives them, as samples outlive their writer.
struct Domain {
    explicit Domain(DDS_DomainId_t domain_id) {
        auto type = std::make_shared<DDS_TypeOperations>(details::cxx_operations<int>());
        type->copy = details::copy_sample<int>;
        pool.reset(mw::TypeSamplePool::make(type));
        mw::DomainSettings settings;
        settings.domain_id = domain_id;
        port = embedded::embedded_engine().join(settings, code, failure);
    }
    mw::OwnedSamplePool pool;
    std::unique_ptr<mw::DomainPort> port;
    DDS_ReturnCode_t code = DDS_RETCODE_ERROR;
    std::string failure;
};

enum Wish { PLAIN, BEST_EFFORT, KEPT };  // the last two: reliability and durability other than those of the first

// Settings for the engine; `qos` must outlive them.
template <typename Settings, typename Qos>
Settings settings_of(Domain& domain, Wish wish, Qos& qos) {
    qos.reliability.kind = wish == BEST_EFFORT ? DDS_BEST_EFFORT_RELIABILITY_QOS : DDS_RELIABLE_RELIABILITY_QOS;
    qos.durability.kind = wish == KEPT ? DDS_TRANSIENT_LOCAL_DURABILITY_QOS : DDS_VOLATILE_DURABILITY_QOS;
    qos.history.kind = DDS_KEEP_ALL_HISTORY_QOS;
    Settings made;
    made.info.topic_name = "topic";
    made.info.type_name = "integer";
    made.qos = &qos;
    made.pool = domain.pool.get();
    return made;
}

// A store of limited room.
class FakeReader : public mw::SampleSink {
public:
    FakeReader(Domain& domain, Wish wish, std::size_t room) : capacity(room) {
        DDS_DataReaderQos qos;
        port = domain.port->make_reader(settings_of<mw::ReaderSettings>(domain, wish, qos), domain.code, domain.failure);
    }
    ~FakeReader() {
        port->close();
        EXPECT_EQ(0U, _reserved) << "a slot was neither filled nor given back";
        take_all();
    }

    bool peer_changed(const mw::PeerEvent&) noexcept override { return ++peers == 0; }
    void announce() noexcept override { ++announced; }
    Admission admit(const mw::SampleMetadata&, const void*) noexcept override {
        if (on_admit) {
            on_admit();
        }
        const Lock lock(_mutex);
        if (refuse_next > 0) {
            --refuse_next;
            return Admission::FULL;
        }
        if (answer == Admission::SLOT && _held.size() + _reserved >= capacity) {
            ++refusals;
            _refused = true;
            return Admission::FULL;
        }
        _reserved += answer == Admission::SLOT ? 1 : 0;
        return answer;
    }
    void abandon() noexcept override {
        const Lock lock(_mutex);
        --_reserved;
    }
    bool commit(mw::SampleReference sample, platform::WakeBatch&) noexcept override {
        const Lock lock(_mutex);
        --_reserved;
        _held.push_back(sample.release());
        return true;
    }
    Admission deliver(mw::SampleReference& sample, platform::WakeBatch& wake, bool& announce) noexcept override {
        const Admission said = admit(sample->metadata, sample->data);
        announce = said == Admission::SLOT && commit(std::move(sample), wake);
        return said;
    }
    bool sample_lost() noexcept override { return ++lost == 0; }

    // Takes the oldest sample, and tells the engine of the room if that was refused some. @return its value; -1 when there is none.
    int take(bool may_tell = true) {
        mw::Sample* sample = nullptr;
        bool tell = false;
        {
            const Lock lock(_mutex);
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
    typedef std::lock_guard<std::mutex> Lock;

    std::mutex _mutex;
    std::deque<mw::Sample*> _held;
    std::size_t _reserved = 0;
    bool _refused = false;
};

class FakeWriter : public mw::PeerSink {
public:
    FakeWriter(Domain& domain, Wish wish) {
        DDS_DataWriterQos qos;
        port = domain.port->make_writer(settings_of<mw::WriterSettings>(domain, wish, qos), domain.code, domain.failure);
    }
    ~FakeWriter() { port->close(); }
    bool peer_changed(const mw::PeerEvent&) noexcept override { return false; }
    void announce() noexcept override {}
    DDS_ReturnCode_t write(int value, DDS_Duration_t patience = DDS_DURATION_ZERO,
                           DDS_SequenceNumber_t wanted = DDS_AUTO_SEQUENCE_NUMBER) {
        mw::WriteRequest request;
        request.max_blocking_time = patience;
        request.sequence_number = wanted;
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
    std::unique_ptr<FakeWriter> writer(Wish wish = PLAIN) { return enabled(std::make_unique<FakeWriter>(_domain, wish)); }
    std::unique_ptr<FakeReader> reader(Wish wish = PLAIN, std::size_t room = ROOMY) {
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
        {"b", DDS_RETCODE_OK, true},
        {"f", DDS_RETCODE_OK, false},
        {"u", DDS_RETCODE_OK, true},
        {"m", DDS_RETCODE_OUT_OF_RESOURCES, false},
        {"SF", DDS_RETCODE_TIMEOUT, false},
        {"FS", DDS_RETCODE_TIMEOUT, false},
        {"SSbfu", DDS_RETCODE_OK, true},
        {"bSF", DDS_RETCODE_TIMEOUT, false},
        {"bSm", DDS_RETCODE_OUT_OF_RESOURCES, false},
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
    constexpr int WRITES = 3200;
    auto sender = writer();
    auto narrow = reader(PLAIN, 10);
    auto wide = reader();
    std::atomic<int> next{0};
    std::vector<std::future<void>> threads(8);
    for (std::future<void>& thread : threads) {
        thread = std::async(std::launch::async, [&] {
            for (int value = next++; value < WRITES; value = next++) {
                // Every fourth has no patience, and tries again: its failures must leave no gap.
                const DDS_Duration_t patience = value % 4 == 0 ? DDS_DURATION_ZERO : LONG_TIME;
                DDS_ReturnCode_t code = DDS_RETCODE_TIMEOUT;
                while (code == DDS_RETCODE_TIMEOUT) {
                    code = sender->write(value, patience);
                }
                EXPECT_EQ(DDS_RETCODE_OK, code);
            }
        });
    }
    std::vector<int> arrived;
    EXPECT_TRUE(eventually(
        [&] {
            const std::vector<int> more = narrow->take_all();
            arrived.insert(arrived.end(), more.begin(), more.end());
            return arrived.size() == WRITES;
        },
        std::chrono::seconds(60)));
    narrow->port->close();  // after a failure: let the writers go
    threads.clear();
    EXPECT_EQ(arrived, wide->take_all());
    std::vector<std::int64_t> contiguous(WRITES);
    std::iota(contiguous.begin(), contiguous.end(), 1);
    EXPECT_EQ(contiguous, narrow->numbers);
    EXPECT_EQ(contiguous, wide->numbers);
    EXPECT_EQ(WRITES, std::set<int>(arrived.begin(), arrived.end()).size());
}

TEST_F(EmbeddedEngineTest, numbers_that_are_used_up_and_a_reader_without_memory_for_a_replay_are_refused) {
    auto sender = writer(KEPT);
    FakeReader poor(_domain, KEPT, ROOMY);
    EXPECT_EQ(DDS_RETCODE_OK, sender->write(1, DDS_DURATION_ZERO, {0x7fffffff, 0xfffffffe}));
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
        std::atomic<long> threads[2] = {{0}, {0}};
        const auto in_thread = [&](int number, auto call) {
            return std::async(std::launch::async, [&threads, number, call] {
                threads[number] = this_thread_number();
                return call();
            });
        };
        auto writing = in_thread(0, [&] { return sender->write(4, LONG_TIME); });
        auto waiting = in_thread(1, [&] { return sender->port->wait_for_acknowledgments(LONG_TIME); });
        EXPECT_TRUE(eventually([&] { return is_asleep(threads[0]) && is_asleep(threads[1]); }));
        row.release(*sender, *late);
        EXPECT_EQ(row.code, writing.get());
        EXPECT_EQ(row.code, waiting.get());
        EXPECT_EQ(row.expected, late->take_all());
    }
}

TEST(EngineModule, that_is_none_or_of_another_abi_is_refused_by_name) {
    const mw::EngineEntry of_another_abi = [](std::uint32_t) -> mw::Engine* { return nullptr; };
    std::string failure;
    EXPECT_EQ(nullptr, mw::open_engine_module("libm.so.6", failure));
    EXPECT_TRUE(failure.find("libm.so.6") == 0 && failure.find("norvane_engine") != std::string::npos) << failure;
    EXPECT_EQ(nullptr, mw::engine_of_entry(of_another_abi, "libother.so", failure));
    EXPECT_TRUE(failure.find("libother.so") == 0 && failure.find("ABI " + std::to_string(mw::ENGINE_ABI)) != std::string::npos)
        << failure;
}

}  // namespace
}  // namespace norvane::test
