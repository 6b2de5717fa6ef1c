// SPDX-License-Identifier: Apache-2.0
// How to make a type of one's own a request or a reply: describe it beside its definition.
#include <array>
#include <boost/describe.hpp>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <optional>
#include <string>
#include <vector>

#include "norvane/norvane.hpp"

//! [types]
namespace shop {

enum class Size { SMALL, LARGE };
BOOST_DESCRIBE_ENUM(Size, SMALL, LARGE)

struct Line {
    std::string article;
    Size size = Size::SMALL;
    std::int32_t count = 0;
};
BOOST_DESCRIBE_STRUCT(Line, (), (article, size, count))

struct Order {
    std::uint64_t number = 0;
    std::vector<Line> lines;
    std::array<double, 2> prices{};  // by size
    std::optional<std::string> voucher;
};
BOOST_DESCRIBE_STRUCT(Order, (), (number, lines, prices, voucher))

}  // namespace shop
//! [types]

struct Bill {
    double total = 0;
};
BOOST_DESCRIBE_STRUCT(Bill, (), (total))

Bill bill_for(const shop::Order& order) {
    Bill bill;
    for (const shop::Line& line : order.lines) {
        bill.total += line.count * order.prices[static_cast<std::size_t>(line.size)];
    }
    return {order.voucher.has_value() ? bill.total / 2 : bill.total};
}

int main() {
    try {
        norvane::Participant participant;
        norvane::Service<shop::Order, Bill> service(norvane::ReplierParams(participant).service_name("Shop"), bill_for);
        norvane::Requester<shop::Order, Bill> requester(norvane::RequesterParams(participant).service_name("Shop"));
        const Bill bill =
            requester.call({7, {{"apples", shop::Size::SMALL, 2}, {"pears", shop::Size::LARGE, 4}}, {2.5, 4.75}, "half price"});
        std::printf("in all %.2f\n", bill.total);
        return bill.total == 12 ? 0 : 1;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "how_to_types: %s\n", error.what());
        return 1;
    }
}
