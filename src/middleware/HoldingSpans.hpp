// SPDX-License-Identifier: Apache-2.0
// The spans in which threads make endpoints for a holder: an object, such as a requester, that deletes its endpoints itself.
// Thread rule: none of its own; guarded by the participant's mutex.
#ifndef NORVANE_MIDDLEWARE_HOLDINGSPANS_HPP
#define NORVANE_MIDDLEWARE_HOLDINGSPANS_HPP

#include <thread>
#include <vector>

namespace norvane {
namespace mw {

class HoldingSpans {
public:
    /// Begins a span of the calling thread, which may have others already.
    /// @param holder  the kind of holder, for the log; not null; borrowed as long as the process lives.
    /// @throws std::bad_alloc
    void begin(const char* holder);
    /// Ends the last span that the calling thread began. @return false if it has none.
    bool end() noexcept;

    /// @return whether no thread is in a span.
    bool empty() const noexcept { return _spans.empty(); }
    /// @return the holder of what the calling thread makes now. Null when it is in no span, or in a listener that runs inside the
    ///         span: what a listener makes is not the holder's.
    const char* current() const noexcept;

private:
    struct Span {
        std::thread::id thread;
        int listener_depth;  // of the thread when the span began
        const char* holder;
    };
    typedef std::vector<Span> Spans;

    Spans::const_reverse_iterator last_of_this_thread() const noexcept;

    Spans _spans;
};

}  // namespace mw
}  // namespace norvane

#endif
