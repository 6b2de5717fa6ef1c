// SPDX-License-Identifier: Apache-2.0
// What goes to and fro between processes: a number, and octets of any count.
#ifndef BENCH_NETWORK_PARCEL_HPP
#define BENCH_NETWORK_PARCEL_HPP

#include <boost/describe.hpp>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace bench {

struct Parcel {
    std::uint64_t number = 0;
    std::vector<std::uint8_t> octets;
};
BOOST_DESCRIBE_STRUCT(Parcel, (), (number, octets))

/// Octets of a parcel in CDR beside those of its `octets`: the number, and their count.
constexpr std::size_t PARCEL_HEAD = 12;

/// @param size  of the whole parcel in CDR.
inline Parcel make_parcel(std::size_t size) {
    Parcel parcel;
    parcel.octets.assign(size - PARCEL_HEAD, 'x');
    return parcel;
}

}  // namespace bench

#endif
