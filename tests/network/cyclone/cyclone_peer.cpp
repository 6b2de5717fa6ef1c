// SPDX-License-Identifier: Apache-2.0
// A program on Cyclone DDS that meets a service of ours on its topics. Argument: domain. It reads a line at a time, and answers
// each with one: "ask <number> <text>" when its reader and writer have partners and the question is written and acknowledged; "meet
// <number>" when so many writers of questions are found; "answer" and "question" with the next sample of that kind that it reads,
// "(none)" when none comes in time.
// Thread rule: one thread.
#include <dds/dds.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <sstream>
#include <string>

#include <Questions.h>  // from Questions.idl

namespace {

constexpr dds_duration_t PATIENCE = DDS_SECS(10);

dds_entity_t checked(dds_entity_t entity) {
    if (entity < 0) {
        std::fprintf(stderr, "cyclone_peer: %s\n", dds_strretcode(-entity));
        std::exit(1);
    }
    return entity;
}

// @return false when the condition does not hold in time.
template <typename Condition>
bool wait_until(Condition condition) {
    const dds_time_t end = dds_time() + PATIENCE;
    while (!condition() && dds_time() < end) {
        dds_sleepfor(DDS_MSECS(1));
    }
    return condition();
}

bool has_readers(dds_entity_t writer, std::uint32_t count) {
    dds_publication_matched_status_t status;
    return wait_until([&] { return dds_get_publication_matched_status(writer, &status) == 0 && status.current_count >= count; });
}

bool has_writers(dds_entity_t reader, std::uint32_t count) {
    dds_subscription_matched_status_t status;
    return wait_until([&] { return dds_get_subscription_matched_status(reader, &status) == 0 && status.current_count >= count; });
}

// Takes the next sample.
template <typename Sample>
std::string next(dds_entity_t reader) {
    std::string text = "(none)";
    wait_until([&] {
        void* sample = nullptr;
        dds_sample_info_t info;
        if (text == "(none)" && dds_take(reader, &sample, &info, 1, 1) == 1) {
            const Sample& taken = *static_cast<const Sample*>(sample);
            text = info.valid_data ? std::to_string(taken.number) + " " + taken.of : text;
            dds_return_loan(reader, &sample, 1);
        }
        return text != "(none)";
    });
    return text;
}

}  // namespace

int main(int count, char** words) {
    const dds_entity_t participant =
        checked(dds_create_participant(count > 1 ? static_cast<dds_domainid_t>(std::atoi(words[1])) : 0, nullptr, nullptr));
    const dds_entity_t request_topic =
        checked(dds_create_topic(participant, &questions_Question_desc, "MoodsRequest", nullptr, nullptr));
    const dds_entity_t reply_topic = checked(dds_create_topic(participant, &questions_Answer_desc, "MoodsReply", nullptr, nullptr));
    dds_qos_t* const qos = dds_create_qos();
    dds_qset_reliability(qos, DDS_RELIABILITY_RELIABLE, PATIENCE);
    dds_qset_history(qos, DDS_HISTORY_KEEP_ALL, 0);
    const dds_entity_t asking = checked(dds_create_writer(participant, request_topic, qos, nullptr));
    const dds_entity_t questions = checked(dds_create_reader(participant, request_topic, qos, nullptr));
    const dds_entity_t answers = checked(dds_create_reader(participant, reply_topic, qos, nullptr));
    dds_delete_qos(qos);
    std::cout << "ready" << std::endl;
    for (std::string line; std::getline(std::cin, line);) {
        std::istringstream request(line);
        std::string what;
        questions_Question question = {};
        std::string of;
        request >> what >> question.number >> of;
        if (what == "ask") {
            question.of = of.data();
            // Its own reader of questions, and the replier's; the replier's writer of answers.
            const bool met = has_readers(asking, 2) && has_writers(answers, 1);
            const bool written = met && dds_write(asking, &question) == 0 && dds_wait_for_acks(asking, PATIENCE) == 0;
            std::cout << (written ? "written" : met ? "not written" : "nobody is there") << std::endl;
        } else if (what == "meet") {
            const bool met = has_writers(questions, static_cast<std::uint32_t>(question.number));
            std::cout << (met ? "met" : "nobody is there") << std::endl;
        } else if (what == "question") {
            std::cout << next<questions_Question>(questions) << std::endl;
        } else {
            std::cout << next<questions_Answer>(answers) << std::endl;
        }
    }
    dds_delete(participant);
    return 0;
}
