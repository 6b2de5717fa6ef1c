// SPDX-License-Identifier: Apache-2.0
// The typed front-end: loans, types that do not fit, parameters, filters, and the forms of waiting.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <functional>
#include <limits>
#include <memory>
#include <numeric>
#include <string>
#include <thread>
#include <vector>

#include "norvane/norvane.hpp"
#include "support/AllocationProbe.hpp"
#include "support/DoubledDomain.hpp"
#include "support/LogCapture.hpp"
#include "support/OpenEntities.hpp"
#include "support/Thrown.hpp"

namespace norvane {
namespace test {

struct Order {
    int number;
    char goods[20];
};
struct Bill {
    int number;
    double total;
};
// Two types that share a name, as two versions of one struct in two modules of a process would.
struct OldPrice {
    int cents;
};
struct NewPrice {
    long long cents;
};

}  // namespace test

template <>
inline constexpr const char* type_name<test::OldPrice> = "shop::Price";
template <>
inline constexpr const char* type_name<test::NewPrice> = "shop::Price";

namespace test {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

typedef norvane::Requester<Order, Bill> OrderRequester;
typedef norvane::Replier<Order, Bill> OrderReplier;
typedef norvane::Requester<std::string, std::string> TextRequester;
typedef norvane::Replier<std::string, std::string> TextReplier;

constexpr seconds LONG(10);

class Frontend : public DoubledDomain {
protected:
    RequesterParams requester_params(const std::string& service) { return RequesterParams(&_real).service_name(service); }
    ReplierParams replier_params(const std::string& service) { return ReplierParams(&_real).service_name(service); }
};

// The listener runs inside the write that delivers to it.
TEST_F(Frontend, a_listener_may_end_the_requester_whose_request_it_gets) {
    struct Ending : DDSDataReaderListener {
        std::unique_ptr<OrderRequester> requester;
        void on_data_available(DDSDataReader*) override { requester.reset(); }
    } listener;
    OrderReplier replier(replier_params("S"), &listener);
    listener.requester = std::make_unique<OrderRequester>(requester_params("S"));
    const DDS_SampleIdentity_t id = listener.requester->send_request({7, ""});
    EXPECT_EQ(nullptr, listener.requester);
    EXPECT_EQ(id, replier.take_requests()[0].identity());
}

TEST_F(Frontend, a_wait_needs_no_time_for_what_is_there_and_a_receive_that_runs_out_of_time_takes_nothing) {
    OrderReplier replier(replier_params("S"));
    OrderRequester requester(requester_params("S"));
    const milliseconds brief(20);
    const DDS_SampleIdentity_t id = requester.send_request({1, ""});
    EXPECT_FALSE(requester.wait_for_replies(std::chrono::duration<double>(0.02), 1, id));
    replier.send_reply({1, 0}, id);
    EXPECT_TRUE(requester.wait_for_replies(seconds(-1), id) && requester.wait_for_replies(milliseconds::max(), id));
    const auto start = std::chrono::steady_clock::now();
    EXPECT_FALSE(requester.wait_for_replies(brief, DDS_LENGTH_UNLIMITED, id)) << "as many as come: never";
    EXPECT_TRUE(requester.receive_replies(2, 5, brief).empty());
    EXPECT_FALSE(replier.wait_for_requests(brief, 2));
    EXPECT_TRUE(replier.receive_requests(2, 2, brief).empty());
    EXPECT_GE(std::chrono::steady_clock::now() - start, 4 * brief);
    requester.send_request({2, ""});
    EXPECT_EQ(1, requester.take_replies().length());
    EXPECT_EQ(1, replier.receive_requests(1, 1, LONG).length());
    EXPECT_EQ(1, replier.take_requests().length());
}

TEST(FrontendTime, is_rounded_up_and_saturates) {
    struct Case {
        DDS_Duration_t given;
        DDS_Duration_t wanted;
    };
    const Case cases[] = {
        {Timeout(milliseconds(1500)), {1, 500000000}},
        {Timeout(milliseconds(-1)), {-1, 999000000}},
        {Timeout(std::chrono::duration<long long, std::pico>(1)), {0, 1}},
        {Timeout(seconds(0x7ffffffe)), {0x7ffffffe, 0}},
        {Timeout(seconds(0x7fffffff)), DDS_DURATION_INFINITE},
        {Timeout(std::chrono::hours::max()), DDS_DURATION_INFINITE},
        {Timeout(std::chrono::duration<double>(std::numeric_limits<double>::infinity())), DDS_DURATION_INFINITE},
        {Timeout(std::chrono::hours::min()), {INT32_MIN, 0}},
        {Timeout(std::chrono::duration<double>(std::numeric_limits<double>::quiet_NaN())), {INT32_MIN, 0}},
    };
    for (const Case& each : cases) {
        EXPECT_EQ(each.wanted, each.given) << each.wanted.sec << "." << each.wanted.nanosec << ", but it is " << each.given.sec
                                           << "." << each.given.nanosec;
    }
}

TEST(FrontendTime, that_has_begun_to_run_is_what_was_given_and_less_from_then_on) {
    const details::Deadline deadline(Timeout(std::chrono::milliseconds(5500)));
    const DDS_Duration_t left = deadline.left();
    EXPECT_TRUE(left.sec == 5 && left.nanosec <= 500000000) << left.sec << "." << left.nanosec;
    EXPECT_EQ(DDS_DURATION_INFINITE, details::Deadline(DDS_DURATION_INFINITE).left());
    EXPECT_EQ(DDS_DURATION_ZERO, details::Deadline(Timeout(seconds(-3))).left());
    const details::Deadline over(Timeout(seconds(-3)));
    EXPECT_GE(over.time(), details::Deadline::Clock::now() - seconds(2)) << "before what was over already";
}

TEST_F(Frontend, a_loan_goes_back_exactly_once_whatever_way_it_went) {
    typedef LoanedSamples<Order> Loan;
    const LogCapture quiet;
    OrderReplier replier(ReplierParams(_participant.get()).service_name("S"));
    OrderRequester requester(requester_params("S"));
    const std::function<void(Loan)> ways[] = {
        [](Loan) {},
        [](Loan loan) {
            const Loan other(std::move(loan));
            EXPECT_TRUE(loan.empty());  // NOLINT(bugprone-use-after-move): that it is empty then is a promise
            EXPECT_EQ(7, other[0].data().number);
        },
        [](Loan loan) {
            Loan::LoanMemento memento = loan;
            EXPECT_TRUE(loan.empty());
            Loan other(memento);
            other = Loan::LoanMemento(other);
            EXPECT_EQ(7, other[0].data().number);
        },
        // Released, then put into a container again.
        [](Loan loan) {
            DDSDataReader* reader = nullptr;
            Loan::TSeq data;
            DDS_SampleInfoSeq infos;
            loan.release(reader, data, infos);
            EXPECT_TRUE(loan.empty());
            Loan::TSeq no_data;
            DDS_SampleInfoSeq no_infos;
            EXPECT_EQ("PreconditionNotMetException", thrown_by([&] { loan.release(reader, data, no_infos); }).type);
            EXPECT_EQ("PreconditionNotMetException", thrown_by([&] { loan.release(reader, no_data, infos); }).type);
            EXPECT_EQ("BadParameterException", thrown_by([&] { Loan::move_construct_from_loans(nullptr, data, infos); }).type);
            EXPECT_EQ(7, data[0].number);
            Loan::move_construct_from_loans(reader, data, infos);
            EXPECT_TRUE(data.has_ownership() && infos.has_ownership());
        },
    };
    const auto returns = [this] {
        const std::vector<std::string> calls = _script.calls();
        return std::count(calls.begin(), calls.end(), "DDS_DataReader::return_loan");
    };
    const auto is_lent = [this] { return live().find("loans") != std::string::npos; };
    for (const auto& go : ways) {
        SCOPED_TRACE(&go - ways);
        requester.send_request({7, ""});
        Loan loan = replier.take_requests();
        _script.fail_call(0);  // counts from here
        ASSERT_TRUE(is_lent());
        go(std::move(loan));
        EXPECT_FALSE(is_lent());
        EXPECT_EQ(1, returns());
    }

    // An assignment returns the loan that was held, and not the one that comes.
    requester.send_request({1, ""});
    requester.send_request({2, ""});
    Loan first = replier.take_requests(1);
    Loan second = replier.take_requests(1);
    _script.fail_call(0);
    first = std::move(second);
    EXPECT_EQ(2, first[0].data().number);
    second.set_datareader(replier.get_request_datareader());
    second.return_loan();
    EXPECT_EQ(1, returns()) << "what is no loan reached the reader";
    // A reader that refuses is not asked again.
    _script.fail_call(1);
    first.return_loan();
    first.return_loan();
    EXPECT_EQ(1, returns());
}

TEST_F(Frontend, a_loan_is_a_random_access_range) {
    OrderReplier replier(replier_params("S"));
    OrderRequester requester(requester_params("S"));
    for (int number = 0; number < 5; ++number) {
        requester.send_request({number, ""});
    }
    LoanedSamples<Order> orders = replier.take_requests();
    ASSERT_EQ(5, std::distance(orders.begin(), orders.end()));
    LoanedSamples<Order>::iterator it = orders.begin();
    EXPECT_EQ(0, (*it++).data().number);
    EXPECT_EQ(2, (++it)->data().number);
    EXPECT_EQ(4, it[2].data().number);
    EXPECT_EQ(1, (*--it).data().number);
    EXPECT_EQ(3, ((it += 3) - 1)->data().number);
    EXPECT_TRUE(orders.begin() < it && it < orders.end() && it + 1 == orders.end() && it >= it && it != orders.begin());
    const LoanedSamples<Order>::const_iterator constant = orders.begin();
    EXPECT_EQ(4, it - constant);
    const auto found = std::lower_bound(orders.begin(), orders.end(), 3,
                                        [](const auto& order, int number) { return order.data().number < number; });
    EXPECT_EQ(3, found - orders.begin());
    const LogCapture quiet;
    const LoanedSamples<Order>& fixed = orders;
    EXPECT_EQ("PreconditionNotMetException", thrown_by([&] { orders[5]; }).type);
    EXPECT_EQ("PreconditionNotMetException", thrown_by([&] { fixed[5]; }).type);
    EXPECT_EQ(&orders[4].data(), &fixed[4].data());
    EXPECT_EQ(&orders[4].data(), &orders.data_seq()[4]);
    EXPECT_EQ(&orders[4].info(), &orders.info_seq()[4]);
}

TEST_F(Frontend, a_type_that_does_not_fit_is_refused_and_named) {
    const LogCapture quiet;
    const OrderRequester requester(requester_params("S"));
    const norvane::Requester<OldPrice, int> prices(requester_params("P"));
    DDSDynamicDataTypeSupport small("Small", {{"number", DDS_DYNAMIC_INT32}});
    DDSDynamicDataTypeSupport as_large("AsLarge", {{"number", DDS_DYNAMIC_INT64}});  // as the pointer that a string's sample is
    const RequesterParams bad = RequesterParams(_participant.get()).service_name("S");
    const ReplierParams badly = ReplierParams(_participant.get()).service_name("S");
    const std::string ORDER = "norvane::test::Order";
    const std::string BILL = "norvane::test::Bill";
    const std::string PRECONDITION = "PreconditionNotMetException";
    const std::string BAD = "BadParameterException";
    struct Case {
        std::function<void()> join;
        std::string type;
        std::vector<std::string> words;
    };
    const Case cases[] = {
        {[&] { norvane::Requester<Bill, Bill>{bad}; }, PRECONDITION, {"topic 'SRequest'", "expected '" + BILL, "found '" + ORDER}},
        {[&] { norvane::Requester<Order, Order>{bad}; }, PRECONDITION, {"topic 'SReply'", "expected '" + ORDER, "found '" + BILL}},
        {[&] { norvane::Replier<std::string, Bill>{badly}; },
         PRECONDITION,
         {"'SRequest'", "expected 'DDS::String", "found '" + ORDER}},
        {[&] { norvane::Replier<Order, int>{badly}; }, PRECONDITION, {"topic 'SReply'", "expected 'int'", "found '" + BILL}},
        {[&] { norvane::Replier<NewPrice, int>{badly}; },
         PRECONDITION,
         {"'shop::Price' (layout ", "knows as 'shop::Price' (layout "}},
        {[&] { OrderRequester(RequesterParams(bad).request_type_support(&small)); }, BAD, {"'Small'", "'" + ORDER}},
        {[&] { TextRequester(RequesterParams(bad).reply_type_support(&as_large)); }, BAD, {"'AsLarge'", "'DDS::String'"}},
    };
    for (const Case& each : cases) {
        const Thrown thrown = thrown_by(each.join);
        for (const std::string& word : each.words) {
            expect_thrown(each.type, word, thrown);
        }
        EXPECT_EQ("", live()) << thrown.message;
    }
}

TEST_F(Frontend, a_type_support_that_fits_takes_the_place_of_the_types_own) {
    DDSDynamicDataTypeSupport described("Described", {{"number", DDS_DYNAMIC_INT32}, {"total", DDS_DYNAMIC_FLOAT64}});
    norvane::Replier<std::string, Bill> replier(replier_params("S").reply_type_support(&described));
    norvane::Requester<std::string, Bill> requester(requester_params("S").reply_type_support(&described));
    EXPECT_STREQ("Described", replier.get_reply_datawriter()->get_topic()->get_type_name());
    const DDS_SampleIdentity_t id = requester.send_request("the bill, please");
    replier.send_reply({7, 2.5}, id);
    const LoanedSamples<Bill> bills = requester.take_replies(id);
    ASSERT_EQ(1, bills.length());
    EXPECT_EQ(7, bills[0].data().number);
    EXPECT_EQ(2.5, bills[0].data().total);
}

TEST_F(Frontend, a_repliers_parameters_reach_the_side_that_they_name) {
    DDSPublisher* publisher = _real.create_publisher(DDS_PUBLISHER_QOS_DEFAULT, nullptr, 0);
    DDSSubscriber* subscriber = _real.create_subscriber(DDS_SUBSCRIBER_QOS_DEFAULT, nullptr, 0);
    ReplierParams params(&_real);
    params.request_topic_name("Q").reply_topic_name("R").publisher(publisher).subscriber(subscriber);
    params.request_type_support(&DDSStringTypeSupport::get_instance());
    {
        const norvane::Replier<std::string, Bill> replier(params);
        EXPECT_STREQ("R", replier.get_reply_datawriter()->get_topic()->get_name());
        EXPECT_STREQ("Q", replier.get_request_datareader()->get_topicdescription()->get_name());
        EXPECT_EQ(publisher, replier.get_reply_datawriter()->get_publisher());
        EXPECT_EQ(subscriber, replier.get_request_datareader()->get_subscriber());
    }
    const LogCapture quiet;
    // The type support of the replies is the writer's: one of another type is refused there.
    params.reply_type_support(&DDSStringTypeSupport::get_instance());
    expect_thrown("BadParameterException", "norvane::test::Bill", thrown_by([&] { norvane::Replier<std::string, Bill>{params}; }));
}

TEST_F(Frontend, a_requesters_filter_is_named_and_written_digit_by_digit) {
    DDS_DataWriterQos qos = request_reply_writer_qos();
    qos.protocol.virtual_guid = {{0x01, 0x0f, 0xa3, 0, 0x7c, 0x2e, 0x10, 0xff, 0, 0, 0, 0x01, 0x80, 0, 0, 0xc2}};
    const TextRequester requester(requester_params("S").datawriter_qos(qos));
    auto* filter = DDSContentFilteredTopic::narrow(requester.get_reply_datareader()->get_topicdescription());
    ASSERT_NE(nullptr, filter);
    EXPECT_STREQ("SReply_010fa3007c2e10ff00000001800000c2", filter->get_name());
    EXPECT_STREQ("@related_sample_identity.writer_guid.value = &hex(010fa3007c2e10ff00000001800000c2)",
                 filter->get_filter_expression());
}

TEST_F(Frontend, a_filter_of_the_applications_is_read_by_the_replier_and_stays_and_is_refused_elsewhere) {
    ASSERT_EQ(DDS_RETCODE_OK, DDSStringTypeSupport::get_instance().register_type(&_real));
    DDSTopic* base = _participant->create_topic("Base", "DDS::String", DDS_TOPIC_QOS_DEFAULT, nullptr, 0);
    _participant->create_contentfilteredtopic("FilteredRequest", base, "value = 'yes'", DDS_StringSeq());
    _participant->create_contentfilteredtopic("OtherReply", base, "value = 'yes'", DDS_StringSeq());
    {
        TextReplier replier(replier_params("Filtered"));
        TextRequester requester(RequesterParams(&_real).request_topic_name("Base").reply_topic_name("FilteredReply"));
        requester.send_request("no");
        requester.send_request("yes");
        const LoanedSamples<std::string> requests = replier.receive_requests(LONG);
        ASSERT_EQ(1, requests.length());
        EXPECT_STREQ("yes", requests[0].c_str());
    }
    EXPECT_EQ("2 filters", live());
    const LogCapture quiet;
    for (const Thrown& each :
         {thrown_by([&] { OpenRequester requester(params("Filtered")); }),
          thrown_by([&] { OpenRequester requester(params("Other")); }), thrown_by([&] { OpenReplier replier(params("Other")); })}) {
        expect_thrown("PreconditionNotMetException", "a content-filtered topic with the name already exists (", each);
    }
    EXPECT_EQ("2 filters", live());
}

}  // namespace
}  // namespace test
}  // namespace norvane
