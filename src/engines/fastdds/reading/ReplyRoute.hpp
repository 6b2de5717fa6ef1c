// SPDX-License-Identifier: Apache-2.0
// A requester's share of a common reply reader. The middleware sees a reader; peers see nothing.
//
// Samples and peers come from the reply reader, under its mutex.
#ifndef NORVANE_ENGINES_FASTDDS_READING_REPLYROUTE_HPP
#define NORVANE_ENGINES_FASTDDS_READING_REPLYROUTE_HPP

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "engines/fastdds/Endpoint.hpp"
#include "engines/fastdds/discovery/Domain.hpp"
#include "engines/fastdds/reading/ReplyReader.hpp"
#include "engines/fastdds/reading/SampleIntake.hpp"
#include "engines/fastdds/writing/AnsweredRequests.hpp"

namespace norvane {
namespace fastdds {

class ReplyRoute final : public Endpoint {
public:
    ReplyRoute(const std::shared_ptr<Domain>& domain, const mw::ReaderSettings& settings);
    ~ReplyRoute() override;

    /// Finds or makes the reader. @return OK, or a code; `failure` then has the reason, for the log.
    [[nodiscard]] DDS_ReturnCode_t prepare(const mw::ReaderSettings& settings, std::string& failure);

    /// As mw::ReaderPort.
    [[nodiscard]] DDS_ReturnCode_t enable(mw::SampleSink& sink) noexcept;
    void room_freed() noexcept {}
    void close() noexcept;

    /// @return the writer whose answers these are.
    const DDS_GUID_t& writer() const noexcept { return _info.partner_guid; }
    /// Delivers an answer. The reply reader's mutex is held. @param answering  the RTPS GUID of its writer.
    void deliver(const rtps::GUID_t& answering, const mw::SampleMetadata& metadata, const std::uint8_t* octets,
                 std::size_t length) noexcept;
    void count_loss() noexcept { _intake.count_loss(); }

    bool is_writer() const noexcept override { return false; }
    bool shares_answers_to(const DDS_GUID_t& asking) const noexcept override { return asking == writer(); }
    void announce_soon() noexcept override { _domain->dispatcher().announce(shared_from_this()); }
    std::int64_t run_timer() noexcept override;

private:
    const std::shared_ptr<Domain> _domain;
    SampleIntake _intake;
    std::shared_ptr<ReplyReader> _reader;
    std::shared_ptr<AnsweredRequests> _answered;  // null if the writer was created later
};

}  // namespace fastdds
}  // namespace norvane

#endif
