// SPDX-License-Identifier: Apache-2.0
// Tells when the network interfaces or addresses of this machine change. One thread for all who want to know, while there are any.
// Thread rule: any thread, but not from within a notice.
#ifndef NORVANE_ENGINES_FASTDDS_TRANSPORT_ADDRESSWATCH_HPP
#define NORVANE_ENGINES_FASTDDS_TRANSPORT_ADDRESSWATCH_HPP

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <thread>

#include "platform/ProcessMark.hpp"

namespace norvane {
namespace fastdds {

class AddressWatch {
public:
    /// While it exists, `notice` is called after each series of changes, on the watch's thread: a tenth of a second after the last
    /// change, at most one second after the first. The destructor waits for a notice that runs.
    class Subscription {
    public:
        /// @throws std::exception  no thread, or no memory. A system that tells nothing of its addresses is no failure: see `is_live`.
        explicit Subscription(std::function<void()> notice);
        ~Subscription();
        Subscription(const Subscription&) = delete;
        Subscription& operator=(const Subscription&) = delete;
        /// @return false if this system does not tell.
        bool is_live() const noexcept { return _watch->_netlink >= 0; }

    private:
        const std::shared_ptr<AddressWatch> _watch;
    };

    ~AddressWatch();
    AddressWatch(const AddressWatch&) = delete;
    AddressWatch& operator=(const AddressWatch&) = delete;

private:
    AddressWatch();
    static std::shared_ptr<AddressWatch> shared();
    void run() noexcept;
    // @return false when the watch ends.
    bool wait_for_change(int timeout_ms, bool& has_changed) noexcept;

    const platform::ProcessMark _process;
    int _netlink = -1;
    int _end = -1;  // an eventfd
    std::mutex _mutex;
    std::map<const Subscription*, std::function<void()>> _notices;
    std::thread _thread;
};

}  // namespace fastdds
}  // namespace norvane

#endif
