// SPDX-License-Identifier: Apache-2.0
// Requests and replies whose types are generated from IDL: shop::Order and shop::Bill are used as they come from the generator.
#include <Order.h>

#include <chrono>
#include <cstdio>
#include <exception>
#include <stdexcept>

#include "norvane/norvane.hpp"

namespace {

typedef norvane::Requester<shop::Order, shop::Bill> OrderRequester;
typedef norvane::Replier<shop::Order, shop::Bill> OrderReplier;

shop::Bill bill_for(const shop::Order& order) {
    shop::Bill bill;
    bill.order_number(order.number());
    bill.line_count(static_cast<std::uint32_t>(order.lines().size()));
    bill.total(0);
    for (const shop::Line& line : order.lines()) {
        bill.total(bill.total() + line.count() * order.prices()[line.size()]);
    }
    return bill;
}

shop::Line line(const char* article, shop::Size size, int count) {
    shop::Line line;
    line.article(article);
    line.size(size);
    line.count(count);
    return line;
}

void run(DDSDomainParticipant* participant) {
    OrderReplier replier(norvane::ReplierParams(participant).service_name("Orders"));
    OrderRequester requester(norvane::RequesterParams(participant).service_name("Orders"));

    shop::Order order;
    order.number(7);
    order.prices({2.5, 4.75});
    order.lines({line("apples", shop::SMALL, 2), line("pears", shop::LARGE, 4)});
    const DDS_SampleIdentity_t id = requester.send_request(order);

    const std::chrono::seconds patience(10);
    for (const auto& request : replier.receive_requests(patience)) {
        replier.send_reply(bill_for(request.data()), request.identity());
    }
    if (!requester.wait_for_replies(patience, id)) {
        throw std::runtime_error("no reply");
    }
    for (const auto& reply : requester.take_replies(id)) {
        std::printf("order %llu: %u lines, %.2f in all\n", static_cast<unsigned long long>(reply.data().order_number()),
                    reply.data().line_count(), reply.data().total());
    }
}

}  // namespace

int main() {
    DDSDomainParticipantFactory* const factory = DDSDomainParticipantFactory::get_instance();
    DDSDomainParticipant* const participant =
        factory->create_participant(0, DDS_PARTICIPANT_QOS_DEFAULT, nullptr, DDS_STATUS_MASK_NONE);
    int exit_code = participant == nullptr ? 1 : 0;
    if (participant != nullptr) {
        try {
            run(participant);
        } catch (const std::exception& error) {
            std::fprintf(stderr, "idl_types: %s\n", error.what());
            exit_code = 1;
        }
        participant->delete_contained_entities();
        factory->delete_participant(participant);
    }
    return exit_code;
}
