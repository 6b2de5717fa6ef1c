// SPDX-License-Identifier: Apache-2.0
#include "engines/fastdds/reading/ReplyRoute.hpp"

#include <exception>

#include "engines/fastdds/writing/Writer.hpp"
#include "platform/Clock.hpp"

namespace norvane {
namespace fastdds {

ReplyRoute::ReplyRoute(const std::shared_ptr<Domain>& domain, const mw::ReaderSettings& settings)
    : Endpoint(settings.info), _domain(domain), _intake(*this, *settings.pool) {}

ReplyRoute::~ReplyRoute() { close(); }

DDS_ReturnCode_t ReplyRoute::prepare(const mw::ReaderSettings& settings, std::string& failure) {
    _reader = _domain->reply_readers().get(_domain, settings, failure);
    if (!_reader) {
        return DDS_RETCODE_ERROR;
    }
    _info.participant_guid = _domain->guid();
    if (_info.guid == DDS_GUID_AUTO) {
        _info.guid = _domain->make_guid();
    }
    return DDS_RETCODE_OK;
}

DDS_ReturnCode_t ReplyRoute::enable(mw::SampleSink& sink) noexcept {
    _intake.attach(sink);
    attach(sink);
    try {
        _domain->add(shared_from_this());
        const std::shared_ptr<Endpoint> writer = _domain->find_own_writer(this->writer());
        _answered = writer ? std::static_pointer_cast<Writer>(writer)->answered() : nullptr;
        const DDS_ReturnCode_t code = _reader->add(*this);
        if (code == DDS_RETCODE_OK && writer) {
            // Last: repliers hold the answers until they know which reader takes them.
            std::static_pointer_cast<Writer>(writer)->advertise_answers(&_info);
        }
        return code;
    } catch (const std::exception&) {
        return DDS_RETCODE_OUT_OF_RESOURCES;
    }
}

void ReplyRoute::close() noexcept {
    const std::lock_guard<std::mutex> turn(_close_mutex);
    if (!begin_to_close()) {
        return;
    }
    wait_until_quiet();
    _domain->remove(*this);
    _domain->give_back_guid(_info.guid);
    if (!_reader) {
        return;
    }
    try {
        const std::shared_ptr<Endpoint> writer = _domain->find_own_writer(this->writer());
        if (writer) {
            std::static_pointer_cast<Writer>(writer)->advertise_answers(nullptr);
        }
    } catch (const std::exception&) {
        // Memory is short: repliers go on sending answers, which are dropped.
    }
    _reader->remove(*this);
    _reader.reset();
}

void ReplyRoute::deliver(const rtps::GUID_t& answering, const mw::SampleMetadata& metadata, const std::uint8_t* octets,
                         std::size_t length) noexcept {
    if (_answered) {
        _answered->note(answering, to_integer(metadata.related_identity.sequence_number));
    }
    const mw::Admission admission = _intake.sink().admit(metadata, nullptr);
    if (admission == mw::Admission::FULL || admission == mw::Admission::NO_MEMORY) {
        count_loss();
    } else if (admission == mw::Admission::SLOT) {
        _intake.store(_intake.decode(octets, length), metadata);
    }
}

std::int64_t ReplyRoute::run_timer() noexcept { return platform::NO_DEADLINE; }

}  // namespace fastdds
}  // namespace norvane
