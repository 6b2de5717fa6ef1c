// SPDX-License-Identifier: Apache-2.0
// How to share work by content: two repliers of one service, each of which reads only the requests that pass its filter.
#include <boost/describe.hpp>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <stdexcept>
#include <string>

#include "norvane/norvane.hpp"

struct Parcel {
    std::uint32_t grams = 0;
    std::string country;
};
BOOST_DESCRIBE_STRUCT(Parcel, (), (grams, country))

typedef norvane::Requester<Parcel, std::string> ParcelRequester;
typedef norvane::Service<Parcel, std::string> Carrier;

//! [filter]
// A topic with the requests of the service "Post" that pass a filter. The topic of them all must be there: a requester or replier
// made it.
DDSContentFilteredTopic* parcels(norvane::Participant& participant, const char* name, const char* filter) {
    DDSTopic* all = DDSTopic::narrow(participant->lookup_topicdescription("PostRequest"));
    DDS_StringSeq parameters;  // values of %0, %1 ...
    DDSContentFilteredTopic* some = participant->create_contentfilteredtopic(name, all, filter, parameters);
    if (some == nullptr) {
        throw std::invalid_argument("the filter was refused: the log names the column");
    }
    return some;
}
//! [filter]

int main() {
    try {
        norvane::Participant participant;
        ParcelRequester requester(norvane::RequesterParams(participant).service_name("Post"));
        //! [carriers]
        parcels(participant, "Light", "grams <= 1000 AND country LIKE 'N_'");
        parcels(participant, "Heavy", "grams > 1000 OR NOT country LIKE 'N_'");
        Carrier bicycle(norvane::ReplierParams(participant).request_topic_name("Light").reply_topic_name("PostReply"),
                        [](const Parcel&) { return std::string("bicycle"); });
        Carrier lorry(norvane::ReplierParams(participant).request_topic_name("Heavy").reply_topic_name("PostReply"),
                      [](const Parcel&) { return std::string("lorry"); });
        //! [carriers]
        requester.wait_for_service(norvane::DEFAULT_TIMEOUT, 2);
        const std::string light = requester.call({200, "NO"});
        const std::string heavy = requester.call({20000, "NO"});
        const std::string far = requester.call({200, "CL"});
        std::printf("light: %s, heavy: %s, far: %s\n", light.c_str(), heavy.c_str(), far.c_str());
        const bool right = light == "bicycle" && heavy == "lorry" && far == "lorry";
        return right && bicycle.replier_stats().received == 1 && lorry.replier_stats().received == 2 ? 0 : 1;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "how_to_filtering: %s\n", error.what());
        return 1;
    }
}
