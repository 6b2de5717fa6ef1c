// SPDX-License-Identifier: Apache-2.0
#include "Table.hpp"

#include <cmath>
#include <cstdio>

namespace bench {

namespace {

constexpr int LABEL_WIDTH = 66;

std::string number(double value, const char* unit) {
    char text[32];
    const int decimals = value >= 100 ? 0 : value >= 10 ? 1 : value >= 1 ? 2 : 3;
    std::snprintf(text, sizeof text, "%.*f%s", decimals, value, unit);
    return text;
}

std::string figure(double value, Unit unit) {
    switch (unit) {
        case Unit::TIME:
            return value >= 1e7 ? number(value / 1e6, " ms") : number(value / 1e3, " us");
        case Unit::RATE:
            return value >= 1e5 ? number(value / 1e6, " M/s") : number(value / 1e3, " k/s");
        case Unit::OCTETS:
            return number(value / 1e6, " MB");
        case Unit::COUNT:
            break;
    }
    // A rare event must not be rounded to none.
    char text[32];
    std::snprintf(text, sizeof text, "%.3g", value);
    return text;
}

double counter(const std::map<std::string, const benchmark::BenchmarkReporter::Run*>& aggregates, const char* statistic,
               const std::string& name) {
    const auto run = aggregates.find(statistic);
    if (run == aggregates.end()) {
        return NAN;
    }
    const auto found = run->second->counters.find(name);
    return found == run->second->counters.end() ? NAN : found->second.value;
}

}  // namespace

std::string ours_counter(const Row& row) { return row.label + "; ours"; }
std::string floor_counter(const Row& row) { return row.label + "; floor"; }
std::string ratio_counter(const Row& row) { return row.label + "; ratio"; }

bool Table::ReportContext(const Context&) {
    std::printf("%-*s %10s %10s %7s %8s  %s\n", LABEL_WIDTH, "question", "ours", "floor", "ratio", "target", "reached");
    return true;
}

void Table::ReportRuns(const std::vector<Run>& runs) {
    if (runs.empty()) {
        return;
    }
    const Question& question = *_questions.at(runs.front().run_name.function_name);
    std::map<std::string, const Run*> aggregates;
    for (const Run& run : runs) {
        if (run.error_occurred) {
            _broken.insert(question.name);
            std::printf("%-*s broken: %s\n", LABEL_WIDTH, question.name.c_str(), run.error_message.c_str());
            return;
        }
        if (run.run_type == Run::RT_Aggregate) {
            aggregates[run.aggregate_name] = &run;
        } else if (runs.size() == 1) {
            // A single round has no aggregates: it is its own median.
            aggregates["median"] = aggregates["mean"] = &run;
        }
    }
    // Google Benchmark reports the single rounds first, and the aggregates in a second call: those of a question that broke
    // half-way too.
    if (aggregates.empty() || _broken.count(question.name) > 0) {
        return;
    }
    for (const Row& row : question.rows) {
        print(row, aggregates);
    }
    std::fflush(stdout);
}

void Table::print(const Row& row, const std::map<std::string, const Run*>& aggregates) {
    const double ours = counter(aggregates, row.unit == Unit::COUNT ? "mean" : "median", ours_counter(row));
    const double floor = counter(aggregates, "median", floor_counter(row));
    const double ratio = row.has_floor() ? counter(aggregates, "median", ratio_counter(row)) : ours;
    const bool reached = row.unit == Unit::RATE ? ratio >= row.target : ratio <= row.target;
    const bool judged = !std::isnan(row.target);
    if (judged) {
        (reached ? _reached : _missed) += 1;
    }

    char ratio_text[32];
    std::snprintf(ratio_text, sizeof ratio_text, "%.2f", ratio);
    const char* const bound = row.unit == Unit::RATE ? ">= " : row.unit == Unit::COUNT ? "= " : "<= ";
    const std::string target = judged ? bound + figure(row.target, Unit::COUNT) : "-";
    const char* const verdict = reached ? "yes" : "no";
    std::printf("%-*s %10s %10s %7s %8s  %s\n", LABEL_WIDTH, row.label.c_str(), figure(ours, row.unit).c_str(),
                row.has_floor() ? figure(floor, row.unit).c_str() : "-", row.has_floor() ? ratio_text : "-", target.c_str(),
                judged ? verdict : "-");
}

void Table::Finalize() { std::printf("\n%d reached, %d not reached, %zu broken\n", _reached, _missed, _broken.size()); }

}  // namespace bench
