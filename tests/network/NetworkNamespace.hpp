// SPDX-License-Identifier: Apache-2.0
// A network of a peer's own, where nothing else is on the wire, and wires may be laid and cut.
// Thread rule: before the process has threads, unless said otherwise.
#ifndef NORVANE_TESTS_NETWORK_NETWORKNAMESPACE_HPP
#define NORVANE_TESTS_NETWORK_NETWORKNAMESPACE_HPP

namespace norvane::test {

/// Takes this process, and those that it starts, into a network namespace with a loopback and no more.
/// @return whether the machine allows it.
bool leave_the_network();

struct Carried {
    long octets = -1;
    long packets = -1;
};
/// @return what this process's loopback has carried so far. On any thread.
Carried carried();

}  // namespace norvane::test

#endif
