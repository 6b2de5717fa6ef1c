// SPDX-License-Identifier: Apache-2.0
// How to give endpoints a QoS of one's own: by a profile for the topics of a service, or as the default of a participant.
#include <cstdio>
#include <exception>
#include <stdexcept>
#include <string>

#include "norvane/norvane.hpp"

typedef norvane::Requester<std::string, std::string> TextRequester;
typedef norvane::Service<std::string, std::string> TextService;

void require_ok(DDS_ReturnCode_t code, const char* what) {
    if (code != DDS_RETCODE_OK) {
        throw std::runtime_error(what);  // the log says why
    }
}

//! [profile]
// Once, at the start of the program: "shop/orders" bounds what waits in a reader, and how long a writer waits for room.
void add_profiles() {
    DDSDomainParticipantFactory& factory = *DDSDomainParticipantFactory::get_instance();
    require_ok(factory.add_qos_profile("shop", "orders"), "profile");
    // Not from default-constructed records: those of readers are best-effort, and keep the last sample only.
    DDS_DataWriterQos writer = norvane::request_reply_writer_qos();
    writer.reliability.max_blocking_time = {2, 0};
    require_ok(factory.add_datawriter_qos_to_profile("shop", "orders", "Order*", writer), "writers");
    DDS_DataReaderQos reader = norvane::request_reply_reader_qos();
    reader.resource_limits.max_samples = 100;
    require_ok(factory.add_datareader_qos_to_profile("shop", "orders", "Order*", reader), "readers");
}

norvane::RequesterParams order_params(DDSDomainParticipant* participant) {
    return norvane::RequesterParams(participant).service_name("Order").qos_profile("shop", "orders");
}
//! [profile]

//! [participant]
// What requesters and repliers of this participant leave as it is (see the table) comes from its default: here the user data that
// peers see of each writer.
void introduce_writers(DDSDomainParticipant& participant, const std::string& who) {
    DDS_DataWriterQos writer;
    require_ok(participant.get_default_datawriter_qos(writer), "default");
    require_ok(writer.user_data.value.from_array(reinterpret_cast<const DDS_Octet*>(who.data()), static_cast<int>(who.size()))
                   ? DDS_RETCODE_OK
                   : DDS_RETCODE_OUT_OF_RESOURCES,
               "user data");
    require_ok(participant.set_default_datawriter_qos(writer), "default");
}
//! [participant]

int main() {
    try {
        add_profiles();
        norvane::Participant participant;
        introduce_writers(*participant.get(), "till 7");
        TextService service(norvane::ReplierParams(participant).service_name("Order").qos_profile("shop", "orders"),
                            [](const std::string& order) { return order + ": noted"; });
        TextRequester bounded(order_params(participant));
        TextRequester introduced(norvane::RequesterParams(participant).service_name("Order"));
        DDS_DataReaderQos reader;
        require_ok(bounded.get_reply_datareader()->get_qos(reader), "QoS of the reader");
        DDS_DataWriterQos writer;
        require_ok(introduced.get_request_datawriter()->get_qos(writer), "QoS of the writer");
        std::printf("at most %d replies; %d octets of user data\n", reader.resource_limits.max_samples,
                    writer.user_data.value.length());
        const bool right = reader.resource_limits.max_samples == 100 && writer.user_data.value.length() == 6;
        return right && bounded.call("pears") == "pears: noted" && introduced.call("apples") == "apples: noted" ? 0 : 1;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "how_to_qos: %s\n", error.what());
        return 1;
    }
}
