// SPDX-License-Identifier: Apache-2.0
// How to describe a template, and how to choose the name under which a type is known to peers.
#include <boost/describe.hpp>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <string>
#include <vector>

#include "norvane/norvane.hpp"

//! [template]
// BOOST_DESCRIBE_CLASS goes inside the template: type, bases, public, protected and private members.
template <class T>
struct Page {
    std::vector<T> items;
    std::uint32_t next = 0;  // 0: this is the last one
    BOOST_DESCRIBE_CLASS(Page, (), (items, next), (), ())
};
//! [template]

struct Query {
    std::string text;
    std::uint32_t from = 0;
};
BOOST_DESCRIBE_STRUCT(Query, (), (text, from))

//! [name]
// Both sides must use the same name. Without this it is what the compiler calls the type, namespaces and arguments included.
template <>
inline constexpr const char* norvane::type_name<Query> = "catalogue::Query";
template <>
inline constexpr const char* norvane::type_name<Page<std::string>> = "catalogue::PageOfTitles";
//! [name]

int main() {
    try {
        norvane::Participant participant;
        norvane::Service<Query, Page<std::string>> service(
            norvane::ReplierParams(participant).service_name("Catalogue"), [](const Query& query) {
                return Page<std::string>{{query.text + " I", query.text + " II"}, query.from + 2};
            });
        norvane::Requester<Query, Page<std::string>> requester(norvane::RequesterParams(participant).service_name("Catalogue"));
        const Page<std::string> page = requester.call({"Faust", 1});
        const std::string type = requester.get_request_datawriter()->get_topic()->get_type_name();
        std::printf("%zu titles of a %s, go on at %u\n", page.items.size(), type.c_str(), page.next);
        return page.items.back() == "Faust II" && page.next == 3 && type == "catalogue::Query" ? 0 : 1;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "how_to_type_names: %s\n", error.what());
        return 1;
    }
}
