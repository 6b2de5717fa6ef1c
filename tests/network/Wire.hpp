// SPDX-License-Identifier: Apache-2.0
// A wire between the network of this process, its own (NetworkNamespace.hpp), and another one. Packets pass through this process. Thread rule: made, used and destroyed
// by one thread.
#ifndef NORVANE_TESTS_NETWORK_WIRE_HPP
#define NORVANE_TESTS_NETWORK_WIRE_HPP

#include <fcntl.h>
#include <linux/if_tun.h>
#include <net/if.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cstring>
#include <functional>
#include <thread>

#include "network/NetworkNamespace.hpp"

namespace norvane::test {

class Wire {
public:
    /// @param on_the_other_side  is called in another network namespace; so are the processes that it starts. The ends are the devices
    ///                           `norvane0` here and `norvane1` there, without an address. Not called when they cannot be made.
    Wire(bool takes_multicast, const std::function<void()>& on_the_other_side)
        : _takes_multicast(takes_multicast), _here(make_device("norvane0")) {
        // Only the thread goes over to the other network.
        std::thread([&] {
            _there = _here >= 0 && leave_the_network() ? make_device("norvane1") : -1;
            if (_there >= 0) {
                on_the_other_side();
            }
        }).join();
        _out = std::thread([this] { carry(_here, _there); });
        _back = std::thread([this] { carry(_there, _here); });
    }
    ~Wire() {
        _ended = true;
        _out.join();
        _back.join();
        ::close(_here);
        ::close(_there);
    }
    Wire(const Wire&) = delete;
    Wire& operator=(const Wire&) = delete;

    /// @return octets that have entered the wire at either end.
    long octets() const { return _octets; }

private:
    static int make_device(const char* name) {
        const int device = ::open("/dev/net/tun", O_RDWR | O_NONBLOCK | O_CLOEXEC);
        ifreq request = {};
        request.ifr_flags = IFF_TUN | IFF_NO_PI;
        std::strcpy(request.ifr_name, name);
        if (device >= 0 && ::ioctl(device, TUNSETIFF, &request) != 0) {
            ::close(device);
            return -1;
        }
        return device;
    }

    void carry(int from, int to) {
        constexpr std::size_t DESTINATION = 16;  // in a header of IPv4
        std::array<unsigned char, 65536> packet;
        while (!_ended) {
            pollfd ready = {from, POLLIN, 0};
            const ssize_t size = ::poll(&ready, 1, 20) > 0 ? ::read(from, packet.data(), packet.size()) : 0;
            if (size > 0 && (_takes_multicast || (packet[DESTINATION] & 0xf0) != 0xe0)) {
                _octets += size;
                // When the other end is gone, or full, it is lost.
                [[maybe_unused]] const ssize_t written = ::write(to, packet.data(), static_cast<std::size_t>(size));
            }
        }
    }

    const bool _takes_multicast;
    int _here = -1;
    int _there = -1;
    std::atomic<bool> _ended{false};
    std::atomic<long> _octets{0};
    std::thread _out;
    std::thread _back;
};

}  // namespace norvane::test

#endif
