// SPDX-License-Identifier: Apache-2.0
// A subscriber that stands for another one, and wraps the readers that it makes.
#ifndef NORVANE_TESTS_SUPPORT_FORWARDINGSUBSCRIBER_HPP
#define NORVANE_TESTS_SUPPORT_FORWARDINGSUBSCRIBER_HPP

#include <map>
#include <memory>
#include <mutex>
#include <vector>

#include "CallScript.hpp"
#include "ForwardingDataReader.hpp"
#include "LiveObjects.hpp"
#include "norvane/dds/Subscriber.hpp"

namespace norvane {
namespace test {

/// The readers that one subscriber or participant double has handed out.
class ForwardingReaders {
public:
    ForwardingReaders(CallScript& script, LiveObjects& live) : _script(script), _live(live) {}

    DDSDataReader* wrap(DDSDataReader* real, DDSSubscriber* subscriber) {
        if (real == nullptr) {
            return nullptr;
        }
        std::unique_ptr<ForwardingDataReader> wrapped(new ForwardingDataReader(*real, subscriber, _script, _live));
        ForwardingDataReader* handed_out = wrapped.get();
        std::lock_guard<std::mutex> guard(_mutex);
        _wrapped[handed_out] = std::move(wrapped);
        ++_live.readers;
        return handed_out;
    }

    static DDSDataReader* unwrap(DDSDataReader* reader) {
        ForwardingDataReader* wrapped = dynamic_cast<ForwardingDataReader*>(reader);
        return wrapped != nullptr ? &wrapped->real() : reader;
    }

    void forget(DDSDataReader* reader) {
        std::lock_guard<std::mutex> guard(_mutex);
        const auto found = _wrapped.find(reader);
        if (found == _wrapped.end()) {
            return;
        }
        // A deleted reader goes with its last loan, and is still used to return it.
        if (found->second->loans() != 0) {
            _closed.push_back(std::move(found->second));
        }
        _wrapped.erase(found);
        --_live.readers;
    }

private:
    CallScript& _script;
    LiveObjects& _live;
    std::mutex _mutex;
    std::map<DDSDataReader*, std::unique_ptr<ForwardingDataReader>> _wrapped;
    std::vector<std::unique_ptr<ForwardingDataReader>> _closed;
};

class ForwardingSubscriber : public DDSSubscriber {
public:
    /// @param participant  the double that made it. All are borrowed.
    ForwardingSubscriber(DDSSubscriber& real, DDSDomainParticipant& participant, CallScript& script, LiveObjects& live)
        : _real(real), _participant(participant), _script(script), _readers(script, live) {}

    DDSSubscriber& real() { return _real; }

    DDSStatusCondition* get_statuscondition() override { return _real.get_statuscondition(); }
    DDS_StatusMask get_status_changes() override { return _real.get_status_changes(); }
    DDS_InstanceHandle_t get_instance_handle() override { return _real.get_instance_handle(); }
    DDSDomainParticipant* get_participant() override { return &_participant; }
    DDS_ReturnCode_t get_qos(DDS_SubscriberQos& qos) override {
        return _script.code("DDSSubscriber::get_qos", [&] { return _real.get_qos(qos); });
    }
    DDSDataReader* create_datareader(DDSTopicDescription* topic, const DDS_DataReaderQos& qos, DDSDataReaderListener* listener,
                                     DDS_StatusMask mask) override {
        return _script.pointer("DDSSubscriber::create_datareader",
                               [&] { return _readers.wrap(_real.create_datareader(topic, qos, listener, mask), this); });
    }
    DDS_ReturnCode_t delete_datareader(DDSDataReader* reader) override {
        return _script.code("DDSSubscriber::delete_datareader", [&] {
            const DDS_ReturnCode_t code = _real.delete_datareader(ForwardingReaders::unwrap(reader));
            if (code == DDS_RETCODE_OK) {
                _readers.forget(reader);
            }
            return code;
        });
    }

private:
    DDSSubscriber& _real;
    DDSDomainParticipant& _participant;
    CallScript& _script;
    ForwardingReaders _readers;
};

}  // namespace test
}  // namespace norvane

#endif
