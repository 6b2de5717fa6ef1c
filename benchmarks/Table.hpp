// SPDX-License-Identifier: Apache-2.0
// The table of results: a reporter for Google Benchmark that prints one line per row of a question, as soon as it is answered.
#ifndef BENCH_TABLE_HPP
#define BENCH_TABLE_HPP

#include <benchmark/benchmark.h>

#include <map>
#include <set>
#include <string>
#include <vector>

#include "Question.hpp"

namespace bench {

/// Names of the counters by which a row's figures travel through Google Benchmark.
std::string ours_counter(const Row& row);
std::string floor_counter(const Row& row);
std::string ratio_counter(const Row& row);

class Table : public benchmark::BenchmarkReporter {
public:
    bool ReportContext(const Context& context) override;
    void ReportRuns(const std::vector<Run>& runs) override;
    void Finalize() override;

    /// Results print under the question that this benchmark name stands for.
    void add(const Question& question) { _questions[question.name] = &question; }
    bool broken() const { return !_broken.empty(); }

private:
    void print(const Row& row, const std::map<std::string, const Run*>& aggregates);

    std::map<std::string, const Question*> _questions;
    int _reached = 0;
    int _missed = 0;
    std::set<std::string> _broken;
};

}  // namespace bench

#endif
