// SPDX-License-Identifier: Apache-2.0
#include "engines/fastdds/transport/Paths.hpp"

#include <gtest/gtest.h>

namespace norvane::test {
namespace {

using namespace fastdds;

// Of sample 7 of writer 00000203 of participant 01.., which has four fragments.
TEST(Paths, let_no_request_pass_for_fragments_that_do_not_exist) {
    struct {
        bool passes;
        std::uint8_t participant;
        std::uint8_t writer;
        std::uint8_t number;
        std::uint8_t first;
        std::uint8_t bits;
    } const ROWS[] = {{true, 1, 0x03, 7, 3, 0xc0},  {true, 1, 0x03, 7, 1, 0},     {false, 1, 0x03, 7, 3, 0xe0},
                      {false, 1, 0x03, 7, 5, 0x80}, {false, 1, 0x03, 8, 1, 0x80}, {false, 0, 0x03, 7, 1, 0x80},
                      {false, 1, 0xc2, 7, 1, 0x80}};
    const Interfaces interfaces;
    Paths paths(1 << 20, interfaces, [](const rtps::GUID_t& writer, std::int64_t number) -> std::uint32_t {
        return writer.guidPrefix.value[0] == 1 && number == 7 ? 4 : 0;
    });
    for (const auto& row : ROWS) {
        const std::uint8_t message[] = {'R',       'T',        'P', 'S', 2,
                                        3,         1,          15,  9,   9,
                                        9,         9,          9,   9,   9,
                                        9,         9,          9,   9,   9,  // header
                                        0x0e,      1,          12,  0,   row.participant,
                                        0,         0,          0,   0,   0,
                                        0,         0,          0,   0,   0,
                                        0,  // destination
                                        0x12,      1,          32,  0,   0,
                                        0,         1,          7,   0,   0,
                                        2,         row.writer, 0,   0,   0,
                                        0,         row.number, 0,   0,   0,
                                        row.first, 0,          0,   0,   8,
                                        0,         0,          0,   0,   0,
                                        0,         row.bits,   1,   0,   0,
                                        0};
        EXPECT_EQ(row.passes, paths.receive(message, sizeof message)) << &row - ROWS;
    }
}

}  // namespace
}  // namespace norvane::test
