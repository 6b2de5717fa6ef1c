// SPDX-License-Identifier: Apache-2.0
// A wire between this process's network and that of a peer, which loses, delays and reorders packets, or is slow. Packets pass
// through this process. Thread rule: made, used and destroyed by one thread.
#ifndef NORVANE_TESTS_NETWORK_BADWIRE_HPP
#define NORVANE_TESTS_NETWORK_BADWIRE_HPP

#include <fcntl.h>
#include <linux/if_tun.h>
#include <net/if.h>
#include <poll.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstring>
#include <map>
#include <random>
#include <string>
#include <thread>
#include <vector>

namespace norvane::test {

class BadWire {
public:
    struct Manner {
        double loss = 0;            ///< Share of the packets, 0 to 1, as is
        double reordered = 0;       ///< what comes up to 3 ms late, so that others overtake it.
        int delay_ms = 0;           ///< In each direction.
        double bits_per_us = 0;     ///< 0: no limit.
        double queue = 100 * 1000;  ///< Octets that may wait for their turn; what comes then is lost.
        bool takes_multicast = false;
    };

    /// @param peer  a process in another network namespace. The ends are the devices `norvane0` here and `norvane1` there, without
    ///              an address.
    BadWire(pid_t peer, const Manner& manner) : _manner(manner), _here(make_device("norvane0")) {
        // Only the thread goes over to the peer's network.
        std::thread([&] {
            const int network = ::open(("/proc/" + std::to_string(peer) + "/ns/net").c_str(), O_RDONLY | O_CLOEXEC);
            if (network >= 0 && ::setns(network, CLONE_NEWNET) == 0) {
                _there = make_device("norvane1");
            }
            ::close(network);
        }).join();
        _out = std::thread([this] { carry(_here, _there, 1); });
        _back = std::thread([this] { carry(_there, _here, 2); });
    }
    ~BadWire() {
        _ended = true;
        _out.join();
        _back.join();
        ::close(_here);
        ::close(_there);
    }
    BadWire(const BadWire&) = delete;
    BadWire& operator=(const BadWire&) = delete;

    bool is_there() const { return _here >= 0 && _there >= 0; }
    /// @return octets that have entered the wire at either end, what was lost included.
    long octets() const { return _octets; }
    /// @return packets that were lost on it.
    long lost() const { return _lost; }

private:
    typedef std::chrono::steady_clock Clock;
    typedef std::chrono::duration<double, std::micro> Microseconds;

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

    // @return how long a packet that has come just now takes; negative when it is lost.
    Clock::duration time_of(std::size_t size, bool is_multicast, Clock::time_point& free_at, std::mt19937& random) const {
        std::uniform_real_distribution<double> share(0, 1);
        Microseconds time = std::chrono::milliseconds(_manner.delay_ms);
        if (_manner.bits_per_us > 0) {
            const Clock::time_point now = Clock::now();
            free_at = std::max(free_at, now);
            if (Microseconds(free_at - now).count() * _manner.bits_per_us / 8 > _manner.queue) {
                return Clock::duration(-1);
            }
            free_at += std::chrono::nanoseconds(static_cast<long>(8000 * static_cast<double>(size) / _manner.bits_per_us));
            time += free_at - now;
        }
        if (share(random) < _manner.reordered) {
            time += Microseconds(3000 * share(random));
        }
        const bool is_lost = share(random) < _manner.loss || (is_multicast && !_manner.takes_multicast);
        return is_lost ? Clock::duration(-1) : std::chrono::duration_cast<Clock::duration>(time);
    }

    void carry(int from, int to, unsigned seed) {
        constexpr std::size_t DESTINATION = 16;  // in a header of IPv4
        std::mt19937 random(seed);
        std::multimap<Clock::time_point, std::vector<char>> on_the_way;
        Clock::time_point free_at = Clock::now();
        std::vector<char> packet(65536);
        while (!_ended) {
            for (auto due = on_the_way.begin(); due != on_the_way.end() && due->first <= Clock::now();) {
                // When the other end is gone, or full, it is lost.
                _lost += ::write(to, due->second.data(), due->second.size()) < 0 ? 1 : 0;
                due = on_the_way.erase(due);
            }
            const Clock::duration idle = std::chrono::milliseconds(20);
            const Clock::duration wait = on_the_way.empty() ? idle : on_the_way.begin()->first - Clock::now();
            const timespec patience = {0, std::max<long>(wait.count(), 0)};
            pollfd ready = {from, POLLIN, 0};
            const ssize_t size = ::ppoll(&ready, 1, &patience, nullptr) > 0 ? ::read(from, packet.data(), packet.size()) : 0;
            if (size <= 0) {
                continue;
            }
            _octets += size;
            const bool is_multicast = (static_cast<unsigned char>(packet[DESTINATION]) & 0xf0) == 0xe0;
            const Clock::duration time = time_of(static_cast<std::size_t>(size), is_multicast, free_at, random);
            if (time < Clock::duration::zero()) {
                ++_lost;
            } else {
                on_the_way.emplace(Clock::now() + time, std::vector<char>(packet.begin(), packet.begin() + size));
            }
        }
    }

    const Manner _manner;
    int _here = -1;
    int _there = -1;
    std::atomic<bool> _ended{false};
    std::atomic<long> _octets{0};
    std::atomic<long> _lost{0};
    std::thread _out;
    std::thread _back;
};

}  // namespace norvane::test

#endif
