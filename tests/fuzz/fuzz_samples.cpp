// SPDX-License-Identifier: Apache-2.0
// Payloads of the built-in types, of a described struct with every kind of member, and of structures described at run time. The
// first octet chooses the type, the next ones the members of a structure. What a payload is decoded to, is encoded again, and
// stays the same.
#include <array>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include "norvane/norvane.hpp"

namespace fuzz {

enum class Colour : std::uint8_t { RED = 1, BLUE = 7 };
BOOST_DESCRIBE_ENUM(Colour, RED, BLUE)

struct Node {
    std::int16_t x = 0;
    double y = 0;
};
BOOST_DESCRIBE_STRUCT(Node, (), (x, y))

struct Everything {
    bool flag = false;
    char letter = 0;
    std::uint16_t small = 0;
    Colour colour = Colour::RED;
    std::string text;
    std::vector<bool> bits;
    std::vector<std::string> words;
    std::array<Node, 2> nodes{};
    std::optional<Node> node;
    std::optional<std::string> note;
    std::vector<Colour> colours;
    std::vector<std::byte> octets;
    std::uint64_t last = 0;
};
BOOST_DESCRIBE_STRUCT(Everything, (), (flag, letter, small, colour, text, bits, words, nodes, node, note, colours, octets, last))

}  // namespace fuzz

namespace {

typedef std::shared_ptr<const DDS_TypeOperations> Type;

class Sample {
public:
    explicit Sample(const DDS_TypeOperations& type) : _type(type), _place(std::aligned_alloc(type.alignment, rounded(type))) {
        type.construct(type, _place);
    }
    ~Sample() {
        _type.destroy(_type, _place);
        std::free(_place);
    }
    Sample(const Sample&) = delete;
    Sample& operator=(const Sample&) = delete;

    bool decode(const std::uint8_t* octets, std::size_t length) { return _type.decode(_type, _place, octets, length); }
    std::vector<std::uint8_t> encode() const {
        std::vector<std::uint8_t> octets(_type.encoded_size(_type, _place));
        const std::size_t size = _type.encode(_type, _place, octets.data(), octets.size());
        if (size == 0 || size > octets.size()) {
            std::abort();
        }
        octets.resize(size);
        return octets;
    }
    bool copy(const Sample& other) { return _type.copy(_type, _place, other._place); }

private:
    static std::size_t rounded(const DDS_TypeOperations& type) {
        return (type.size + type.alignment - 1) / type.alignment * type.alignment;
    }

    const DDS_TypeOperations& _type;
    void* const _place;
};

Type type_of(const std::uint8_t*& data, std::size_t& size) {
    const auto next = [&] {
        if (size == 0) {
            return std::uint8_t(0);
        }
        --size;
        return *data++;
    };
    const std::uint8_t choice = next();
    switch (choice % 6) {
        case 0:
            return DDSStringTypeSupport::get_instance().get_type_operations();
        case 1:
            return DDSKeyedStringTypeSupport::get_instance().get_type_operations();
        case 2:
            return DDSOctetsTypeSupport::get_instance().get_type_operations();
        case 3:
            return DDSKeyedOctetsTypeSupport::get_instance().get_type_operations();
        case 4:
            return norvane::details::type_support<fuzz::Everything>().get_type_operations();
        default:
            break;
    }
    std::vector<DDS_DynamicMember> members;
    for (int count = 1 + choice / 6 % 16; count > 0; --count) {
        members.push_back({"m" + std::to_string(count), static_cast<DDS_DynamicMemberKind>(next() % (DDS_DYNAMIC_STRING + 1))});
    }
    return DDSDynamicDataTypeSupport("Structure", members).get_type_operations();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const Type type = type_of(data, size);
    const std::vector<std::uint8_t> octets(data, data + size);  // of its own, so that what is read behind it is seen
    Sample sample(*type);
    if (!sample.decode(octets.data(), octets.size())) {
        return 0;
    }
    const std::vector<std::uint8_t> encoded = sample.encode();
    Sample copy(*type);
    if (!copy.copy(sample) || copy.encode() != encoded || !copy.decode(encoded.data(), encoded.size()) ||
        copy.encode() != encoded) {
        std::abort();
    }
    return 0;
}
