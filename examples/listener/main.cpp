// SPDX-License-Identifier: Apache-2.0
// A listener: a replier without a thread of its own. The middleware calls it when requests come, and it answers at once.
#include <boost/describe.hpp>
#include <cstdio>
#include <exception>
#include <string>

#include "norvane/norvane.hpp"

struct Word {
    std::string text;
};
BOOST_DESCRIBE_STRUCT(Word, (), (text))

//! [listener]
// The middleware calls a listener from one thread at a time. It must not block: it delays the sender.
class Reverser : public DDSDataReaderListener {
public:
    explicit Reverser(DDSDomainParticipant* participant) : _replier(norvane::ReplierParams(participant).service_name("Reverser")) {
        reader().set_listener(this, DDS_DATA_AVAILABLE_STATUS);
        answer();  // requests that came before it listened
    }
    // Waits for a call that is running; none comes afterwards.
    ~Reverser() override { reader().set_listener(nullptr, DDS_STATUS_MASK_NONE); }

    void on_data_available(DDSDataReader*) override { answer(); }

private:
    void answer() {
        for (const auto& request : _replier.take_requests()) {
            const std::string& text = request.data().text;
            _replier.send_reply({std::string(text.rbegin(), text.rend())}, request.identity());
        }
    }
    DDSDataReader& reader() { return *_replier.get_request_datareader(); }

    norvane::Replier<Word, Word> _replier;
};
//! [listener]

int main() {
    try {
        norvane::Participant participant;
        Reverser reverser(participant);
        norvane::Requester<Word, Word> requester(norvane::RequesterParams(participant).service_name("Reverser"));
        const std::string reversed = requester.call({"stressed"}).text;
        std::printf("stressed, reversed: %s\n", reversed.c_str());
        return reversed == "desserts" ? 0 : 1;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "listener: %s\n", error.what());
        return 1;
    }
}
