// SPDX-License-Identifier: Apache-2.0
// How a handler learns what came with a request: which requester sent it, and when.
#include <cstdio>
#include <exception>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "norvane/norvane.hpp"

typedef norvane::Requester<std::string, std::string> TextRequester;
typedef norvane::Service<std::string, std::string> TextService;

//! [info]
// Numbers the requests of each requester. A handler may take the sample's information as a second argument.
class Counter {
public:
    std::string operator()(const std::string& text, const DDS_SampleInfo& info) {
        const DDS_GUID_t& requester = info.original_publication_virtual_guid;  // the same for all requests of one requester
        const double age = seconds(info.reception_timestamp) - seconds(info.source_timestamp);
        const std::lock_guard<std::mutex> guard(_mutex);
        const int number = ++_counts[std::vector<DDS_Octet>(requester.value, requester.value + sizeof requester.value)];
        std::printf("%s: number %d of its requester, %.6f s on the way\n", text.c_str(), number, age);
        return std::to_string(number);
    }

private:
    static double seconds(const DDS_Time_t& time) { return static_cast<double>(time.sec) + time.nanosec * 1e-9; }

    std::mutex _mutex;
    std::map<std::vector<DDS_Octet>, int> _counts;
};
//! [info]

int main() {
    try {
        Counter counter;
        norvane::Participant participant;
        TextService service(norvane::ReplierParams(participant).service_name("Counter"),
                            [&](const std::string& text, const DDS_SampleInfo& info) { return counter(text, info); });
        TextRequester one(norvane::RequesterParams(participant).service_name("Counter"));
        TextRequester other(norvane::RequesterParams(participant).service_name("Counter"));
        return one.call("a") == "1" && other.call("b") == "1" && one.call("c") == "2" ? 0 : 1;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "how_to_request_info: %s\n", error.what());
        return 1;
    }
}
