// SPDX-License-Identifier: Apache-2.0
// A wire between this process's network and that of a peer, which loses, delays and reorders packets, or is slow. Packets pass
// through this process. Thread rule: made, used and destroyed by one thread.
#ifndef NORVANE_TESTS_NETWORK_BADWIRE_HPP
#define NORVANE_TESTS_NETWORK_BADWIRE_HPP

#include <sys/types.h>

#include <atomic>
#include <string>
#include <thread>

namespace norvane {
namespace test {

class BadWire {
public:
    struct Manner {
        double loss = 0;         ///< Share of the packets, 0 to 1, as is
        double reordered = 0;    ///< what comes up to 3 ms late, so that others overtake it.
        int delay_ms = 0;        ///< In each direction.
        double bits_per_us = 0;  ///< 0: no limit. What waits for its turn is 100 KB at most.
    };

    /// @param peer  a process in another network namespace. The ends are the devices `norvane0` here and `norvane1` there, without
    ///              an address.
    BadWire(pid_t peer, const Manner& manner);
    ~BadWire();
    BadWire(const BadWire&) = delete;
    BadWire& operator=(const BadWire&) = delete;

    bool is_there() const { return _here >= 0 && _there >= 0; }
    /// @return octets that have entered the wire at either end, what was lost included.
    long octets() const { return _octets; }

private:
    void carry(int from, int to, unsigned seed);

    const Manner _manner;
    int _here = -1;
    int _there = -1;
    std::atomic<bool> _ended{false};
    std::atomic<long> _octets{0};
    std::thread _out;
    std::thread _back;
};

}  // namespace test
}  // namespace norvane

#endif
