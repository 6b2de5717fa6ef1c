// SPDX-License-Identifier: Apache-2.0
// A stage of a question, run in a child process: what the library reads once when it starts, and the processors that a process is
// confined to, can differ from stage to stage that way.
//
// The child is this program again. It measures one round each time it is asked, and sleeps in between.
#ifndef BENCH_STAGEPROCESS_HPP
#define BENCH_STAGEPROCESS_HPP

#include <sys/types.h>

#include "Question.hpp"

namespace bench {

class StageProcess {
public:
    /// Starts the child and lets it warm up.
    /// @throws std::runtime_error  it could not be started, or warming up failed.
    StageProcess(const Question& question, std::size_t stage);
    StageProcess(const StageProcess&) = delete;
    StageProcess& operator=(const StageProcess&) = delete;
    ~StageProcess();

    /// @throws std::runtime_error  with the child's own words when it could not measure.
    Values measure();

    /// Is this process such a child? Then it serves until its parent goes, and `*exit_code` says how that ended.
    static bool serve(int argc, char** argv, int* exit_code);

private:
    void end() noexcept;

    pid_t _child = -1;
    int _socket = -1;
};

}  // namespace bench

#endif
