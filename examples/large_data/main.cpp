// SPDX-License-Identifier: Apache-2.0
// Large data: replies are looked at where they lie. A loan is the reader's own memory, so nothing is copied on the way out, however
// often the reply is read.
#include <boost/describe.hpp>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <vector>

#include "norvane/norvane.hpp"

struct Shot {
    std::uint32_t width;
    std::uint32_t height;
};
BOOST_DESCRIBE_STRUCT(Shot, (), (width, height))

struct Picture {
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    std::vector<std::uint8_t> pixels;
};
BOOST_DESCRIBE_STRUCT(Picture, (), (width, height, pixels))

Picture take_picture(const Shot& shot) {
    Picture picture{shot.width, shot.height, std::vector<std::uint8_t>(std::size_t{shot.width} * shot.height, 7)};
    picture.pixels.back() = 9;
    return picture;
}

int run() {
    norvane::Participant participant;
    norvane::Service<Shot, Picture> camera(norvane::ReplierParams(participant).service_name("Camera"), take_picture);
    norvane::Requester<Shot, Picture> requester(norvane::RequesterParams(participant).service_name("Camera"));
    requester.wait_for_service();

    //! [loan]
    const DDS_SampleIdentity_t id = requester.send_request({4096, 2048});
    if (!requester.wait_for_replies(norvane::DEFAULT_TIMEOUT, id)) {
        throw norvane::TimeoutException("no picture came");
    }
    norvane::LoanedSamples<Picture> seen = requester.read_replies(id);   // stays in the reader
    norvane::LoanedSamples<Picture> taken = requester.take_replies(id);  // leaves the reader; on loan until `taken` goes
    const Picture& picture = taken[0].data();                            // a reference: valid as long as the loan
    const bool same_memory = seen[0].data().pixels.data() == picture.pixels.data();
    //! [loan]

    std::printf("%zu pixels, the last is %d: read twice, %s\n", picture.pixels.size(), picture.pixels.back(),
                same_memory ? "never copied" : "copied");
    return same_memory && picture.pixels.size() == 4096u * 2048u && picture.pixels.back() == 9 ? 0 : 1;
}

int main() {
    try {
        return run();
    } catch (const std::exception& error) {
        std::fprintf(stderr, "large_data: %s\n", error.what());
        return 1;
    }
}
