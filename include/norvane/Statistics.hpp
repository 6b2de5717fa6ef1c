// SPDX-License-Identifier: Apache-2.0
// What requesters and repliers count. Always on: a few additions per call.
#ifndef NORVANE_STATISTICS_HPP
#define NORVANE_STATISTICS_HPP

#include <cstdint>

namespace norvane {

/// What a requester has done since it was made. The figures are read one after another: while calls run they need not add up.
struct RequesterStatistics {
    std::int64_t sent = 0;       ///< Requests written, by `send_request`, `call` and `call_async`.
    std::int64_t unmatched = 0;  ///< Of these, those sent while no replier was there.
    std::int64_t completed = 0;  ///< Calls that ended with a reply.
    std::int64_t timed_out = 0;  ///< Calls that ended with CallTimeoutException.
    std::int64_t pending = 0;    ///< Calls that have not ended.
    std::int64_t received = 0;   ///< Replies taken in.
    std::int64_t queued = 0;     ///< Replies that have not been taken yet.
    std::int64_t late = 0;       ///< Replies dropped: their call had ended, or their request was forgotten.
    std::int64_t lost = 0;       ///< Replies dropped because there was no room (never with the default QoS).
};

/// What a replier has done since it was made. The figures are read one after another: while requests come they need not add up.
struct ReplierStatistics {
    std::int64_t received = 0;        ///< Requests taken in.
    std::int64_t queued = 0;          ///< Requests that have not been taken yet.
    std::int64_t answered = 0;        ///< Replies written.
    std::int64_t unmatched = 0;       ///< Of these, those whose requester had left.
    std::int64_t unacknowledged = 0;  ///< Of these, those that have not reached their requester yet, as far as is known.
    std::int64_t lost = 0;            ///< Requests dropped because there was no room (never with the default QoS).
};

/// What a service has done with its requests.
struct ServiceStatistics {
    std::int64_t handled = 0;    ///< Requests whose handler returned, and whose reply was written.
    std::int64_t failed = 0;     ///< Requests whose handler threw.
    std::int64_t unsent = 0;     ///< Replies that could not be written: the log says why.
    std::int64_t discarded = 0;  ///< Requests that were queued when the service was stopped.
};

/// How `Service::drain` or `Service::stop` ended, and what was left undone when its time was over. True when nothing was.
struct ShutdownResult {
    bool complete = false;             ///< Every handler has returned, no request is queued, every reply has reached its requester.
    int running_handlers = 0;          ///< Handlers that had not returned. They go on, and their replies are still sent.
    std::int64_t queued_requests = 0;  ///< Requests that no handler had begun with.
    std::int64_t unacknowledged_replies = 0;  ///< Replies that had not reached their requester, as far as is known.

    operator bool() const noexcept { return complete; }
};

}  // namespace norvane

#endif
