// SPDX-License-Identifier: Apache-2.0
// A question: what is measured, in which processes, and the rows of the table that answer it.
//
// Each round measures every probe of the question once, in turn, so that ours and the floor meet the same weather.
// Thread rule: questions are made before main and only read afterwards.
#ifndef BENCH_QUESTION_HPP
#define BENCH_QUESTION_HPP

#include <array>
#include <cstdint>
#include <functional>
#include <limits>
#include <memory>
#include <string>
#include <vector>

namespace bench {

constexpr std::size_t VALUES = 8;
/// What one round of a probe measured. Times are nanoseconds, rates are calls per second.
typedef std::array<double, VALUES> Values;

/// Measures in a process of its own. It is made once, and asked many times.
class Probe {
public:
    Probe() = default;
    Probe(const Probe&) = delete;
    Probe& operator=(const Probe&) = delete;
    virtual ~Probe() = default;

    /// One round, some 10 to 50 milliseconds. The first one of a process warms up and is not counted.
    /// @throws std::exception  something broke; the whole question fails.
    virtual Values measure() = 0;
};

enum class Processors {
    ONE,  ///< The process is confined to one, as by taskset.
    TWO,  ///< The process is confined to two, and threads move between them as the kernel likes.
};
enum class Spin { DEFAULT, OFF };

/// A probe, and the process it runs in.
struct Stage {
    Processors processors;
    Spin spin;
    std::function<std::unique_ptr<Probe>()> make_probe;
};

/// Where a row finds a figure: which stage, which of its values.
struct Source {
    std::size_t stage;
    std::size_t value;
};
constexpr Source NO_SOURCE = {SIZE_MAX, SIZE_MAX};

enum class Unit { TIME, RATE, COUNT, OCTETS };
/// Of a row that is only reported.
constexpr double NO_TARGET = std::numeric_limits<double>::quiet_NaN();

/// One line of the table. Its ratio is the median over the rounds of ours divided by the floor. Without a floor, its own value is
/// held to the target: of a COUNT the mean over all rounds, since a median would hide what is rare.
struct Row {
    std::string label;
    Unit unit;
    Source ours;
    Source floor;
    double target;  ///< Largest ratio (TIME), smallest ratio (RATE), or largest count (COUNT).

    bool has_floor() const { return floor.stage != NO_SOURCE.stage; }
};

/// Registers itself.
class Question {
public:
    Question(std::string name, std::vector<Stage> stages, std::vector<Row> rows);
    Question(const Question&) = delete;
    Question& operator=(const Question&) = delete;

    /// @return how many processors it cannot be asked without.
    int processors_needed() const;

    /// @return all questions, by name.
    static std::vector<const Question*> all();

    const std::string name;  ///< For --benchmark_filter.
    const std::vector<Stage> stages;
    const std::vector<Row> rows;
};

}  // namespace bench

#endif
