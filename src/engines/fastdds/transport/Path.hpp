// SPDX-License-Identifier: Apache-2.0
// A congestion window: how many octets of a writer's large samples may be on the way to one locator of a peer without an
// acknowledgement. Each writer has its own, so that a reader that accepts nothing does not delay the samples of other writers.
//
// A burst is what was sent of one sample since the reader last reported what it lacks. What does not fit into the window is not
// sent: to Fast DDS it is lost on the wire, and the reader asks for it with its next acknowledgement. So the requests of the reader
// pace the transmission.
//
// Invariants:
// 1. `on_the_way` is the sum of the bursts' octets. It exceeds the window by one datagram at most.
// 2. The window doubles with each burst of which at most a twentieth was lost, until it first shrinks; from then on it grows by an
//    eighth. When more than a fifth of a burst was lost it shrinks by that fraction, and when nothing arrives by half.
// 3. While nothing arrives, the time until the next attempt doubles, up to MOST_PATIENCE_NS.
//
// Times are those that the caller passes in. Thread rule: one thread at a time.
#ifndef NORVANE_ENGINES_FASTDDS_TRANSPORT_PATH_HPP
#define NORVANE_ENGINES_FASTDDS_TRANSPORT_PATH_HPP

#include <algorithm>
#include <cstdint>
#include <vector>

namespace norvane {
namespace fastdds {

class Path {
public:
    static constexpr std::int64_t LEAST_WINDOW = 8 * 1024;
    /// Largest number of fragments that one NACK_FRAG covers.
    static constexpr std::uint32_t TOLD = 256;
    static constexpr std::int64_t FIRST_PATIENCE_NS = 100 * 1000 * 1000;
    static constexpr std::int64_t LEAST_PATIENCE_NS = 10 * 1000 * 1000;
    static constexpr std::int64_t MOST_PATIENCE_NS = 1000 * 1000 * 1000;

    /// A part of a sample, or all of it. Fragments count from 1; 0 and 0 for a sample in one piece.
    struct Piece {
        std::int64_t number = 0;
        std::uint32_t first_fragment = 0;
        std::uint32_t last_fragment = 0;
    };

    /// @param window  octets to begin with, above 0; `most` if it is larger than that.
    /// @param most    octets that the sockets of the peer can buffer: the window never exceeds it.
    Path(std::int64_t window, std::int64_t most) noexcept : _window(std::min(window, most)), _threshold(most), _most(most) {}

    /// Asks whether a piece may be sent, and counts it as sent if so.
    /// @param octets  of the whole message, above 0. @param now_ns  on a clock that never goes back.
    /// @param heartbeat_is_due  set to true when the reader should be asked what it has; otherwise unchanged.
    /// @return false when it must not be sent now. A first piece may always be sent, whatever its size.
    /// @throws std::bad_alloc
    bool send(const Piece& piece, std::int64_t octets, std::int64_t now_ns, bool& heartbeat_is_due) {
        if (_on_the_way != 0 && _on_the_way + octets > _window) {
            heartbeat_is_due = !_is_asked;
            _is_asked = true;
            if (now_ns - _last_sent_ns < _patience_ns) {
                return false;
            }
            back_off(_on_the_way);
            _bursts.clear();
            _on_the_way = 0;
        }
        Burst& burst = burst_of(piece);
        burst.octets += octets;
        burst.sent_ns = _last_sent_ns = now_ns;
        if (piece.last_fragment != 0) {
            burst.fragments += piece.last_fragment - piece.first_fragment + 1;
            burst.first = std::min(burst.first, piece.first_fragment);
            burst.last = std::max(burst.last, piece.last_fragment);
        }
        _on_the_way += octets;
        if (!_is_asked && (_is_recovering || 2 * _on_the_way > _window)) {
            heartbeat_is_due = _is_asked = true;
        }
        return true;
    }

    /// A reader acknowledges samples.
    /// @param before      it has all samples with a smaller number.
    /// @param is_missing  `bool(std::int64_t number)`: whether it reports that one of the others is missing.
    template <typename IsMissing>
    void acknowledge(std::int64_t before, const IsMissing& is_missing, std::int64_t now_ns) noexcept {
        std::int64_t arrived = 0;
        std::int64_t lost = 0;
        for (auto place = _bursts.begin(); place != _bursts.end();) {
            if (place->number < before) {
                arrived += place->octets;
                place = remove(place);
            } else if (is_missing(place->number) && now_ns - place->sent_ns >= _patience_ns / 2) {
                lost += place->octets;
                place = remove(place);
            } else {
                ++place;
            }
        }
        if (lost != 0) {
            back_off(lost);
        } else if (arrived != 0) {
            note_arrival();
            grow(arrived);
            _is_recovering = false;
        }
    }

    /// A reader lacks fragments of a sample.
    /// @param base           the first of them.
    /// @param missing_up_to  `std::uint32_t(std::uint32_t last)`: how many it lacks of the TOLD fragments from `base` on, without
    ///                       those after `last`.
    /// @return whether they are to be sent again: false when the reader wrote its request before the last burst can have arrived.
    template <typename MissingUpTo>
    bool ask_again(std::int64_t number, std::uint32_t base, const MissingUpTo& missing_up_to, std::int64_t now_ns) noexcept {
        const auto place = std::find_if(_bursts.begin(), _bursts.end(), [&](const Burst& each) { return each.number == number; });
        if (place == _bursts.end()) {
            return true;
        }
        const std::uint32_t looked_at =
            std::max(std::min(place->fragments, TOLD + (base > place->first ? base - place->first : 0)), 1U);
        const std::uint32_t missing = std::min(missing_up_to(place->last), looked_at);
        const bool has_come = base > place->first || missing < looked_at;
        if (!has_come && now_ns - place->sent_ns < _patience_ns) {
            return false;
        }
        const std::int64_t octets = place->octets;
        const std::int64_t sent_ns = place->sent_ns;
        remove(place);
        _is_recovering = true;
        if (!has_come) {
            back_off(octets);
            return true;
        }
        _round_trip_ns = _round_trip_ns == 0 ? now_ns - sent_ns : (3 * _round_trip_ns + now_ns - sent_ns) / 4;
        note_arrival();
        if (20 * missing <= looked_at) {
            grow(octets);
        } else if (5 * missing > looked_at) {
            _window = std::max(LEAST_WINDOW, _window - _window * missing / looked_at);
            _threshold = _window;
        }
        return true;
    }

    /// @return octets that may be on the way.
    std::int64_t window() const noexcept { return _window; }
    /// @return octets that are on the way.
    std::int64_t on_the_way() const noexcept { return _on_the_way; }

private:
    struct Burst {
        std::int64_t number;
        std::int64_t octets = 0;
        std::int64_t sent_ns = 0;  // the last of it
        std::uint32_t fragments = 0;
        std::uint32_t first = UINT32_MAX;
        std::uint32_t last = 0;
    };
    typedef std::vector<Burst>::iterator Place;

    Burst& burst_of(const Piece& piece) {
        const auto place =
            std::find_if(_bursts.rbegin(), _bursts.rend(), [&](const Burst& each) { return each.number == piece.number; });
        if (place != _bursts.rend()) {
            return *place;
        }
        Burst burst;
        burst.number = piece.number;
        _bursts.push_back(burst);
        return _bursts.back();
    }
    Place remove(Place place) noexcept {
        _on_the_way -= place->octets;
        _is_asked = false;
        return _bursts.erase(place);
    }
    void note_arrival() noexcept {
        _patience_ns =
            _round_trip_ns == 0 ? FIRST_PATIENCE_NS : std::min(std::max(2 * _round_trip_ns, LEAST_PATIENCE_NS), MOST_PATIENCE_NS);
    }
    void grow(std::int64_t arrived) noexcept {
        if (2 * arrived >= _window) {  // otherwise the window was not what limited the burst
            _window = std::min(_window < _threshold ? 2 * _window : _window + _window / 8, _most);
        }
    }
    void back_off(std::int64_t lost) noexcept {
        if (4 * lost >= _window) {  // a single fragment is no sign of congestion
            _window = std::max(LEAST_WINDOW, _window / 2);
            _threshold = _window;
        }
        _patience_ns = std::min(2 * _patience_ns, MOST_PATIENCE_NS);
        _is_asked = false;
    }

    std::int64_t _window;
    std::int64_t _threshold;  // below it the window doubles
    std::int64_t _most;
    std::int64_t _on_the_way = 0;
    std::int64_t _last_sent_ns = 0;
    std::int64_t _round_trip_ns = 0;  // from a burst to the reader's report, the wait for a heartbeat included; 0: not known
    std::int64_t _patience_ns = FIRST_PATIENCE_NS;
    bool _is_asked = false;       // a heartbeat was requested, and no report has come since
    bool _is_recovering = false;  // a reader lacks something
    std::vector<Burst> _bursts;
};

}  // namespace fastdds
}  // namespace norvane

#endif
