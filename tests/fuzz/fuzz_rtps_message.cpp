// SPDX-License-Identifier: Apache-2.0
// A datagram from the network, up to where Fast DDS gets it, and what this engine does with one that it sends.
#include <cstdlib>
#include <vector>

#include "engines/fastdds/quirks_2_9/Submessage.hpp"
#include "engines/fastdds/transport/Paths.hpp"
#include "engines/fastdds/transport/WireFault.hpp"
#include "engines/fastdds/transport/split.hpp"

using namespace norvane::fastdds;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const Interfaces INTERFACES;
    std::vector<std::uint8_t> message = {'R', 'T', 'P', 'S', 2, 3, 1, 15, 1, 15, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12};
    message.insert(message.end(), data, data + size);
    message.shrink_to_fit();  // so that what is read behind it is seen
    if (find_wire_fault(message.data(), message.size()) != WireFault::NONE) {
        return 0;
    }
    Paths paths(1 << 20, INTERFACES, [](const norvane::fastdds::rtps::GUID_t&, std::int64_t number) {
        return static_cast<std::uint32_t>(number % 300);
    });
    norvane::fastdds::rtps::Locator_t place;
    paths.send(message.data(), message.size(), place);
    paths.receive(message.data(), message.size());
    std::vector<std::uint8_t> copy;
    copy_without(Submessage::NACK_FRAG, message.data(), message.size(), copy);
    split(message.data(), message.size(), 1472, copy, [](const std::uint8_t* part, std::size_t octets) {
        if (find_wire_fault(part, octets) != WireFault::NONE) {
            std::abort();
        }
    });
    return 0;
}
