// SPDX-License-Identifier: Apache-2.0
// The benchmark program: answers every question and prints one table. Takes Google Benchmark's options.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <exception>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "Placement.hpp"
#include "Question.hpp"
#include "StageProcess.hpp"
#include "Table.hpp"

namespace {

/// The processes of the question that is being asked; they live from its first round to the first round of the next one.
struct Rehearsal {
    const bench::Question* question = nullptr;
    std::vector<std::unique_ptr<bench::StageProcess>> stages;
    bool backwards = false;  // whether the next round goes through the stages from the last to the first
    std::string failure;     // once broken, the question's other rounds are not tried
};

void measure_round(const bench::Question& question, Rehearsal& rehearsal, benchmark::State& state) {
    if (rehearsal.question != &question) {
        rehearsal = Rehearsal();
        rehearsal.question = &question;
        for (std::size_t stage = 0; stage < question.stages.size(); ++stage) {
            rehearsal.stages.push_back(std::make_unique<bench::StageProcess>(question, stage));
        }
    }
    if (!rehearsal.failure.empty()) {
        throw std::runtime_error(rehearsal.failure);
    }
    // Forwards and backwards in turn: who comes first finds the processor in another state than who comes last.
    std::vector<bench::Values> values(rehearsal.stages.size());
    for (std::size_t step = 0; step < values.size(); ++step) {
        const std::size_t stage = rehearsal.backwards ? values.size() - 1 - step : step;
        values[stage] = rehearsal.stages[stage]->measure();
    }
    rehearsal.backwards = !rehearsal.backwards;
    for (const bench::Row& row : question.rows) {
        const double ours = values.at(row.ours.stage).at(row.ours.value);
        state.counters[bench::ours_counter(row)] = ours;
        if (row.has_floor()) {
            const double floor = values.at(row.floor.stage).at(row.floor.value);
            state.counters[bench::floor_counter(row)] = floor;
            state.counters[bench::ratio_counter(row)] = ours / floor;
        }
    }
}

}  // namespace

int main(int argc, char** argv) {
    int exit_code = 0;
    if (bench::StageProcess::serve(argc, argv, &exit_code)) {
        return exit_code;
    }

    // First, so that what the command line says wins.
    std::string rounds = "--benchmark_repetitions=30";
    std::vector<char*> arguments(argv, argv + argc);
    arguments.insert(arguments.begin() + 1, &rounds[0]);
    int count = static_cast<int>(arguments.size());
    arguments.push_back(nullptr);
    benchmark::Initialize(&count, arguments.data());
    if (benchmark::ReportUnrecognizedArguments(count, arguments.data())) {
        return 1;
    }

    const cpu_set_t allowed = bench::allowed_processors();
    const int processors = CPU_COUNT(&allowed);
    bench::Table table;
    Rehearsal rehearsal;
    for (const bench::Question* question : bench::Question::all()) {
        if (question->processors_needed() > processors) {
            std::fprintf(stderr, "%s is not asked: it needs %d processors\n", question->name.c_str(),
                         question->processors_needed());
            continue;
        }
        table.add(*question);
        benchmark::RegisterBenchmark(question->name.c_str(), [question, &rehearsal](benchmark::State& state) {
            for (auto unused : state) {
                static_cast<void>(unused);
                try {
                    measure_round(*question, rehearsal, state);
                } catch (const std::exception& failure) {
                    rehearsal.stages.clear();
                    rehearsal.failure = failure.what();
                    state.SkipWithError(failure.what());
                    break;
                }
            }
        })->Iterations(1);
    }
    benchmark::RunSpecifiedBenchmarks(&table);
    benchmark::Shutdown();
    return table.broken() ? 1 : 0;
}
