// SPDX-License-Identifier: Apache-2.0
// Congestion control and loss detection: how many octets of a writer's large samples may be on the way to one locator of a peer, and
// which of them count as lost. Each writer has its own, so that a reader that accepts nothing does not delay the samples of other
// writers.
//
// A datagram is on the way from the moment it is sent until a report of the reader (ACKNACK or NACK_FRAG) shows that it has arrived,
// or until it counts as lost. What does not fit into the window, and what is on the way already, is not sent: to Fast DDS it is lost
// on the wire, and the reader asks for it with its next report. So the reports of the reader pace the transmission.
//
// A report tells what the reader had when it wrote it, one way ago: it lists all that was sent since then as missing. As in RFC 9002,
// a datagram that it lists is lost only if one that was sent REORDERED or more later has arrived, or if a round trip and a margin
// have passed since it was sent. Otherwise the reader is asked once more.
//
// Invariants:
// 1. `on_the_way` is the sum of the datagrams sent that have neither arrived nor been lost. Nothing is sent that makes it exceed the
//    window, but a datagram that is alone.
// 2. A message whose fragments are all on the way is not sent.
// 3. While the window limits the transmission it grows by what arrives, until it first shrinks; from then on by an eighth of that,
//    and by twice the share after each round without losses. It shrinks by the share that was lost, if that is more than a quarter,
//    once in a round trip; losses below that are taken for those of a bad wire, not of a full one.
// 4. While nothing arrives, the time until the next attempt doubles, up to MOST_PATIENCE_NS.
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
    /// As long as no round trip is known.
    static constexpr std::int64_t FIRST_PATIENCE_NS = 500 * 1000 * 1000;
    static constexpr std::int64_t LEAST_PATIENCE_NS = 10 * 1000 * 1000;
    static constexpr std::int64_t MOST_PATIENCE_NS = 1000 * 1000 * 1000;

    /// A part of a sample, or all of it. Fragments count from 1; 0 and 0 for a sample in one piece.
    struct Piece {
        std::int64_t number = 0;
        std::uint32_t first_fragment = 0;
        std::uint32_t last_fragment = 0;
        bool is_alone = true;  ///< The message has parts of no other sample.
    };

    /// What a report says of a sample, or of a fragment.
    enum class Fate { UNKNOWN, ARRIVED, MISSING };

    /// @param window  octets to begin with, above 0; `most` if it is larger than that.
    /// @param most    octets that the sockets of the peer can buffer: the window never exceeds it.
    Path(std::int64_t window, std::int64_t most) noexcept : _window(std::min(window, most)), _most(most) {}

    /// Asks whether a piece may be sent, and counts it as sent if so.
    /// @param octets  of the whole message, above 0. @param now_ns  on a clock that never goes back.
    /// @return false when it must not be sent now. A first piece may always be sent, whatever its size.
    /// @throws std::bad_alloc
    bool send(const Piece& piece, std::int64_t octets, std::int64_t now_ns) {
        _wants_report = _wants_report || (piece.number == _wanted.number && piece.first_fragment <= _wanted.last_fragment &&
                                          _wanted.last_fragment <= piece.last_fragment);
        const Place known = find(piece.number, piece.first_fragment);
        const bool is_known = known != _sent.end() && known->number == piece.number && known->first <= piece.last_fragment;
        if (is_known && piece.is_alone && !known->is_lost && known->last >= piece.last_fragment &&
            now_ns - known->sent_ns < std::max(_patience_ns, loss_delay_ns())) {
            return false;
        }
        if (_on_the_way != 0 && _on_the_way + octets > _window) {
            _is_limited = _wants_report = true;
            if (now_ns - _sent_ns < _patience_ns) {
                return false;
            }
            give_up();
        }
        note_sent(piece, octets, now_ns);
        return true;
    }

    /// A reader acknowledges samples.
    /// @param before  it has all samples with a smaller number.
    /// @param fate    `Fate(std::int64_t number)`: what it says of the others. A sample of which it has a part is UNKNOWN.
    template <typename FateOf>
    void acknowledge(std::int64_t before, const FateOf& fate, std::int64_t now_ns) noexcept {
        Report report;
        for (Place place = remove_before(before, report, now_ns); place != _sent.end();) {
            const bool has_arrived = place->last == 0 && fate(place->number) == Fate::ARRIVED;
            if (has_arrived) {
                note_arrival(*place, report, now_ns);
            }
            place = has_arrived ? _sent.erase(place) : place + 1;
        }
        for (Sent& each : _sent) {
            if (fate(each.number) == Fate::MISSING) {
                judge(each, report, now_ns);
            }
        }
        take_in(report, now_ns);
    }

    /// Readers have all samples with a smaller number: replies to them prove it. (They tell no round trip: a reply takes as long as
    /// its replier does.)
    void acknowledge(std::int64_t before, std::int64_t now_ns) noexcept {
        Report report;
        remove_before(before, report, now_ns);
        report.sampled_ns = 0;
        take_in(report, now_ns);
    }

    /// A reader asks for fragments of a sample.
    /// @param base  the first of them: it has all before. @param fate  `Fate(std::uint32_t fragment)`, for each from there on.
    /// @return whether any of them is to be sent: false if all are on the way.
    template <typename FateOf>
    bool ask_again(std::int64_t number, std::uint32_t base, const FateOf& fate, std::int64_t now_ns) noexcept {
        Report report;
        const Place first = find(number, 0);
        const Place end = find(number, UINT32_MAX);
        const Place rest = std::remove_if(first, end, [&](const Sent& each) {
            bool has_arrived = true;
            for (std::uint32_t fragment = std::max(each.first, base); has_arrived && fragment <= each.last; ++fragment) {
                has_arrived = fate(fragment) == Fate::ARRIVED;
            }
            if (has_arrived) {
                note_arrival(each, report, now_ns);
            }
            return has_arrived;
        });
        bool is_wanted = false;
        Place place = first;
        for (std::uint32_t fragment = base; fragment - base < TOLD; ++fragment) {
            if (fate(fragment) != Fate::MISSING) {
                continue;
            }
            for (; place != rest && place->last < fragment; ++place) {
            }
            const bool was_sent = place != rest && place->first <= fragment;
            if (was_sent) {
                judge(*place, report, now_ns);
            }
            if (!was_sent || place->is_lost) {
                is_wanted = true;
                _wanted = {number, fragment, fragment, true};
            }
        }
        _sent.erase(rest, end);
        take_in(report, now_ns);
        return is_wanted;
    }

    /// @return whether the reader should be sent a heartbeat, so that it reports what it has: at the end of a burst, and where a
    ///         report has left open what is lost. True once for each.
    bool is_heartbeat_due(std::int64_t now_ns) noexcept {
        const bool is_asked = _asked_ns >= _sent_ns && now_ns - _asked_ns < std::max(_round_trip_ns, LEAST_MARGIN_NS) / 2;
        const bool is_due = _wants_report && !is_asked;
        _wants_report = false;
        _asked_ns = is_due ? now_ns : _asked_ns;
        return is_due;
    }

    /// @return octets that may be on the way.
    std::int64_t window() const noexcept { return _window; }
    /// @return octets that are on the way.
    std::int64_t on_the_way() const noexcept { return _on_the_way; }

private:
    // By so many datagrams the wire changes their order.
    static constexpr std::uint64_t REORDERED = 3;
    // A thread may be late by that.
    static constexpr std::int64_t LEAST_MARGIN_NS = 1000 * 1000;
    static constexpr std::int64_t MOST_REORDERING_NS = 10 * 1000 * 1000;
    // Of what arrives, the window grows by up to so many parts of as many.
    static constexpr std::int64_t PARTS = 8;

    struct Sent {
        std::int64_t number;
        std::uint32_t first;
        std::uint32_t last;
        std::int64_t octets;
        std::int64_t sent_ns;
        std::uint64_t order;  // counts the datagrams
        bool is_again;        // it had been sent before
        bool is_lost;
        bool is_listed;  // as missing, since it was sent
    };
    typedef std::vector<Sent>::iterator Place;

    // What one report has told.
    struct Report {
        std::int64_t arrived = 0;        // octets
        std::int64_t sampled_ns = 0;     // when the newest of those that tell the round trip was sent; 0: none
        bool is_reordered = false;       // something that had counted as lost has arrived
        std::uint64_t newest_order = 0;  // of those that have arrived or been lost
    };

    Place find(std::int64_t number, std::uint32_t fragment) noexcept {
        return std::lower_bound(_sent.begin(), _sent.end(), number, [fragment](const Sent& each, std::int64_t wanted) {
            return each.number < wanted || (each.number == wanted && each.last < fragment);
        });
    }
    void note_sent(const Piece& piece, std::int64_t octets, std::int64_t now_ns) {
        const Place first = find(piece.number, piece.first_fragment);
        Place end = first;
        for (; end != _sent.end() && end->number == piece.number && end->first <= piece.last_fragment; ++end) {
            _on_the_way -= end->is_lost ? 0 : end->octets;
        }
        const Sent sent = {
            piece.number, piece.first_fragment, piece.last_fragment, octets, now_ns, ++_last_order, first != end, false, false};
        if (first == end) {
            _sent.insert(first, sent);
        } else {
            *first = sent;
            _sent.erase(first + 1, end);
        }
        _on_the_way += octets;
        _sent_ns = now_ns;
    }
    void note_arrival(const Sent& sent, Report& report, std::int64_t now_ns) noexcept {
        const bool is_late = sent.is_lost || (sent.is_again && now_ns - sent.sent_ns < _least_round_trip_ns * 3 / 4);
        if (!sent.is_lost) {
            _on_the_way -= sent.octets;
            report.arrived += sent.octets;
            report.newest_order = std::max(report.newest_order, sent.order);
        }
        if (is_late) {
            report.is_reordered = true;  // the first one has come after all
            return;
        }
        _newest_arrived = std::max(_newest_arrived, sent.order);
        // What no report has covered until now may have arrived long ago.
        const bool is_news = sent.is_listed || _heard_ns < sent.sent_ns + _least_round_trip_ns;
        report.sampled_ns = sent.is_again || !is_news ? report.sampled_ns : std::max(report.sampled_ns, sent.sent_ns);
    }
    Place remove_before(std::int64_t number, Report& report, std::int64_t now_ns) noexcept {
        const Place others = find(number, 0);
        for (Place place = _sent.begin(); place != others; ++place) {
            note_arrival(*place, report, now_ns);
        }
        return _sent.erase(_sent.begin(), others);
    }
    // Of a datagram that is reported missing.
    void judge(Sent& sent, Report& report, std::int64_t now_ns) noexcept {
        sent.is_listed = true;
        if (sent.is_lost) {
            return;
        }
        const bool is_overtaken = sent.order + REORDERED <= _newest_arrived;
        if (now_ns - sent.sent_ns < (is_overtaken ? overtaken_delay_ns() : loss_delay_ns())) {
            _wants_report = true;
            return;
        }
        sent.is_lost = true;
        _on_the_way -= sent.octets;
        report.newest_order = std::max(report.newest_order, sent.order);
        _lost += sent.order > _shrunk_at ? sent.octets : 0;
    }
    void take_in(const Report& report, std::int64_t now_ns) noexcept {
        _heard_ns = now_ns;
        if (report.sampled_ns != 0) {
            note_round_trip(now_ns - report.sampled_ns);
        }
        if (report.is_reordered) {
            _reordering_ns =
                std::min(std::max(2 * _reordering_ns, LEAST_MARGIN_NS), std::max(_least_round_trip_ns, MOST_REORDERING_NS));
        }
        if (report.arrived != 0) {
            _patience_ns = _round_trip_ns == 0
                               ? FIRST_PATIENCE_NS
                               : std::min(std::max(2 * (_round_trip_ns + 4 * _deviation_ns), LEAST_PATIENCE_NS), MOST_PATIENCE_NS);
        }
        _arrived += report.arrived;
        if (_is_limited) {
            _window = std::min(_window + report.arrived * _parts / PARTS, _most);
        }
        if (4 * _lost > _arrived + _lost && 8 * _lost >= _window) {
            shrink_to(_window * _arrived / (_arrived + _lost));
        } else if (report.newest_order > _round_began_at) {
            if (16 * _lost > _arrived + _lost && _shrunk_at != 0) {
                _parts = 1;
            } else if (_is_limited) {
                _parts = std::min(2 * _parts, PARTS);
            }
            begin_round();
        }
    }
    void note_round_trip(std::int64_t sample_ns) noexcept {
        if (_round_trip_ns == 0) {
            _least_round_trip_ns = _round_trip_ns = sample_ns;
            _deviation_ns = sample_ns / 2;
        } else {
            _deviation_ns += (std::abs(sample_ns - _round_trip_ns) - _deviation_ns) / 4;
            _round_trip_ns += (sample_ns - _round_trip_ns) / 8;
            _least_round_trip_ns = std::min(sample_ns, _least_round_trip_ns + (sample_ns - _least_round_trip_ns) / 32);
        }
    }
    std::int64_t loss_delay_ns() const noexcept {
        return _round_trip_ns == 0 ? _patience_ns : _round_trip_ns + std::max({4 * _deviation_ns, LEAST_MARGIN_NS, _reordering_ns});
    }
    // Where datagrams overtake each other, they are given time.
    std::int64_t overtaken_delay_ns() const noexcept { return _reordering_ns == 0 ? 0 : _least_round_trip_ns + _reordering_ns; }
    void begin_round() noexcept {
        _reordering_ns -= _reordering_ns / 16;
        _round_began_at = _last_order;
        _arrived = _lost = 0;
        _is_limited = false;
    }
    void shrink_to(std::int64_t window) noexcept {
        _window = std::max({LEAST_WINDOW, _window / 4, window});
        _parts = 1;
        _shrunk_at = _last_order;
        begin_round();
    }
    // No report has made room for long.
    void give_up() noexcept {
        _sent.clear();
        _on_the_way = 0;
        _patience_ns = std::min(2 * _patience_ns, MOST_PATIENCE_NS);
        shrink_to(_window / 2);
    }

    std::int64_t _window;
    std::int64_t _most;
    std::int64_t _parts = PARTS;  // see PARTS
    std::int64_t _on_the_way = 0;
    std::int64_t _sent_ns = 0;        // when the last datagram was sent,
    std::int64_t _heard_ns = 0;       // the last report came,
    std::int64_t _asked_ns = 0;       // and the reader was last asked for one
    std::int64_t _round_trip_ns = 0;  // smoothed, the wait for a heartbeat included; 0: not known
    std::int64_t _deviation_ns = 0;
    std::int64_t _least_round_trip_ns = 0;
    std::int64_t _reordering_ns = 0;  // by how much datagrams came late
    std::int64_t _patience_ns = FIRST_PATIENCE_NS;
    std::int64_t _arrived = 0;  // octets, in this round
    std::int64_t _lost = 0;
    std::uint64_t _last_order = 0;
    std::uint64_t _newest_arrived = 0;
    std::uint64_t _round_began_at = 0;
    std::uint64_t _shrunk_at = 0;
    bool _is_limited = false;  // by the window, in this round
    bool _wants_report = false;
    Piece _wanted;            // the last fragment that was asked for and is to be sent
    std::vector<Sent> _sent;  // by number and fragment
};

}  // namespace fastdds
}  // namespace norvane

#endif
