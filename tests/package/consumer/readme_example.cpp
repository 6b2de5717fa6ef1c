// SPDX-License-Identifier: Apache-2.0
// The program that README.md shows.
//! [readme]
#include <boost/describe.hpp>
#include <iostream>
#include <norvane/norvane.hpp>

struct Person {
    std::string name;
};
BOOST_DESCRIBE_STRUCT(Person, (), (name))
struct Greeting {
    std::string text;
};
BOOST_DESCRIBE_STRUCT(Greeting, (), (text))

int main() {
    norvane::Participant participant;
    norvane::Service<Person, Greeting> service(norvane::ReplierParams(participant).service_name("Greeter"),
                                               [](const Person& person) { return Greeting{"Hello, " + person.name}; });
    norvane::Requester<Person, Greeting> requester(norvane::RequesterParams(participant).service_name("Greeter"));
    std::cout << requester.call({"world"}).text << "\n";
}
//! [readme]
