// SPDX-License-Identifier: Apache-2.0
// Texts over the whole road: replies on loan, handed on, kept in holders, and returned; the readers count.
#include <algorithm>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "norvane/norvane.hpp"
#include "support/CountingStringReader.hpp"
#include "support/DoubledDomain.hpp"

namespace norvane {
namespace test {
namespace {

/// Hands out string readers that count what comes back.
class CountingParticipant : public ForwardingParticipant {
public:
    using ForwardingParticipant::ForwardingParticipant;

    DDSDataReader* create_datareader(DDSTopicDescription* topic, const DDS_DataReaderQos& qos, DDSDataReaderListener* listener,
                                     DDS_StatusMask mask) override {
        DDSStringDataReader* made = DDSStringDataReader::narrow(real().create_datareader(topic, qos, listener, mask));
        if (made == nullptr) {
            return nullptr;
        }
        std::unique_ptr<CountingStringReader> counting(new CountingStringReader(made));
        DDSDataReader* handed_out = counting.get();
        _readers[handed_out] = std::move(counting);
        return handed_out;
    }
    DDS_ReturnCode_t delete_datareader(DDSDataReader* reader) override {
        return real().delete_datareader(_readers.at(reader)->real());
    }

private:
    std::map<DDSDataReader*, std::unique_ptr<CountingStringReader>> _readers;
};

class TextLoans : public DoubledDomain<CountingParticipant> {
protected:
    /// @return how often the reader had a loan back; -1 when it refused one.
    static int returns(DDSDataReader* reader) {
        const std::vector<CountingStringReader::Return>& all = dynamic_cast<CountingStringReader&>(*reader).returns();
        const bool fine = std::all_of(all.begin(), all.end(), [](const auto& each) { return each.code == DDS_RETCODE_OK; });
        return fine ? static_cast<int>(all.size()) : -1;
    }
};

TEST_F(TextLoans, are_handed_on_kept_in_holders_and_returned_once_each) {
    constexpr int CALLS = 3;
    Replier<std::string, std::string> replier(ReplierParams(_participant.get()).service_name("S"));
    Requester<std::string, std::string> requester(params("S"));
    std::vector<DDS_SampleIdentity_t> ids;
    for (int call = 0; call < CALLS; ++call) {
        ids.push_back(requester.send_request("request " + std::to_string(call)));
    }

    // The requests are answered, twice each, when their loan has long gone back.
    ASSERT_TRUE(replier.wait_for_requests(DDS_Duration_t{10, 0}, CALLS));
    std::vector<Sample<std::string>> kept;
    for (const auto& request : replier.take_requests()) {
        kept.push_back(request);
    }
    EXPECT_EQ(1, returns(replier.get_request_datareader()));
    for (const Sample<std::string>& request : kept) {
        replier.send_reply(request, request.identity());
        WriteSample<std::string> second(request.data());
        second.data() += " again";
        replier.send_reply(second, request.identity());
    }

    std::vector<LoanedSamples<std::string>> loans;
    for (const DDS_SampleIdentity_t& id : ids) {
        ASSERT_TRUE(requester.wait_for_replies(DDS_Duration_t{10, 0}, 2, id));
        LoanedSamples<std::string> replies = requester.take_replies(id);
        LoanedSamples<std::string>::LoanMemento memento = replies;
        loans.emplace_back(memento);
        EXPECT_TRUE(replies.empty());
    }
    EXPECT_TRUE(requester.take_replies().empty());
    EXPECT_EQ(0, returns(requester.get_reply_datareader()));

    std::vector<Sample<const char*>> replies;
    for (const LoanedSamples<std::string>& loan : loans) {
        replies.insert(replies.end(), loan.begin(), loan.end());
    }
    loans.pop_back();
    EXPECT_EQ(1, returns(requester.get_reply_datareader()));
    loans[0].return_loan();
    loans.clear();
    EXPECT_EQ(CALLS, returns(requester.get_reply_datareader()));

    ASSERT_EQ(2U * CALLS, replies.size());
    for (std::size_t index = 0; index < replies.size(); ++index) {
        EXPECT_EQ("request " + std::to_string(index / 2) + (index % 2 == 0 ? "" : " again"), replies[index].data());
        EXPECT_EQ(ids[index / 2], replies[index].related_identity());
        EXPECT_NE(ids[index / 2], replies[index].identity());
    }
}

}  // namespace
}  // namespace test
}  // namespace norvane
