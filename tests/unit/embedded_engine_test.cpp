// SPDX-License-Identifier: Apache-2.0
// Room that comes or goes at the one moment at which a writer could miss it, and modules that are refused. What an application can
// see of engines is in conformance/; here a scripted sink stands in the place of a reader's store.
#include "engines/embedded/EmbeddedEngine.hpp"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <deque>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <string>
#include <utility>

#include "engines/EngineModule.hpp"
#include "middleware/TypeSamplePool.hpp"
#include "norvane/details/cxx_type.hpp"
#include "support/Eventually.hpp"

namespace norvane::test {
namespace {

using mw::Admission;

constexpr DDS_Duration_t LONG_TIME = {60, 0};

// A participant, and the pool of all its endpoints, whose samples are integers.
struct Domain {
    Domain() {
        auto type = std::make_shared<DDS_TypeOperations>(details::cxx_operations<int>());
        type->copy = details::copy_sample<int>;
        pool.reset(mw::TypeSamplePool::make(type));
        mw::DomainSettings settings;
        settings.domain_id = 5000;
        port = embedded::embedded_engine().join(settings, code, failure);
    }
    mw::OwnedSamplePool pool;
    std::unique_ptr<mw::DomainPort> port;
    DDS_ReturnCode_t code = DDS_RETCODE_ERROR;
    std::string failure;
};

// Settings for the engine; `qos` must outlive them.
template <typename Settings, typename Qos>
Settings settings_of(Domain& domain, bool kept, Qos& qos) {
    qos.reliability.kind = DDS_RELIABLE_RELIABILITY_QOS;
    qos.durability.kind = kept ? DDS_TRANSIENT_LOCAL_DURABILITY_QOS : DDS_VOLATILE_DURABILITY_QOS;
    qos.history.kind = DDS_KEEP_ALL_HISTORY_QOS;
    Settings made;
    made.info.topic_name = "topic";
    made.info.type_name = "integer";
    made.qos = &qos;
    made.pool = domain.pool.get();
    return made;
}

class FakeReader : public mw::SampleSink {
public:
    FakeReader(Domain& domain, bool kept, std::size_t room) : _room(room) {
        DDS_DataReaderQos qos;
        port = domain.port->make_reader(settings_of<mw::ReaderSettings>(domain, kept, qos), domain.code, domain.failure);
        EXPECT_EQ(DDS_RETCODE_OK, port->enable(*this));
    }
    ~FakeReader() {
        port->close();
        EXPECT_EQ(0U, _reserved) << "a slot was neither filled nor given back";
    }
    bool peer_changed(const mw::PeerEvent&) noexcept override { return false; }
    void announce() noexcept override {}
    bool sample_lost() noexcept override { return false; }
    Admission admit(const mw::SampleMetadata&, const void*) noexcept override {
        if (on_admit) {
            on_admit();
        }
        const std::lock_guard<std::mutex> lock(_mutex);
        if (refuse_next || _held.size() + _reserved >= _room) {
            refuse_next = false;
            ++refusals;
            return Admission::FULL;
        }
        ++_reserved;
        return Admission::SLOT;
    }
    void abandon() noexcept override {
        const std::lock_guard<std::mutex> lock(_mutex);
        --_reserved;
    }
    bool commit(mw::SampleReference sample, platform::WakeBatch&) noexcept override {
        const std::lock_guard<std::mutex> lock(_mutex);
        --_reserved;
        _held.push_back(*static_cast<int*>(sample->data));
        return false;
    }
    Admission deliver(mw::SampleReference& sample, platform::WakeBatch& wake, bool&) noexcept override {
        const Admission answer = admit(sample->metadata, sample->data);
        if (answer == Admission::SLOT) {
            commit(std::move(sample), wake);
        }
        return answer;
    }
    // Takes the oldest value, and does not tell the engine of the room.
    int take() {
        const std::lock_guard<std::mutex> lock(_mutex);
        const int value = _held.empty() ? -1 : _held.front();
        _held.erase(_held.begin(), _held.begin() + (_held.empty() ? 0 : 1));
        return value;
    }

    std::unique_ptr<mw::ReaderPort> port;
    std::function<void()> on_admit;
    bool refuse_next = false;  // once, all the same
    std::atomic<int> refusals{0};

private:
    const std::size_t _room;
    std::mutex _mutex;
    std::deque<int> _held;
    std::size_t _reserved = 0;
};

class FakeWriter : public mw::PeerSink {
public:
    FakeWriter(Domain& domain, bool kept) {
        DDS_DataWriterQos qos;
        port = domain.port->make_writer(settings_of<mw::WriterSettings>(domain, kept, qos), domain.code, domain.failure);
        EXPECT_EQ(DDS_RETCODE_OK, port->enable(*this));
    }
    ~FakeWriter() { port->close(); }
    bool peer_changed(const mw::PeerEvent&) noexcept override { return false; }
    void announce() noexcept override {}
    DDS_ReturnCode_t write(int value, DDS_Duration_t patience = DDS_DURATION_ZERO) {
        mw::WriteRequest request;
        request.max_blocking_time = patience;
        request.data = &value;
        DDS_SampleIdentity_t assigned;
        bool was_addressed = false;
        return port->write(request, assigned, was_addressed);
    }

    std::unique_ptr<mw::WriterPort> port;
};

// Nothing will tell of it: the writer must look a second time once it knows what it would sleep on.
TEST(EmbeddedEngine, finds_room_that_comes_between_the_refusal_and_the_sleep) {
    Domain domain;
    FakeWriter sender(domain, false);
    FakeReader receiver(domain, false, 9);
    receiver.refuse_next = true;
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(DDS_RETCODE_OK, sender.write(1, LONG_TIME));
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(30)) << "woken by its own deadline";
    receiver.refuse_next = true;
    EXPECT_EQ(DDS_RETCODE_TIMEOUT, sender.write(2)) << "no patience, no second look";
    EXPECT_EQ(1, receiver.take());
}

// A claim that comes to nothing makes a reader look full for a moment. It does not tell of room that it never had.
TEST(EmbeddedEngine, gives_the_room_of_an_abandoned_claim_to_what_was_refused_for_its_sake) {
    for (const bool owed : {true, false}) {
        SCOPED_TRACE(owed ? "a sample from before the reader's time" : "a write");
        Domain domain;
        FakeWriter other(domain, owed);
        EXPECT_EQ(DDS_RETCODE_OK, other.write(1));
        EXPECT_EQ(DDS_RETCODE_OK, other.write(2));
        FakeReader wanted(domain, owed, 1);
        EXPECT_EQ(owed ? 1 : -1, wanted.take());
        FakeWriter claimer(domain, true);
        FakeReader full(domain, true, 0);
        std::future<DDS_ReturnCode_t> refused;
        full.on_admit = [&] {  // `wanted` is claimed now
            const int before = wanted.refusals;
            refused = std::async(std::launch::async, [&] {
                if (!owed) {
                    return other.write(2, LONG_TIME);
                }
                wanted.port->room_freed();
                return DDS_RETCODE_OK;
            });
            EXPECT_TRUE(eventually([&] { return wanted.refusals >= before + (owed ? 1 : 2); }));
            full.on_admit = nullptr;
        };
        EXPECT_EQ(DDS_RETCODE_TIMEOUT, claimer.write(9));
        ASSERT_EQ(std::future_status::ready, refused.wait_for(std::chrono::seconds(10)));
        EXPECT_EQ(DDS_RETCODE_OK, refused.get());
        EXPECT_EQ(2, wanted.take());
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
