// SPDX-License-Identifier: Apache-2.0
// A participant in one line, for programs that need no more.
#ifndef NORVANE_PARTICIPANT_HPP
#define NORVANE_PARTICIPANT_HPP

#include <string>

#include "norvane/dds/DomainParticipant.hpp"
#include "norvane/export.hpp"

namespace norvane {

/// Membership in a domain. Leaves it in good order when destroyed.
/// @code
///     norvane::Participant participant;
///     norvane::Requester<Question, Answer> requester(norvane::RequesterParams(participant).service_name("Oracle"));
/// @endcode
/// What was made in it must be gone before it: declare it first. A program that needs other QoS makes its participant with
/// DDSDomainParticipantFactory.
/// @par Threads  Same object: any, but destruction overlaps with nothing.
class NORVANE_EXPORT Participant {
public:
    /// Joins a domain.
    /// @param domain_id  from 0; those who talk to each other are in the same domain.
    /// @param engine     "embedded" (this process) or "fastdds" (other processes and machines); empty for what the environment variable
    ///                   NORVANE_ENGINE says, else embedded.
    /// @throws RuntimeException  the middleware refused: the log says why.
    explicit Participant(int domain_id = 0, const std::string& engine = std::string());
    /// Deletes what was made in the participant, and the participant.
    ~Participant();
    Participant(const Participant&) = delete;
    Participant& operator=(const Participant&) = delete;

    DDSDomainParticipant* get() const noexcept { return _participant; }
    DDSDomainParticipant* operator->() const noexcept { return _participant; }
    operator DDSDomainParticipant*() const noexcept { return _participant; }

private:
    DDSDomainParticipant* _participant;  // owned
};

}  // namespace norvane

#endif
