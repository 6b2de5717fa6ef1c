// SPDX-License-Identifier: Apache-2.0
// Matches the writers and readers of one domain number, and unmatches those that leave. No sample passes through it.
//
// 1. The mutex is for matching: a write never takes it. Lock order: bus, writer, store.
// 2. A peer enters the writer's tables before either end is told of the match, and leaves them before either is told that it left.
// 3. Sinks are told under the mutex, which orders the events of a peer; listeners run after it is released.
#ifndef NORVANE_ENGINES_EMBEDDED_BUS_HPP
#define NORVANE_ENGINES_EMBEDDED_BUS_HPP

#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "engines/embedded/Reader.hpp"
#include "engines/embedded/Writer.hpp"
#include "engines/embedded/guid.hpp"
#include "middleware/Engine.hpp"

namespace norvane {
namespace embedded {

class Bus {
public:
    /// @return the bus of the domain; it lives until the last reference to it is released.
    static std::shared_ptr<Bus> of_domain(DDS_DomainId_t domain_id);

    /// Reserves a GUID until its endpoint is removed. @param guid  automatic: a new one is made.
    /// @return false when another endpoint has it.
    bool claim_guid(DDS_GUID_t& guid);
    /// Releases a reserved GUID that no endpoint has taken.
    void give_back_guid(const DDS_GUID_t& guid) noexcept;

    /// Makes an opened endpoint visible, and matches it with the visible ones.
    /// @return OK; OUT_OF_RESOURCES, and then it has been removed.
    [[nodiscard]] DDS_ReturnCode_t add(const std::shared_ptr<Writer>& writer) noexcept;
    [[nodiscard]] DDS_ReturnCode_t add(const std::shared_ptr<Reader>& reader) noexcept;

    /// Takes an endpoint out, seen or not. When it returns, no upcall of it runs or will run. A second time does nothing.
    void remove(const std::shared_ptr<Writer>& writer) noexcept;
    void remove(const std::shared_ptr<Reader>& reader) noexcept;

    /// Sends a reader the samples in its writers' backlogs, now that it has room.
    void send_backlogs(const std::shared_ptr<Reader>& reader) noexcept;

private:
    struct Topic {
        std::vector<std::shared_ptr<Writer>> writers;
        std::vector<std::shared_ptr<Reader>> readers;
    };

    template <typename Own, typename Other, typename Meet>
    [[nodiscard]] DDS_ReturnCode_t add_to_topic(const std::shared_ptr<Own>& own, std::vector<std::shared_ptr<Own>> Topic::*own_kind,
                                                std::vector<std::shared_ptr<Other>> Topic::*other_kind, Meet meet) noexcept;
    template <typename Own>
    bool take_out_locked(const std::shared_ptr<Own>& own, std::vector<std::shared_ptr<Own>> Topic::*own_kind) noexcept;
    void meet_locked(const std::shared_ptr<Writer>& writer, const std::shared_ptr<Reader>& reader, platform::WakeBatch& wake,
                     bool& writer_announces, bool& reader_announces);

    std::mutex _mutex;
    std::unordered_map<std::string, Topic> _topics;  // no topic is without endpoints
    std::unordered_set<DDS_GUID_t, GuidHash> _guids;
};

}  // namespace embedded
}  // namespace norvane

#endif
