// SPDX-License-Identifier: Apache-2.0
#include "engines/embedded/EmbeddedEngine.hpp"

#include <memory>
#include <new>
#include <string>
#include <utility>

#include "engines/embedded/Bus.hpp"
#include "engines/embedded/EmbeddedReaderPort.hpp"
#include "engines/embedded/EmbeddedWriterPort.hpp"
#include "engines/embedded/guid.hpp"
#include "engines/refusals.hpp"
#include "middleware/clock.hpp"

namespace norvane {
namespace embedded {

namespace {

class EmbeddedDomainPort : public mw::DomainPort {
public:
    explicit EmbeddedDomainPort(DDS_DomainId_t domain_id) : _bus(Bus::of_domain(domain_id)), _guid(next_guid()) {}

    DDS_GUID_t guid() const noexcept override { return _guid; }

    std::unique_ptr<mw::WriterPort> make_writer(const mw::WriterSettings& settings, DDS_ReturnCode_t& code,
                                                std::string& failure) override {
        return mw::without_exceptions(code, failure,
                                      [&] { return make<mw::WriterPort, EmbeddedWriterPort, Writer>(settings, code, failure); });
    }

    std::unique_ptr<mw::ReaderPort> make_reader(const mw::ReaderSettings& settings, DDS_ReturnCode_t& code,
                                                std::string& failure) override {
        return mw::without_exceptions(code, failure,
                                      [&] { return make<mw::ReaderPort, EmbeddedReaderPort, Reader>(settings, code, failure); });
    }

    DDS_Time_t current_time() noexcept override { return mw::current_time(); }

private:
    // The partner of a routed reader is the writer whose answers it wants.
    static void fill_in_partner(const mw::ReaderSettings& settings, mw::EndpointInfo& info) noexcept {
        if (settings.routed && info.partner_guid == DDS_GUID_UNKNOWN) {
            info.partner_guid = settings.route;
        }
    }
    static void fill_in_partner(const mw::WriterSettings&, mw::EndpointInfo&) noexcept {}

    template <typename Port, typename EmbeddedPort, typename Kind, typename Settings>
    std::unique_ptr<Port> make(const Settings& settings, DDS_ReturnCode_t& code, std::string& failure) {
        if (!mw::is_makeable(settings, code, failure)) {
            return nullptr;
        }
        auto info = std::make_shared<mw::EndpointInfo>(settings.info);
        info->participant_guid = _guid;
        info->reliability = settings.qos->reliability;
        info->durability = settings.qos->durability;
        fill_in_partner(settings, *info);
        if (!_bus->claim_guid(info->guid)) {
            mw::refuse_guid(info->guid, code, failure);
            return nullptr;
        }
        code = DDS_RETCODE_OK;
        try {
            return std::make_unique<EmbeddedPort>(_bus, std::make_shared<Kind>(info, settings));
        } catch (...) {
            _bus->give_back_guid(info->guid);
            throw;
        }
    }

    const std::shared_ptr<Bus> _bus;
    const DDS_GUID_t _guid;
};

class EmbeddedEngine : public mw::Engine {
public:
    const char* name() const noexcept override { return "embedded"; }
    bool leaves_process() const noexcept override { return false; }

    std::unique_ptr<mw::DomainPort> join(const mw::DomainSettings& settings, DDS_ReturnCode_t& code,
                                         std::string& failure) override {
        return mw::without_exceptions(code, failure, [&]() -> std::unique_ptr<mw::DomainPort> {
            code = DDS_RETCODE_OK;
            return std::make_unique<EmbeddedDomainPort>(settings.domain_id);
        });
    }
};

}  // namespace

mw::Engine& embedded_engine() noexcept {
    // Never destroyed: see mw::Engine. In place, since nothing here may throw.
    alignas(EmbeddedEngine) static unsigned char place[sizeof(EmbeddedEngine)];
    static EmbeddedEngine* const ENGINE = new (place) EmbeddedEngine;
    return *ENGINE;
}

}  // namespace embedded
}  // namespace norvane
