// SPDX-License-Identifier: Apache-2.0
#include "engines/fastdds/FastDdsEngine.hpp"

#include <cstddef>
#include <memory>
#include <new>
#include <string>
#include <utility>

#include "engines/fastdds/attributes.hpp"
#include "engines/fastdds/discovery/Domain.hpp"
#include "engines/fastdds/discovery/credentials.hpp"
#include "engines/fastdds/reading/Reader.hpp"
#include "engines/fastdds/reading/ReplyRoute.hpp"
#include "engines/fastdds/writing/Writer.hpp"
#include "engines/refusals.hpp"
#include "middleware/clock.hpp"

namespace norvane {
namespace fastdds {

namespace {

// What the middleware holds of a writer and a reader.
class FastDdsWriterPort : public mw::WriterPort {
public:
    explicit FastDdsWriterPort(std::shared_ptr<Writer> writer) noexcept : _writer(std::move(writer)) {}
    ~FastDdsWriterPort() override { _writer->close(); }

    const mw::EndpointInfo& info() const noexcept override { return _writer->info(); }
    DDS_ReturnCode_t enable(mw::PeerSink& sink) noexcept override { return _writer->enable(sink); }
    DDS_ReturnCode_t write(const mw::WriteRequest& request, DDS_SampleIdentity_t& identity, bool& addressed) noexcept override {
        return _writer->write(request, identity, addressed);
    }
    mw::WriteCounts counts() noexcept override { return _writer->counts(); }
    DDS_ReturnCode_t wait_for_acknowledgments(const DDS_Duration_t& max_wait) noexcept override {
        return _writer->wait_for_acknowledgments(max_wait);
    }
    void close() noexcept override { _writer->close(); }

private:
    const std::shared_ptr<Writer> _writer;
};

template <typename Kind>
class FastDdsReaderPort : public mw::ReaderPort {
public:
    explicit FastDdsReaderPort(std::shared_ptr<Kind> reader) noexcept : _reader(std::move(reader)) {}
    ~FastDdsReaderPort() override { _reader->close(); }

    const mw::EndpointInfo& info() const noexcept override { return _reader->info(); }
    DDS_ReturnCode_t enable(mw::SampleSink& sink) noexcept override { return _reader->enable(sink); }
    void room_freed() noexcept override { _reader->room_freed(); }
    void close() noexcept override { _reader->close(); }

private:
    const std::shared_ptr<Kind> _reader;
};

class FastDdsDomainPort : public mw::DomainPort {
public:
    explicit FastDdsDomainPort(std::shared_ptr<Domain> domain) noexcept : _domain(std::move(domain)) {}
    ~FastDdsDomainPort() override { _domain->leave(); }

    DDS_GUID_t guid() const noexcept override { return _domain->guid(); }

    std::unique_ptr<mw::WriterPort> make_writer(const mw::WriterSettings& settings, DDS_ReturnCode_t& code,
                                                std::string& failure) override {
        return mw::without_exceptions(code, failure,
                                      [&] { return make<mw::WriterPort, FastDdsWriterPort, Writer>(settings, code, failure); });
    }

    std::unique_ptr<mw::ReaderPort> make_reader(const mw::ReaderSettings& settings, DDS_ReturnCode_t& code,
                                                std::string& failure) override {
        return mw::without_exceptions(code, failure, [&]() -> std::unique_ptr<mw::ReaderPort> {
            // Only the writer of a requester of this participant can announce where its answers go, and only one reader.
            const std::shared_ptr<Endpoint> asking =
                ReplyReaders::can_serve(settings) ? _domain->find_own_writer(settings.route) : nullptr;
            if (asking && is_requester(asking->info()) && !_domain->find_share(settings.route)) {
                return make<mw::ReaderPort, FastDdsReaderPort<ReplyRoute>, ReplyRoute>(settings, code, failure);
            }
            return make<mw::ReaderPort, FastDdsReaderPort<Reader>, Reader>(settings, code, failure);
        });
    }

    DDS_Time_t current_time() noexcept override { return mw::current_time(); }

private:
    template <typename Port, typename FastDdsPort, typename Kind, typename Settings>
    std::unique_ptr<Port> make(const Settings& settings, DDS_ReturnCode_t& code, std::string& failure) {
        if (!mw::is_makeable(settings, code, failure)) {
            return nullptr;
        }
        if (!is_announceable(settings.info, failure)) {
            code = DDS_RETCODE_BAD_PARAMETER;
            return nullptr;
        }
        const DDS_GUID_t wanted = settings.info.guid;
        auto endpoint = std::make_shared<Kind>(_domain, settings);
        if (wanted != DDS_GUID_AUTO && !_domain->claim_guid(wanted)) {
            mw::refuse_guid(wanted, code, failure);
            endpoint->disown_guid();
            return nullptr;
        }
        code = endpoint->prepare(settings, failure);
        if (code != DDS_RETCODE_OK) {
            return nullptr;
        }
        return std::make_unique<FastDdsPort>(std::move(endpoint));
    }

    const std::shared_ptr<Domain> _domain;
};

class FastDdsEngine : public mw::Engine {
public:
    const char* name() const noexcept override { return "fastdds"; }
    bool leaves_process() const noexcept override { return true; }
    bool defers() const noexcept override { return true; }
    void send_deferred() noexcept override { Outbox::send_deferred(); }

    std::unique_ptr<mw::DomainPort> join(const mw::DomainSettings& settings, DDS_ReturnCode_t& code,
                                         std::string& failure) override {
        return mw::without_exceptions(code, failure, [&]() -> std::unique_ptr<mw::DomainPort> {
            ParticipantChoice choice;
            code = DDS_RETCODE_BAD_PARAMETER;
            if (!choose(*settings.qos, choice, failure)) {
                return nullptr;
            }
            auto domain = std::make_shared<Domain>(choice.window, choice.writer_filters, choice.ends);
            code = DDS_RETCODE_ERROR;
            if (!domain->join(static_cast<std::uint32_t>(settings.domain_id), choice.attributes)) {
                const std::string fault = fault_of_credentials(choice.attributes.properties);
                failure = "Fast DDS makes no participant" + (fault.empty() ? "" : ": " + fault);
                return nullptr;
            }
            code = DDS_RETCODE_OK;
            failure = choice.warning;
            return std::make_unique<FastDdsDomainPort>(std::move(domain));
        });
    }
};

}  // namespace

mw::Engine& fastdds_engine() noexcept {
    // Never destroyed: see mw::Engine. In place, since nothing here may throw.
    alignas(FastDdsEngine) static unsigned char place[sizeof(FastDdsEngine)];
    static FastDdsEngine* const ENGINE = new (place) FastDdsEngine;
    return *ENGINE;
}

}  // namespace fastdds
}  // namespace norvane

extern "C" __attribute__((visibility("default"))) norvane::mw::Engine* norvane_engine(std::uint32_t abi) {
    return abi == norvane::mw::ENGINE_ABI ? &norvane::fastdds::fastdds_engine() : nullptr;
}
