// SPDX-License-Identifier: Apache-2.0
// The memory of encoded samples, of all endpoints of the process on Fast DDS.
//
// The pools of Fast DDS give no memory back, and their payloads only grow. Until a killed peer is missed, its writers keep many
// samples; from then on the pool has that many payloads, each of which grows to the longest sample in time. A replier whose replies
// have 10 octets or 300 kB grew by 9 MB with each requester that was killed. This pool keeps a bounded reserve, in classes of sizes.
//
// Thread rule: any thread, also under locks of Fast DDS.
#ifndef NORVANE_ENGINES_FASTDDS_PAYLOADPOOL_HPP
#define NORVANE_ENGINES_FASTDDS_PAYLOADPOOL_HPP

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>

#include <fastdds/rtps/history/IPayloadPool.h>

#include "engines/fastdds/identity.hpp"
#include "platform/BriefMutex.hpp"

namespace norvane {
namespace fastdds {

class PayloadPool final : public rtps::IPayloadPool {
public:
    /// Never destroyed: participants with static storage leave after main.
    static const std::shared_ptr<PayloadPool>& get();

    /// As of rtps::IPayloadPool. Samples that several endpoints hold share one payload.
    bool get_payload(std::uint32_t size, rtps::CacheChange_t& change) override;
    bool get_payload(rtps::SerializedPayload_t& data, rtps::IPayloadPool*& owner, rtps::CacheChange_t& change) override;
    bool release_payload(rtps::CacheChange_t& change) override;

private:
    struct Block;

    // Blocks of 256 octets to 8 MiB, each class twice as long as the one before. Longer ones are never in reserve: for those, zeroed
    // pages of the system cost less than the copies.
    static constexpr std::size_t SMALLEST = 256;
    static constexpr std::size_t CLASSES = 16;
    // In reserve of each class: so many octets, or two blocks. 28 MiB of the three longest, if a process uses samples of these lengths.
    static constexpr std::size_t MOST_OCTETS = 1024 * 1024;
    // Blocks from this length on are mapped: the heap would keep most of the memory of a burst, in arenas of several threads.
    static constexpr std::size_t MAPPED = 16 * 1024;

    struct Reserve {
        Block* first = nullptr;
        std::size_t count = 0;
    };

    Block* take(std::size_t octets) noexcept;
    void give_back(Block& block) noexcept;
    static Block* make(std::size_t length, std::size_t size_class) noexcept;
    static void destroy(Block& block) noexcept;

    // Never waited for: while another thread has it, the reserve is not used. That thread may be one of a parent process.
    platform::BriefMutex _mutex;
    std::array<Reserve, CLASSES> _reserves;
};

}  // namespace fastdds
}  // namespace norvane

#endif
