// SPDX-License-Identifier: Apache-2.0
// The road of each kind of type, there and back, and values that no engine could encode.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include "norvane/norvane.hpp"
#include "support/LogCapture.hpp"
#include "support/ServiceFixture.hpp"
#include "support/Thrown.hpp"

namespace norvane::test {
namespace {

struct Parcel {
    std::vector<std::string> words;
    std::optional<double> weight;
};
BOOST_DESCRIBE_STRUCT(Parcel, (), (words, weight))

template <class T>
std::vector<std::uint8_t> encode(const T& value) {
    const DDS_TypeOperations& type = *details::type_support<T>().get_type_operations();
    std::vector<std::uint8_t> octets(type.encoded_size(type, &value));
    octets.resize(type.encode(type, &value, octets.data(), octets.size()));
    return octets;
}

class TypesOnTheRoad : public ServiceFixture {
protected:
    /// Sends a request, answers it with itself, and looks at both.
    template <class T>
    void there_and_back(const T& value) {
        Replier<T, T> replier(replier_params(nullptr, type_name<T>));
        Requester<T, T> requester(requester_params(nullptr, type_name<T>));
        ASSERT_TRUE(requester.wait_for_service(PATIENCE));
        const DDS_SampleIdentity_t id = requester.send_request(value);
        const LoanedSamples<T> requests = replier.receive_requests(PATIENCE);
        ASSERT_EQ(1U, requests.size());
        EXPECT_EQ(encode(value), encode(requests[0].data()));
        replier.send_reply(requests[0].data(), requests[0].identity());
        ASSERT_TRUE(requester.wait_for_replies(PATIENCE, id));
        const LoanedSamples<T> replies = requester.take_replies(id);
        ASSERT_EQ(1U, replies.size());
        EXPECT_EQ(encode(value), encode(replies[0].data()));
        EXPECT_EQ(id, replies[0].related_identity());
    }
};

TEST_P(TypesOnTheRoad, described_and_built_in_types_go_there_and_back) {
    there_and_back(Parcel{{"a", ""}, 0.5});
    DDS_Octets octets(2);
    octets.value[1] = 5;
    there_and_back(octets);
    DDS_KeyedString text(3, 5);
    std::strcpy(text.key, "key");
    std::strcpy(text.value, "value");
    there_and_back(text);
    DDS_KeyedOctets keyed(3, 1);
    std::strcpy(keyed.key, "key");
    keyed.value[0] = 9;
    there_and_back(keyed);
    EXPECT_STREQ("DDS::KeyedOctets", details::type_support<DDS_KeyedOctets>().get_type_name());
}

TEST_P(TypesOnTheRoad, what_no_engine_could_encode_is_refused_on_every_engine) {
    const LogCapture log;
    Requester<DDS_Octets, DDS_KeyedOctets> requester(requester_params());
    Replier<DDS_Octets, DDS_KeyedOctets> replier(replier_params());
    Requester<Parcel, Parcel> described(requester_params(nullptr, "described"));
    DDS_Octets octets;
    const DDS_SampleIdentity_t id = requester.send_request(octets);
    octets.length = 5;
    DDS_KeyedOctets keyed(3, 1);
    keyed.length = -1;
    const Parcel value = {{"fine", "fine", std::string(1, '\0')}, {}};
    const char* const REASON = "Parcel.words[2]: a NUL inside a string";
    expect_thrown("BadParameterException", "", thrown_by([&] { requester.send_request(octets); }));
    expect_thrown("BadParameterException", "", thrown_by([&] { replier.send_reply(keyed, id); }));
    expect_thrown("BadParameterException", REASON, thrown_by([&] { described.send_request(value); }));
    expect_thrown("BadParameterException", REASON, thrown_by([&] { described.call(value, PATIENCE); }));
    const int before = log.count(REASON);
    DDS_WriteParams_t params;
    EXPECT_EQ(DDS_RETCODE_BAD_PARAMETER, DDS_DataWriter_write_w_params_untyped_generalI(
                                             described.get_request_datawriter()->get_c_datawriter(), nullptr, &value, params));
    EXPECT_EQ(before + 1, log.count(REASON));
    EXPECT_EQ(0, described.stats().sent);
    // DDS_Octets has the size and alignment of DDS_KeyedString: read as each other, a length becomes a pointer.
    ASSERT_EQ(sizeof(DDS_Octets), sizeof(DDS_KeyedString));
    const RequesterParams mistaken = requester_params().request_type_support(&DDSOctetsTypeSupport::get_instance());
    expect_thrown("BadParameterException", "", thrown_by([&] { Requester<DDS_KeyedString, Parcel>{mistaken}; }));
}

INSTANTIATE_TEST_SUITE_P(Engines, TypesOnTheRoad, ::testing::ValuesIn(engine_names()), engine_of_test);

}  // namespace
}  // namespace norvane::test
