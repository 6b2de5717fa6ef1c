// SPDX-License-Identifier: Apache-2.0
// Lets one thread at a time into an entity's listener. That thread also reports the statuses raised meanwhile.
//
// Invariant: a thread that raises a status while the gate is taken may return; the thread inside checks again before it leaves.
// Thread rule: any thread.
#ifndef NORVANE_MIDDLEWARE_LISTENERGATE_HPP
#define NORVANE_MIDDLEWARE_LISTENERGATE_HPP

#include <atomic>
#include <exception>
#include <mutex>
#include <thread>

#include "middleware/Log.hpp"
#include "norvane/dds/types.hpp"
#include "platform/BriefMutex.hpp"

namespace norvane {
namespace mw {

/// @return whether the calling thread is inside a listener, of whichever entity.
bool is_inside_a_listener() noexcept;

template <typename Listener>
class ListenerGate {
public:
    /// @return DDS_RETCODE_PRECONDITION_NOT_MET from inside the listener; otherwise when the old one is not running any more.
    DDS_ReturnCode_t set(Listener* listener, DDS_StatusMask mask) noexcept;
    Listener* get() noexcept {
        std::lock_guard<platform::BriefMutex> lock(_mutex);
        return _listener;
    }

    /// Notes a status that the listener is to be called for. A status without a listener is not kept for a later one.
    /// @return whether `run` must follow.
    bool raise_if_wanted(DDS_StatusMask status) noexcept {
        if ((_mask.load(std::memory_order_relaxed) & status) == 0) {
            return false;
        }
        _raised.fetch_or(status, std::memory_order_release);
        return true;
    }
    /// @return whether the calling thread is inside this listener.
    bool is_inside() noexcept {
        std::lock_guard<platform::BriefMutex> lock(_mutex);
        return _running && _runner == std::this_thread::get_id();
    }

    /// Calls the listener for what was raised, unless another thread does so already. @param call  called with the listener and the
    /// statuses; an exception that leaves it is logged and counted.
    template <typename Call>
    void run(const char* method, Call call) noexcept;

private:
    bool enter() noexcept;
    bool leave_if_done() noexcept;

    std::atomic<DDS_StatusMask> _raised{0};
    std::atomic<DDS_StatusMask> _mask{0};
    platform::BriefMutex _mutex;
    Listener* _listener = nullptr;
    bool _running = false;
    std::thread::id _runner;
    unsigned _waiting_for_quiet = 0;
    unsigned long _exceptions = 0;  // of the runner alone
    platform::FutexWord _quiet{0};
};

namespace listener_depth {
extern thread_local int depth;
}

inline bool is_inside_a_listener() noexcept { return listener_depth::depth > 0; }

template <typename Listener>
DDS_ReturnCode_t ListenerGate<Listener>::set(Listener* listener, DDS_StatusMask mask) noexcept {
    std::unique_lock<platform::BriefMutex> lock(_mutex);
    if (_running && _runner == std::this_thread::get_id()) {
        return DDS_RETCODE_PRECONDITION_NOT_MET;
    }
    _listener = listener;
    _mask.store(listener != nullptr ? mask : 0, std::memory_order_relaxed);
    ++_waiting_for_quiet;
    while (_running) {
        const std::uint32_t seen = _quiet.load(std::memory_order_relaxed);
        lock.unlock();
        platform::wait_on(_quiet, seen, platform::NO_DEADLINE);
        lock.lock();
    }
    --_waiting_for_quiet;
    return DDS_RETCODE_OK;
}

template <typename Listener>
bool ListenerGate<Listener>::enter() noexcept {
    std::lock_guard<platform::BriefMutex> lock(_mutex);
    if (_running) {
        return false;
    }
    _running = true;
    _runner = std::this_thread::get_id();
    return true;
}

template <typename Listener>
bool ListenerGate<Listener>::leave_if_done() noexcept {
    std::lock_guard<platform::BriefMutex> lock(_mutex);
    if (_raised.load(std::memory_order_acquire) != 0) {
        return false;
    }
    _running = false;
    if (_waiting_for_quiet > 0) {
        _quiet.fetch_add(1, std::memory_order_relaxed);
        platform::wake_all(_quiet);
    }
    return true;
}

template <typename Listener>
template <typename Call>
void ListenerGate<Listener>::run(const char* method, Call call) noexcept {
    if (!enter()) {
        return;
    }
    do {
        const DDS_StatusMask raised = _raised.exchange(0, std::memory_order_acquire) & _mask.load(std::memory_order_relaxed);
        Listener* listener = get();
        if (raised == 0 || listener == nullptr) {
            continue;
        }
        ++listener_depth::depth;
        try {
            call(*listener, raised);
        } catch (const std::exception& thrown) {
            ++_exceptions;
            log_error(method, [&] {
                return std::string("the listener threw (time ") + std::to_string(_exceptions) +
                       " for this entity): " + thrown.what();
            });
        } catch (...) {
            ++_exceptions;
            log_error(method, [&] { return "the listener threw (time " + std::to_string(_exceptions) + " for this entity)"; });
        }
        --listener_depth::depth;
    } while (!leave_if_done());
}

}  // namespace mw
}  // namespace norvane

#endif
