// SPDX-License-Identifier: Apache-2.0
#include "Question.hpp"

#include <algorithm>
#include <utility>

namespace bench {

namespace {

std::vector<const Question*>& registry() {
    static std::vector<const Question*> questions;
    return questions;
}

}  // namespace

Question::Question(std::string the_name, std::vector<Stage> the_stages, std::vector<Row> the_rows)
    : name(std::move(the_name)), stages(std::move(the_stages)), rows(std::move(the_rows)) {
    registry().push_back(this);
}

int Question::processors_needed() const {
    const bool one =
        std::all_of(stages.begin(), stages.end(), [](const Stage& stage) { return stage.processors == Processors::ONE; });
    return one ? 1 : 2;
}

std::vector<const Question*> Question::all() {
    std::vector<const Question*> questions = registry();
    std::sort(questions.begin(), questions.end(),
              [](const Question* left, const Question* right) { return left->name < right->name; });
    return questions;
}

}  // namespace bench
