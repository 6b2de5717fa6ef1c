// SPDX-License-Identifier: Apache-2.0
// How much of a writer's large samples may be on the way to one participant of a peer, at one of its places, without an
// acknowledgement: a congestion window. It is that of one writer, so that a reader which takes nothing in stops nobody else's
// samples.
//
// A burst is what was sent of one sample since the reader last said what it lacks. What does not fit into the window is not sent:
// to Fast DDS it is lost on the wire, and the reader asks for it with its next acknowledgement. So the reader's requests pull a
// large sample over a narrow wire.
//
// Invariants:
// 1. `on_the_way` is the sum of the bursts' octets. It exceeds the window by one datagram at most.
// 2. The window doubles with each burst that arrives, but for a twentieth, until one does not; then it grows by an eighth. It
//    shrinks by what was lost when that is more than a fifth, and by half when nothing arrives.
// 3. While nothing arrives, the time until the next try doubles, up to MOST_PATIENCE_NS.
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
    /// Fragments that one request tells of at most.
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

    /// @param window  octets to begin with. @param most  what the sockets of the peer take.
    Path(std::int64_t window, std::int64_t most) noexcept : _window(std::min(window, most)), _threshold(most), _most(most) {}

    /// Asks to send a piece. @param heartbeat_is_due  gets whether the reader should be asked what it has.
    /// @return false when it must not be sent now. @throws std::bad_alloc
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

    /// A reader has said that it has all samples before a number; of those from there on, `is_missing` tells.
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

    /// A reader lacks fragments of a sample. @param base  the first of them. @param missing_up_to  how many of TOLD from there on
    /// it lacks, up to a fragment. @return whether what it lacks is to be sent again: not when it told so before the last burst
    /// came.
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

    std::int64_t window() const noexcept { return _window; }
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
        if (2 * arrived >= _window) {  // else it was not used
            _window = std::min(_window < _threshold ? 2 * _window : _window + _window / 8, _most);
        }
    }
    void back_off(std::int64_t lost) noexcept {
        if (4 * lost >= _window) {  // a fragment or two are easily lost
            _window = std::max(LEAST_WINDOW, _window / 2);
            _threshold = _window;
        }
        _patience_ns = std::min(2 * _patience_ns, MOST_PATIENCE_NS);
        _is_asked = false;
    }

    std::int64_t _window;
    std::int64_t _threshold;  // below, it doubles
    std::int64_t _most;
    std::int64_t _on_the_way = 0;
    std::int64_t _last_sent_ns = 0;
    std::int64_t _round_trip_ns = 0;  // to the answer, the wait for a heartbeat included; 0: not known
    std::int64_t _patience_ns = FIRST_PATIENCE_NS;
    bool _is_asked = false;       // a heartbeat was wanted, and nothing has come since
    bool _is_recovering = false;  // a reader lacks something
    std::vector<Burst> _bursts;
};

}  // namespace fastdds
}  // namespace norvane

#endif
