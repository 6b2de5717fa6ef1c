// SPDX-License-Identifier: Apache-2.0
// The least that a consumer can do: name a participant's factory, and exit with success when the library answers.
#include <norvane/dds/DomainParticipantFactory.hpp>

int main() { return DDSDomainParticipantFactory::get_instance() == nullptr ? 1 : 0; }
