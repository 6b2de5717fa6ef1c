// SPDX-License-Identifier: Apache-2.0
#include "network/BadWire.hpp"

#include <fcntl.h>
#include <linux/if_tun.h>
#include <net/if.h>
#include <poll.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <map>
#include <random>
#include <vector>

namespace norvane {
namespace test {

namespace {

typedef std::chrono::steady_clock Clock;
constexpr long QUEUE = 100 * 1000;

int make_device(const char* name) {
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

}  // namespace

BadWire::BadWire(pid_t peer, const Manner& manner) : _manner(manner), _here(make_device("norvane0")) {
    // Only the thread goes over to the peer's network.
    std::thread([&] {
        const int network = ::open(("/proc/" + std::to_string(peer) + "/ns/net").c_str(), O_RDONLY | O_CLOEXEC);
        if (network >= 0 && ::setns(network, CLONE_NEWNET) == 0) {
            _there = make_device("norvane1");
        }
        ::close(network);
    }).join();
    if (is_there()) {
        _out = std::thread([this] { carry(_here, _there, 1); });
        _back = std::thread([this] { carry(_there, _here, 2); });
    }
}

BadWire::~BadWire() {
    _ended = true;
    for (std::thread* const each : {&_out, &_back}) {
        if (each->joinable()) {
            each->join();
        }
    }
    ::close(_here);
    ::close(_there);
}

void BadWire::carry(int from, int to, unsigned seed) {
    std::mt19937 random(seed);
    std::uniform_real_distribution<double> share(0, 1);
    std::multimap<Clock::time_point, std::vector<char>> on_the_way;
    Clock::time_point free_at = Clock::now();
    std::vector<char> packet(65536);
    while (!_ended) {
        const Clock::time_point now = Clock::now();
        while (!on_the_way.empty() && on_the_way.begin()->first <= now) {
            const std::vector<char>& due = on_the_way.begin()->second;
            if (::write(to, due.data(), due.size()) < 0) {
                // The other end is gone, or full: lost.
            }
            on_the_way.erase(on_the_way.begin());
        }
        const auto wait = on_the_way.empty() ? std::chrono::nanoseconds(std::chrono::milliseconds(20))
                                             : std::chrono::nanoseconds(on_the_way.begin()->first - now);
        const timespec patience = {0, static_cast<long>(std::max<long>(wait.count(), 0))};
        pollfd ready = {from, POLLIN, 0};
        if (::ppoll(&ready, 1, &patience, nullptr) <= 0) {
            continue;
        }
        const ssize_t length = ::read(from, packet.data(), packet.size());
        if (length <= 0) {
            continue;
        }
        _octets += length;
        Clock::time_point due = Clock::now() + std::chrono::milliseconds(_manner.delay_ms);
        if (_manner.bits_per_us > 0) {
            free_at = std::max(free_at, Clock::now());
            const double queued =
                std::chrono::duration<double, std::micro>(free_at - Clock::now()).count() * _manner.bits_per_us / 8;
            if (queued > QUEUE) {
                continue;
            }
            free_at += std::chrono::nanoseconds(static_cast<long>(8000.0 * static_cast<double>(length) / _manner.bits_per_us));
            due += free_at - Clock::now();
        }
        if (share(random) < _manner.reordered) {
            due += std::chrono::microseconds(static_cast<long>(3000 * share(random)));
        }
        if (share(random) >= _manner.loss) {
            on_the_way.emplace(due, std::vector<char>(packet.begin(), packet.begin() + length));
        }
    }
}

}  // namespace test
}  // namespace norvane
