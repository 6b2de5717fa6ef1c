// SPDX-License-Identifier: Apache-2.0
#include "engines/fastdds/transport/FaultPlan.hpp"

#include <charconv>
#include <set>
#include <system_error>

namespace norvane {
namespace fastdds {

namespace {

constexpr const char* NAMES[FaultPlan::KINDS] = {"DATA", "DATA_FRAG", "HEARTBEAT", "HEARTBEAT_FRAG", "ACKNACK", "NACK_FRAG",
                                                 "GAP",  "DATA(p)",   "DATA(w)",   "DATA(r)",        "ALL"};
constexpr double LONGEST_DELAY_NS = 60e9;
constexpr double SLOWEST_BIT_PER_S = 1000;
constexpr double FASTEST_BIT_PER_S = 1e12;
constexpr long LARGEST_QUEUE = 16L << 20;

struct Unit {
    const char* name;
    double factor;
};
constexpr Unit TIMES_NS[] = {{"us", 1e3}, {"ms", 1e6}, {"s", 1e9}};
constexpr Unit RATES_BIT_PER_S[] = {{"kbit", 1e3}, {"mbit", 1e6}, {"gbit", 1e9}};

std::string trimmed(const std::string& text) {
    const std::size_t first = text.find_first_not_of(' ');
    return first == std::string::npos ? std::string() : text.substr(first, text.find_last_not_of(' ') + 1 - first);
}

// @return what stands in front of a character, all if it is not there. @param rest  gets what follows it; may be the text itself.
std::string cut(const std::string& text, char at, std::string& rest) {
    const std::size_t place = text.find(at);
    const std::string before = trimmed(text.substr(0, place));
    rest = place == std::string::npos ? std::string() : trimmed(text.substr(place + 1));
    return before;
}

template <typename Number>
bool to_number(const std::string& text, Number least, Number most, Number& number) {
    const char* const end = text.data() + text.size();
    const std::from_chars_result result = std::from_chars(text.data(), end, number);
    return result.ec == std::errc() && result.ptr == end && number >= least && number <= most;
}

template <std::size_t COUNT>
bool to_quantity(const std::string& text, const Unit (&units)[COUNT], double least, double most, double& quantity) {
    const std::size_t place = text.find_first_not_of("0123456789.");
    for (const Unit& unit : units) {
        if (place != std::string::npos && text.substr(place) == unit.name) {
            return to_number<double>(text.substr(0, place), least / unit.factor, most / unit.factor, quantity) &&
                   (quantity *= unit.factor, true);
        }
    }
    return false;
}

bool to_kind(const std::string& text, std::size_t& kind) {
    for (kind = 0; kind < FaultPlan::KINDS; ++kind) {
        if (text == NAMES[kind]) {
            return true;
        }
    }
    return false;
}

std::string all_names() {
    std::string text;
    for (const char* const name : NAMES) {
        text += text.empty() ? name : std::string(", ") + name;
    }
    return text;
}

// Takes what stands behind the name of a fault. @return what would have been right; null if it was.
const char* take(const std::string& name, const std::string& value, FaultPlan& plan) {
    const auto share = [](const std::string& text, double& to) { return to_number(text, 0.0, 1.0, to); };
    std::string rest;
    const std::string first = cut(value, ':', rest);
    std::size_t kind = 0;
    double quantity = 0;
    if (name == "seed") {
        return to_number<std::uint64_t>(value, 0, UINT64_MAX, plan.seed) ? nullptr : "seed=<a whole number>";
    }
    if (name == "drop") {
        return to_kind(first, kind) && share(rest, plan.drop[kind]) ? nullptr : "drop=<kind>:<share, 0 to 1>";
    }
    if (name == "first") {
        return to_kind(value, kind) && (plan.first[kind] = true) ? nullptr : "first=<kind>";
    }
    if (name == "gap") {
        plan.gap = true;
        return value.empty() ? nullptr : "gap, without a value";
    }
    if (name == "delay") {
        plan.delayed = 1;
        if (!to_quantity(first, TIMES_NS, 0, LONGEST_DELAY_NS, quantity) || (!rest.empty() && !share(rest, plan.delayed))) {
            return "delay=<time up to 60 s, with us, ms or s>:<share, 0 to 1; all without it>";
        }
        plan.delay_ns = static_cast<std::int64_t>(quantity);
        return nullptr;
    }
    if (name == "rate") {
        if (!to_quantity(first, RATES_BIT_PER_S, SLOWEST_BIT_PER_S, FASTEST_BIT_PER_S, quantity) ||
            (!rest.empty() && !to_number<std::int64_t>(rest, 1, LARGEST_QUEUE, plan.queue))) {
            return "rate=<bits a second, with kbit, mbit or gbit>:<octets that may wait, up to 16777216; 100000 without it>";
        }
        plan.bits_per_ns = quantity / 1e9;
        return nullptr;
    }
    if (name == "dup") {
        return share(value, plan.duplicated) ? nullptr : "dup=<share, 0 to 1>";
    }
    if (name == "reorder") {
        return share(value, plan.reordered) ? nullptr : "reorder=<share, 0 to 1>";
    }
    if (name == "tamper") {
        return share(value, plan.tampered) ? nullptr : "tamper=<share, 0 to 1>";
    }
    return "one of seed, drop, first, gap, delay, rate, dup, reorder, tamper";
}

}  // namespace

const char* FaultPlan::name_of(std::size_t kind) noexcept { return NAMES[kind]; }

bool FaultPlan::parse(const std::string& text, std::string& refusal) {
    std::set<std::string> known;
    for (std::string rest = trimmed(text); !rest.empty();) {
        std::string value;
        const std::string entry = cut(rest, ';', rest);
        const std::string name = cut(entry, '=', value);
        const char* const right = take(name, value, *this);
        if (right != nullptr) {
            refusal = "has \"" + entry + "\" in it, which is not understood: write " + right;
            if (name == "drop" || name == "first") {
                refusal += "; kinds are " + all_names();
            }
            return false;
        }
        const bool has_kind = name == "drop" || name == "first";
        if (!known.insert(has_kind ? name + "=" + cut(value, ':', value) : name).second) {
            refusal = "has \"" + entry + "\" in it after another of its kind: write one of them";
            return false;
        }
    }
    return true;
}

}  // namespace fastdds
}  // namespace norvane
