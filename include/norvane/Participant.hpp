// SPDX-License-Identifier: Apache-2.0
// A participant made in one line, for programs that need no QoS of their own.
#ifndef NORVANE_PARTICIPANT_HPP
#define NORVANE_PARTICIPANT_HPP

#include <string>
#include <utility>
#include <vector>

#include "norvane/dds/DomainParticipant.hpp"
#include "norvane/export.hpp"

namespace norvane {

/// Configuration of a participant. Setters chain, check nothing, and may be called again: the last value wins.
/// @par Threads  A plain value; one thread at a time.
class ParticipantParams {
public:
    /// Participants reach each other in the same domain only. @param id  from 0 on; 0 at start.
    ParticipantParams& domain_id(int id) {
        _domain_id = id;
        return *this;
    }
    /// @param name  "embedded" (this process) or "fastdds" (other processes and machines); empty, as at start, for what the
    ///              environment variable NORVANE_ENGINE says, else embedded.
    ParticipantParams& engine(const std::string& name) { return property("norvane.engine", name); }
    /// Sets a property of the participant, such as the settings of an engine (docs/engines.md).
    ParticipantParams& property(const std::string& name, const std::string& value) {
        _properties.emplace_back(name, value);
        return *this;
    }

    int domain_id() const noexcept { return _domain_id; }
    const std::vector<std::pair<std::string, std::string>>& properties() const noexcept { return _properties; }

private:
    int _domain_id = 0;
    std::vector<std::pair<std::string, std::string>> _properties;
};

/// Membership in a domain. Leaves it in good order when destroyed.
/// @code
///     norvane::Participant participant;
///     norvane::Requester<Question, Answer> requester(norvane::RequesterParams(participant).service_name("Oracle"));
/// @endcode
/// Declare it before what is made in it. Requesters, repliers and services that are still there when it is destroyed go on to work:
/// the log names them, and the participant leaves the domain with the last of them. A program that needs other QoS makes its
/// participant with DDSDomainParticipantFactory.
/// @par Threads  Same object: any, but destruction overlaps with nothing.
class NORVANE_EXPORT Participant {
public:
    /// Joins a domain.
    /// @param domain_id  from 0 on; participants reach each other in the same domain only.
    /// @param engine     "embedded" (this process) or "fastdds" (other processes and machines); empty for what the environment
    ///                   variable NORVANE_ENGINE says, else embedded.
    /// @throws RuntimeException  the middleware refused: the log says why.
    explicit Participant(int domain_id = 0, const std::string& engine = std::string())
        : Participant(ParticipantParams().domain_id(domain_id).engine(engine)) {}
    /// The same with properties. @param params  read during the call only.
    explicit Participant(const ParticipantParams& params);
    /// Deletes the participant and what was made in it with the object API; requesters, repliers and services that remain keep it
    /// alive.
    ~Participant();
    Participant(const Participant&) = delete;
    Participant& operator=(const Participant&) = delete;

    DDSDomainParticipant* get() const& noexcept { return _participant; }
    DDSDomainParticipant* get() const&& = delete;  // it leaves its domain at once: use a variable
    DDSDomainParticipant* operator->() const noexcept { return _participant; }
    operator DDSDomainParticipant*() const& noexcept { return _participant; }
    operator DDSDomainParticipant*() const&& = delete;  // it leaves its domain at once: use a variable

private:
    DDSDomainParticipant* _participant;  // owned
};

}  // namespace norvane

#endif
