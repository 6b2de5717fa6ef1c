// SPDX-License-Identifier: Apache-2.0
// A publisher that stands for another one, and wraps the writers that it makes.
#ifndef NORVANE_TESTS_SUPPORT_FORWARDINGPUBLISHER_HPP
#define NORVANE_TESTS_SUPPORT_FORWARDINGPUBLISHER_HPP

#include <map>
#include <memory>
#include <mutex>

#include "CallScript.hpp"
#include "ForwardingDataWriter.hpp"
#include "LiveObjects.hpp"
#include "norvane/dds/Publisher.hpp"

namespace norvane {
namespace test {

/// The writers that one publisher or participant double has handed out.
class ForwardingWriters {
public:
    ForwardingWriters(CallScript& script, LiveObjects& live) : _script(script), _live(live) {}

    DDSDataWriter* wrap(DDSDataWriter* real, DDSPublisher* publisher) {
        if (real == nullptr) {
            return nullptr;
        }
        std::unique_ptr<ForwardingDataWriter> wrapped(new ForwardingDataWriter(*real, publisher, _script));
        ForwardingDataWriter* handed_out = wrapped.get();
        std::lock_guard<std::mutex> guard(_mutex);
        _wrapped[handed_out] = std::move(wrapped);
        ++_live.writers;
        return handed_out;
    }

    static DDSDataWriter* unwrap(DDSDataWriter* writer) {
        ForwardingDataWriter* wrapped = dynamic_cast<ForwardingDataWriter*>(writer);
        return wrapped != nullptr ? &wrapped->real() : writer;
    }

    void forget(DDSDataWriter* writer) {
        std::lock_guard<std::mutex> guard(_mutex);
        if (_wrapped.erase(writer) != 0) {
            --_live.writers;
        }
    }

private:
    CallScript& _script;
    LiveObjects& _live;
    std::mutex _mutex;
    std::map<DDSDataWriter*, std::unique_ptr<ForwardingDataWriter>> _wrapped;
};

class ForwardingPublisher : public DDSPublisher {
public:
    /// @param participant  the double that made it. All are borrowed.
    ForwardingPublisher(DDSPublisher& real, DDSDomainParticipant& participant, CallScript& script, LiveObjects& live)
        : _real(real), _participant(participant), _script(script), _writers(script, live) {}

    DDSPublisher& real() { return _real; }

    DDSStatusCondition* get_statuscondition() override { return _real.get_statuscondition(); }
    DDS_StatusMask get_status_changes() override { return _real.get_status_changes(); }
    DDS_InstanceHandle_t get_instance_handle() override { return _real.get_instance_handle(); }
    DDSDomainParticipant* get_participant() override { return &_participant; }
    DDS_ReturnCode_t get_qos(DDS_PublisherQos& qos) override {
        return _script.code("DDSPublisher::get_qos", [&] { return _real.get_qos(qos); });
    }
    DDSDataWriter* create_datawriter(DDSTopic* topic, const DDS_DataWriterQos& qos, DDSDataWriterListener* listener,
                                     DDS_StatusMask mask) override {
        return _script.pointer("DDSPublisher::create_datawriter",
                               [&] { return _writers.wrap(_real.create_datawriter(topic, qos, listener, mask), this); });
    }
    DDS_ReturnCode_t delete_datawriter(DDSDataWriter* writer) override {
        return _script.code("DDSPublisher::delete_datawriter", [&] {
            const DDS_ReturnCode_t code = _real.delete_datawriter(ForwardingWriters::unwrap(writer));
            if (code == DDS_RETCODE_OK) {
                _writers.forget(writer);
            }
            return code;
        });
    }

private:
    DDSPublisher& _real;
    DDSDomainParticipant& _participant;
    CallScript& _script;
    ForwardingWriters _writers;
};

}  // namespace test
}  // namespace norvane

#endif
