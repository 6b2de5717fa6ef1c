// SPDX-License-Identifier: Apache-2.0
#include "engines/fastdds/transport/Interfaces.hpp"

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <utility>

#include <fastrtps/utils/IPLocator.h>

namespace norvane {
namespace fastdds {

namespace {

constexpr std::uint32_t ETHERNET = 1500;
constexpr std::uint32_t IP_AND_UDP_HEADERS = 28;
constexpr std::uint32_t SMALLEST_DATAGRAM = 1024;
constexpr std::uint32_t LARGEST_DATAGRAM = 65500;

std::uint32_t mtu_of(int descriptor, const char* name) noexcept {
    ifreq request = {};
    std::strncpy(request.ifr_name, name, IFNAMSIZ - 1);
    return ::ioctl(descriptor, SIOCGIFMTU, &request) == 0 && request.ifr_mtu > 0 ? static_cast<std::uint32_t>(request.ifr_mtu) : 0;
}

bool to_address(const std::string& text, std::uint32_t& address) noexcept {
    in_addr parsed = {};
    const bool is_one = ::inet_pton(AF_INET, text.c_str(), &parsed) == 1;
    address = parsed.s_addr;
    return is_one;
}

std::vector<Interface> read_interfaces() {
    std::vector<Interface> all;
    ifaddrs* first = nullptr;
    if (::getifaddrs(&first) != 0) {
        return all;
    }
    const std::unique_ptr<ifaddrs, void (*)(ifaddrs*)> list(first, ::freeifaddrs);
    const int descriptor = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    for (const ifaddrs* each = first; each != nullptr; each = each->ifa_next) {
        if (each->ifa_addr != nullptr && each->ifa_addr->sa_family == AF_INET && (each->ifa_flags & IFF_UP) != 0) {
            const std::uint32_t address = reinterpret_cast<const sockaddr_in*>(each->ifa_addr)->sin_addr.s_addr;
            all.push_back({address, mtu_of(descriptor, each->ifa_name), (each->ifa_flags & IFF_LOOPBACK) != 0,
                           (each->ifa_flags & IFF_RUNNING) != 0});
        }
    }
    if (descriptor >= 0) {
        ::close(descriptor);
    }
    return all;
}

}  // namespace

Interfaces::Interfaces() : _all(read_interfaces()) {}

bool Interfaces::refresh() {
    std::vector<Interface> all = read_interfaces();
    const std::lock_guard<std::mutex> lock(_mutex);
    if (all == _all) {
        return false;
    }
    _all = std::move(all);
    _have_changed.store(true, std::memory_order_relaxed);
    return true;
}

std::vector<std::uint32_t> Interfaces::addresses() const {
    std::vector<std::uint32_t> found;
    const std::lock_guard<std::mutex> lock(_mutex);
    for (const Interface& each : _all) {
        if (each.is_running && !each.is_loopback) {
            found.push_back(each.address);
        }
    }
    return found;
}

bool Interfaces::have(const std::string& address) const noexcept {
    std::uint32_t wanted = 0;
    const std::lock_guard<std::mutex> lock(_mutex);
    return to_address(address, wanted) &&
           std::any_of(_all.begin(), _all.end(), [wanted](const Interface& each) { return each.address == wanted; });
}

bool Interfaces::reach_within(const rtps::Locator_t& place) const noexcept {
    if (place.kind != LOCATOR_KIND_UDPv4) {
        return place.kind == LOCATOR_KIND_SHM;
    }
    std::uint32_t address = 0;
    std::memcpy(&address, rtps::IPLocator::getIPv4(place), sizeof address);
    if ((ntohl(address) >> 24U) == 127) {
        return true;
    }
    const std::lock_guard<std::mutex> lock(_mutex);
    return std::any_of(_all.begin(), _all.end(), [address](const Interface& each) { return each.address == address; });
}

std::uint32_t Interfaces::datagram_that_fits(const std::vector<std::string>& addresses) const noexcept {
    std::uint32_t least = 0;
    bool has_loopback_only = !addresses.empty();
    const std::lock_guard<std::mutex> lock(_mutex);
    for (const Interface& each : _all) {
        const bool is_used = addresses.empty() || std::any_of(addresses.begin(), addresses.end(), [&](const std::string& text) {
                                 std::uint32_t address = 0;
                                 return to_address(text, address) && address == each.address;
                             });
        if (!is_used || ((ntohl(each.address) >> 24U) == 127)) {
            continue;
        }
        has_loopback_only = false;
        // The loopback may have addresses outside 127.0.0.0/8, which peers reach by a route: through which interface is not known.
        const std::uint32_t mtu = each.is_loopback || each.mtu == 0 ? ETHERNET : each.mtu;
        least = least == 0 ? mtu : std::min(least, mtu);
    }
    if (has_loopback_only) {
        return 0;
    }
    const std::uint32_t mtu = least == 0 ? ETHERNET : least;
    return std::min(std::max(mtu, SMALLEST_DATAGRAM + IP_AND_UDP_HEADERS) - IP_AND_UDP_HEADERS, LARGEST_DATAGRAM);
}

}  // namespace fastdds
}  // namespace norvane
