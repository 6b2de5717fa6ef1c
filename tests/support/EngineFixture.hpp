// SPDX-License-Identifier: Apache-2.0
// A test that runs on every engine: participants of the engine that its parameter names, in a domain of the test's own.
//
// What one endpoint does reaches another one in time, not at once: tests wait for what they can observe.
#ifndef NORVANE_TESTS_SUPPORT_ENGINEFIXTURE_HPP
#define NORVANE_TESTS_SUPPORT_ENGINEFIXTURE_HPP

#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <stdexcept>
#include <string>
#include <vector>

#include "norvane/dds/DomainParticipantFactory.hpp"
#include "support/DomainNumber.hpp"

namespace norvane::test {

/// The engines that the suites run on: those that this build has.
inline std::vector<std::string> engine_names() {
#ifdef NORVANE_TESTS_FASTDDS
    return {"embedded", "fastdds"};
#else
    return {"embedded"};
#endif
}

inline std::string engine_of_test(const ::testing::TestParamInfo<std::string>& info) { return info.param; }

inline DDSDomainParticipantFactory& factory() { return *DDSDomainParticipantFactory::get_instance(); }

class EngineFixture : public ::testing::TestWithParam<std::string> {
protected:
    EngineFixture() : _participant(*join()) {}
    /// Whatever a test left behind goes here.
    ~EngineFixture() override {
        for (DDSDomainParticipant* participant : _participants) {
            EXPECT_EQ(DDS_RETCODE_OK, participant->delete_contained_entities());
            EXPECT_EQ(DDS_RETCODE_OK, factory().delete_participant(participant));
        }
    }

    static DDS_DomainParticipantQos participant_qos(const std::string& engine) {
        DDS_DomainParticipantQos qos;
        DDSPropertyQosPolicyHelper::add_property(qos.property, "norvane.engine", engine.c_str(), DDS_BOOLEAN_FALSE);
        // Tests stay on this machine. (An engine without a network has no use for it.)
        DDSPropertyQosPolicyHelper::add_property(qos.property, "norvane.fastdds.interfaces", "127.0.0.1", DDS_BOOLEAN_FALSE);
#ifndef NORVANE_TESTS_BETWEEN_PROCESSES
        // Nor do they meet tests in other processes.
        DDSPropertyQosPolicyHelper::add_property(qos.property, "norvane.fastdds.reach", "process", DDS_BOOLEAN_FALSE);
#endif
        return qos;
    }
    /// @return whether samples are encoded on their way, and a write returns before they have arrived.
    static bool encodes() { return GetParam() != "embedded"; }
    /// @return another participant in the test's domain; it goes with the test.
    DDSDomainParticipant* join() {
        DDSDomainParticipant* participant = factory().create_participant(_domain, participant_qos(GetParam()), nullptr, 0);
        if (participant == nullptr) {
            throw std::runtime_error("no participant on engine " + GetParam());
        }
        _participants.push_back(participant);
        return participant;
    }

    const DDS_DomainId_t _domain = next_domain();
    std::vector<DDSDomainParticipant*> _participants;
    DDSDomainParticipant& _participant;

private:
    static DDS_DomainId_t next_domain() {
#ifdef NORVANE_TESTS_BETWEEN_PROCESSES
        return claim_domain();
#else
        static std::atomic<unsigned> next{static_cast<unsigned>(::getpid())};
        return static_cast<DDS_DomainId_t>(next++ % 200);
#endif
    }
};

}  // namespace norvane::test

#endif
