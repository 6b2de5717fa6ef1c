// What does encoding and decoding a described struct of 64 octets cost, over the same written by hand with Fast-CDR?
// SPDX-License-Identifier: Apache-2.0
#include <fastcdr/Cdr.h>
#include <fastcdr/FastBuffer.h>

#include <array>
#include <cstdint>
#include <cstring>
#include <norvane/norvane.hpp>
#include <stdexcept>

#include "EchoService.hpp"
#include "Question.hpp"
#include "Stopwatch.hpp"

namespace bench {

enum class Mode : std::uint32_t { IDLE, MOVING, FAILED };
BOOST_DESCRIBE_ENUM(Mode, IDLE, MOVING, FAILED)

struct Reading {
    std::uint64_t number;
    std::array<double, 3> position;
    std::array<float, 4> rotation;
    std::uint32_t sensor;
    Mode mode;
    std::int16_t temperature;
    std::uint16_t voltage;
    bool valid;
    std::uint8_t quality;
    std::int8_t trend;
    char unit;
};
BOOST_DESCRIBE_STRUCT(Reading, (), (number, position, rotation, sensor, mode, temperature, voltage, valid, quality, trend, unit))

namespace {

constexpr std::size_t ENCODED_SIZE = 4 + 64;
typedef std::array<std::uint8_t, ENCODED_SIZE> Octets;
typedef eprosima::fastcdr::Cdr Cdr;

/// The floor by hand: what somebody who knows Fast-CDR would write for this struct, and its generator does write.
std::size_t encode_by_hand(const Reading& reading, Octets& octets) {
    eprosima::fastcdr::FastBuffer buffer(reinterpret_cast<char*>(octets.data()), octets.size());
    Cdr cdr(buffer, Cdr::LITTLE_ENDIANNESS, Cdr::DDS_CDR);
    cdr.serialize_encapsulation();
    cdr << reading.number << reading.position << reading.rotation << reading.sensor << static_cast<std::uint32_t>(reading.mode)
        << reading.temperature << reading.voltage << reading.valid << reading.quality << reading.trend << reading.unit;
    return cdr.getSerializedDataLength();
}

void decode_by_hand(Octets& octets, Reading& reading) {
    eprosima::fastcdr::FastBuffer buffer(reinterpret_cast<char*>(octets.data()), octets.size());
    Cdr cdr(buffer, Cdr::LITTLE_ENDIANNESS, Cdr::DDS_CDR);
    cdr.read_encapsulation();
    std::uint32_t mode = 0;
    cdr >> reading.number >> reading.position >> reading.rotation >> reading.sensor >> mode >> reading.temperature >>
        reading.voltage >> reading.valid >> reading.quality >> reading.trend >> reading.unit;
    reading.mode = static_cast<Mode>(mode);
}

/// Values: nanoseconds to encode, and to decode; by the type's table, and by hand.
class Encoding : public Probe {
public:
    /// A type's table is what an engine works with: it is found where the service registered it.
    Encoding()
        : _service("Encoding"),
          _type(
              _service.replier().get_reply_datawriter()->get_topic()->get_participant()->lookup_type(norvane::type_name<Reading>)) {
        Octets by_hand{};
        if (_type->encoded_size(*_type, &_reading) != ENCODED_SIZE ||
            _type->encode(*_type, &_reading, _octets.data(), _octets.size()) != ENCODED_SIZE ||
            encode_by_hand(_reading, by_hand) != ENCODED_SIZE || _octets != by_hand) {
            throw std::runtime_error("the two encodings differ");
        }
    }

    Values measure() override {
        const double encoded = ns_per_call(ROUND, [this] {
            observe(&_reading);
            const std::size_t size = _type->encoded_size(*_type, &_reading);
            const std::size_t written = _type->encode(*_type, &_reading, _octets.data(), size);
            observe(&written);
        });
        const double encoded_by_hand = ns_per_call(ROUND, [this] {
            observe(&_reading);
            const std::size_t written = encode_by_hand(_reading, _octets);
            observe(&written);
        });
        Reading decoded{};
        const double decoded_ns = ns_per_call(ROUND, [&] {
            const bool done = _type->decode(*_type, &decoded, _octets.data(), _octets.size());
            observe(&done);
        });
        const double decoded_by_hand = ns_per_call(ROUND, [&] {
            decode_by_hand(_octets, decoded);
            observe(&decoded);
        });
        if (decoded.number != _reading.number || decoded.unit != _reading.unit) {
            throw std::runtime_error("what was decoded is not what was encoded");
        }
        return {encoded, encoded_by_hand, decoded_ns, decoded_by_hand};
    }

private:
    Service<Reading> _service;
    std::shared_ptr<const DDS_TypeOperations> _type;
    Reading _reading = {7, {1, 2, 3}, {0, 0, 0, 1}, 12, Mode::MOVING, -40, 3300, true, 99, -1, 'K'};
    Octets _octets{};
};

const Question question("11_encoding", {{Processors::ONE, Spin::OFF, [] { return std::make_unique<Encoding>(); }}},
                        {{"encode a described struct of 64 octets, over Fast-CDR by hand", Unit::TIME, {0, 0}, {0, 1}, 1.2},
                         {"decode a described struct of 64 octets, over Fast-CDR by hand", Unit::TIME, {0, 2}, {0, 3}, 1.2}});

}  // namespace
}  // namespace bench
