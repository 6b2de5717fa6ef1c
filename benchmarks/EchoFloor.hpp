// SPDX-License-Identifier: Apache-2.0
// The bare floor under a round trip: two threads that hand a payload to and fro through mutex and condition variable.
#ifndef BENCH_ECHOFLOOR_HPP
#define BENCH_ECHOFLOOR_HPP

#include <condition_variable>
#include <memory>
#include <mutex>
#include <thread>

#include "Payload.hpp"

namespace bench {

/// Room for one payload. One thread puts, one takes.
template <class Content>
class Mailbox {
public:
    void put(const Content& content) {
        {
            std::lock_guard<std::mutex> lock(_mutex);
            _content = content;
            _full = true;
        }
        // Woken after unlocking: the sleeper would run straight into the lock otherwise.
        _filled.notify_one();
    }

    /// Sleeps until there is a payload.
    /// @return the payload, where it lies; it stays until the next put.
    const Content& take() {
        std::unique_lock<std::mutex> lock(_mutex);
        _filled.wait(lock, [this] { return _full; });
        _full = false;
        return _content;
    }

private:
    std::mutex _mutex;
    std::condition_variable _filled;
    Content _content;
    bool _full = false;
};

/// Two mailboxes, and a thread that answers each request with its own content.
template <class Content>
class EchoFloor {
public:
    EchoFloor() : _echo([this] { answer(); }) {}
    EchoFloor(const EchoFloor&) = delete;
    EchoFloor& operator=(const EchoFloor&) = delete;
    ~EchoFloor() {
        auto last = std::make_unique<Content>();
        last->number = STOP;
        _requests.put(*last);
        _echo.join();
    }

    /// @return the reply, where it lies; it stays until the next call.
    const Content& call(const Content& request) {
        _requests.put(request);
        return _replies.take();
    }

    pthread_t echo_thread() { return _echo.native_handle(); }

private:
    void answer() {
        while (true) {
            const Content& request = _requests.take();
            if (request.number == STOP) {
                return;
            }
            _replies.put(request);
        }
    }

    Mailbox<Content> _requests;
    Mailbox<Content> _replies;
    std::thread _echo;  // last: it uses the others
};

}  // namespace bench

#endif
