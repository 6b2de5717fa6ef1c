// SPDX-License-Identifier: Apache-2.0
// Fixture: a participant in a domain of its own, seen through its double.
#ifndef NORVANE_TESTS_SUPPORT_DOUBLEDDOMAIN_HPP
#define NORVANE_TESTS_SUPPORT_DOUBLEDDOMAIN_HPP

#include <atomic>
#include <memory>
#include <string>

#include <gtest/gtest.h>

#include "Doubles.hpp"
#include "norvane/RequesterParams.hpp"
#include "norvane/dds/DomainParticipantFactory.hpp"

namespace norvane::test {

class DoubledDomain : public ::testing::Test {
protected:
    DoubledDomain()
        : _real(*DDSDomainParticipantFactory::get_instance()->create_participant(next_domain(), local_qos(), nullptr,
                                                                                 DDS_STATUS_MASK_NONE)),
          _participant(new ForwardingParticipant(_real, _script)) {}
    /// Whatever a failure left behind goes here.
    ~DoubledDomain() override {
        _participant.reset();
        EXPECT_EQ(DDS_RETCODE_OK, _real.delete_contained_entities());
        EXPECT_EQ(DDS_RETCODE_OK, DDSDomainParticipantFactory::get_instance()->delete_participant(&_real));
    }

    RequesterParams params(const std::string& service_name) {
        return RequesterParams(_participant.get()).service_name(service_name);
    }
    std::string live() const { return _script.live(); }

    CallScript _script;
    DDSDomainParticipant& _real;
    std::unique_ptr<ForwardingParticipant> _participant;

private:
    // On whatever engine the environment says, tests stay on this machine.
    static DDS_DomainParticipantQos local_qos() {
        DDS_DomainParticipantQos qos;
        DDSPropertyQosPolicyHelper::add_property(qos.property, "norvane.fastdds.interfaces", "127.0.0.1", DDS_BOOLEAN_FALSE);
        DDSPropertyQosPolicyHelper::add_property(qos.property, "norvane.fastdds.reach", "process", DDS_BOOLEAN_FALSE);
        return qos;
    }
    static DDS_DomainId_t next_domain() {
        static std::atomic<int> domains{0};
        return domains++ % 230;
    }
};

}  // namespace norvane::test

#endif
