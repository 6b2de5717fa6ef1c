// What do a call between two processes, and 64 in flight, cost over request-reply by hand on Fast DDS?
// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <array>
#include <stdexcept>
#include <string>
#include <vector>

#include "HandWrittenService.hpp"
#include "Link.hpp"
#include "OwnService.hpp"
#include "Parcel.hpp"
#include "benchmarks/Question.hpp"
#include "benchmarks/Stopwatch.hpp"

namespace bench {
namespace {

constexpr std::uint64_t IN_FLIGHT = 64;
constexpr std::chrono::milliseconds FLIGHT{40};

struct Portion {
    const char* name;
    std::size_t size;
    int calls;  ///< In a round.
};
constexpr Portion PORTIONS[] = {{"64 B", 64, 250},      {"4 KiB", 4096, 250},  {"64 kB", 64000, 50}, {"128 kB", 128000, 50},
                                {"256 kB", 256000, 20}, {"1 MiB", 1 << 20, 8}, {"4 MiB", 4 << 20, 4}};

template <class Requester>
class RoundTrip : public Probe {
public:
    explicit RoundTrip(const Link& link) : _requester(link) {
        for (const Portion& portion : PORTIONS) {
            _parcels.push_back(make_parcel(portion.size));
        }
    }

    Values measure() override {
        Values values = {};
        for (std::size_t index = 0; index < _parcels.size(); ++index) {
            values[index] = median_call(_parcels[index], PORTIONS[index].calls);
        }
        values[_parcels.size()] = calls_per_second(_parcels[0]);
        return values;
    }

private:
    double median_call(Parcel& parcel, int calls) {
        std::vector<double> times;
        for (int call = 0; call < calls; ++call) {
            ++parcel.number;
            const Clock::time_point start = Clock::now();
            _requester.call(parcel);
            times.push_back(ns_since(start));
        }
        const auto middle = times.begin() + calls / 2;
        std::nth_element(times.begin(), middle, times.end());
        return *middle;
    }

    // Keeps IN_FLIGHT requests under way, then collects the rest.
    double calls_per_second(Parcel& parcel) {
        const std::uint64_t first = parcel.number;
        std::uint64_t collected = first;
        const Clock::time_point start = Clock::now();
        for (bool sending = true; sending || collected < parcel.number; sending = sending && Clock::now() - start < FLIGHT) {
            while (sending && parcel.number - collected < IN_FLIGHT) {
                ++parcel.number;
                _requester.send(parcel);
            }
            collected += _requester.collect(collected + 1);
        }
        return static_cast<double>(collected - first) / ns_since(start) * 1e9;
    }

    Requester _requester;
    std::vector<Parcel> _parcels;
};

template <class Made>
Stage with(const Link& link) {
    return {Processors::TWO, Spin::DEFAULT, [link] { return std::make_unique<Made>(link); }};
}

// A replier comes before its requester, which waits for it.
std::vector<Stage> stages(Transport transport, int pair) {
    const Link own = {transport, pair};
    const Link by_hand = {transport, pair + 1};
    return {with<OwnReplier>(own), with<RoundTrip<OwnRequesters>>(own), with<HandWrittenReplier>(by_hand),
            with<RoundTrip<HandWrittenRequester>>(by_hand)};
}

std::vector<Row> rows(const std::string& transport) {
    std::vector<Row> all;
    std::size_t value = 0;
    for (const Portion& portion : PORTIONS) {
        all.push_back({std::string(portion.name) + " to and fro, " + transport, Unit::TIME, {1, value}, {3, value}, 1});
        ++value;
    }
    all.push_back({"64 in flight of 64 B, " + transport + ": calls per second", Unit::RATE, {1, value}, {3, value}, 1.5});
    return all;
}

const Question over_udp("1_round_trip_udp", stages(Transport::UDP, 0), rows("UDP"));
const Question over_shared_memory("2_round_trip_shared_memory", stages(Transport::SHARED_MEMORY, 2), rows("shared memory"));

}  // namespace
}  // namespace bench
