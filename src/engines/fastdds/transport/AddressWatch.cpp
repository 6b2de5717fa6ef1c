// SPDX-License-Identifier: Apache-2.0
#include "engines/fastdds/transport/AddressWatch.hpp"

#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdint>
#include <utility>

#include "platform/Clock.hpp"

namespace norvane {
namespace fastdds {

namespace {

// An interface that comes up changes several times: link, address, routes.
constexpr int QUIET_MS = 100;
constexpr std::int64_t LONGEST_SERIES_NS = 1000LL * 1000 * 1000;

int open_netlink() noexcept {
    const int netlink = ::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, NETLINK_ROUTE);
    sockaddr_nl own = {};
    own.nl_family = AF_NETLINK;
    own.nl_groups = RTMGRP_LINK | RTMGRP_IPV4_IFADDR;
    if (netlink >= 0 && ::bind(netlink, reinterpret_cast<const sockaddr*>(&own), sizeof own) != 0) {
        ::close(netlink);
        return -1;
    }
    return netlink;
}

}  // namespace

AddressWatch::Subscription::Subscription(std::function<void()> notice) : _watch(AddressWatch::shared()) {
    const std::lock_guard<std::mutex> lock(_watch->_mutex);
    _watch->_notices.emplace(this, std::move(notice));
}

AddressWatch::Subscription::~Subscription() {
    const std::lock_guard<std::mutex> lock(_watch->_mutex);
    _watch->_notices.erase(this);
}

std::shared_ptr<AddressWatch> AddressWatch::shared() {
    static std::mutex mutex;
    static std::weak_ptr<AddressWatch> latest;
    const std::lock_guard<std::mutex> lock(mutex);
    std::shared_ptr<AddressWatch> watch = latest.lock();
    if (!watch || watch->_process.is_of_a_parent()) {  // the thread of a parent's does not exist here
        watch.reset(new AddressWatch);
        latest = watch;
    }
    return watch;
}

AddressWatch::AddressWatch() : _netlink(open_netlink()), _end(::eventfd(0, EFD_CLOEXEC)) {
    if (_netlink >= 0 && _end >= 0) {
        _thread = std::thread([this] { run(); });
    }
}

AddressWatch::~AddressWatch() {
    if (_thread.joinable()) {
        if (_process.is_of_a_parent()) {
            _thread.detach();
        } else {
            ::eventfd_write(_end, 1);
            _thread.join();
        }
    }
    for (const int descriptor : {_netlink, _end}) {
        if (descriptor >= 0) {
            ::close(descriptor);
        }
    }
}

bool AddressWatch::wait_for_change(int timeout_ms, bool& has_changed) noexcept {
    pollfd ready[] = {{_netlink, POLLIN, 0}, {_end, POLLIN, 0}};
    const int count = ::poll(ready, 2, timeout_ms);
    has_changed = count > 0 && ready[0].revents != 0;
    if (has_changed) {
        // What has changed is read from the system afterwards. Messages that did not fit were changes, too (ENOBUFS).
        char message[4096];
        while (::recv(_netlink, message, sizeof message, 0) > 0) {
        }
    }
    return ready[1].revents == 0;
}

void AddressWatch::run() noexcept {
    bool has_changed = false;
    while (wait_for_change(-1, has_changed)) {
        if (!has_changed) {
            continue;  // a signal
        }
        const std::int64_t until_ns = platform::monotonic_ns() + LONGEST_SERIES_NS;
        while (has_changed && platform::monotonic_ns() < until_ns) {
            if (!wait_for_change(QUIET_MS, has_changed)) {
                return;
            }
        }
        const std::lock_guard<std::mutex> lock(_mutex);
        for (const auto& notice : _notices) {
            notice.second();
        }
    }
}

}  // namespace fastdds
}  // namespace norvane
