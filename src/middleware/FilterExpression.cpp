// SPDX-License-Identifier: Apache-2.0
// Compiles filters, and evaluates them.
#include "middleware/FilterExpression.hpp"

#include <cstring>
#include <exception>
#include <new>
#include <string_view>
#include <utility>

#include "middleware/FilterParser.hpp"
#include "middleware/SequenceNumber.hpp"

namespace norvane {
namespace mw {
namespace {

enum class Order { LESS, EQUAL, GREATER, NONE };

template <typename Value>
Order order_of(const Value& left, const Value& right) noexcept {
    return left < right ? Order::LESS : right < left ? Order::GREATER : left == right ? Order::EQUAL : Order::NONE;
}

Order reversed(Order order) noexcept {
    return order == Order::LESS ? Order::GREATER : order == Order::GREATER ? Order::LESS : order;
}

// Exact: a 64-bit integer does not survive the way through a double.
Order order_of_float_and_integer(double left, std::int64_t right) noexcept {
    constexpr double LIMIT = 9223372036854775808.0;  // one above the largest, and the negative of the least
    if (left != left) {
        return Order::NONE;
    }
    if (left >= LIMIT) {
        return Order::GREATER;
    }
    if (left < -LIMIT) {
        return Order::LESS;
    }
    const std::int64_t whole = static_cast<std::int64_t>(left);
    return whole != right ? order_of(whole, right) : order_of(left - static_cast<double>(whole), 0.0);
}

Order order_of_float_and_unsigned(double left, std::uint64_t right) noexcept {
    constexpr double LIMIT = 18446744073709551616.0;  // one above the largest
    if (left != left) {
        return Order::NONE;
    }
    if (left >= LIMIT) {
        return Order::GREATER;
    }
    if (left < 0) {
        return Order::LESS;
    }
    const std::uint64_t whole = static_cast<std::uint64_t>(left);
    return whole != right ? order_of(whole, right) : order_of(left - static_cast<double>(whole), 0.0);
}

Order order_of_integer_and_unsigned(std::int64_t left, std::uint64_t right) noexcept {
    return left < 0 ? Order::LESS : order_of(static_cast<std::uint64_t>(left), right);
}

Order order_of_octets(const DDS_FieldValue& left, const DDS_FieldValue& right) noexcept {
    const std::size_t shared = left.length < right.length ? left.length : right.length;
    const int difference = shared > 0 ? std::memcmp(left.data, right.data, shared) : 0;
    return difference != 0 ? order_of(difference, 0) : order_of(left.length, right.length);
}

/// @return false when the kinds do not go together: a type that breaks what it said of its field.
bool compare(const DDS_FieldValue& left, const DDS_FieldValue& right, Order& order) noexcept {
    constexpr auto PAIR = [](DDS_FieldKind first, DDS_FieldKind second) { return first * 16 + second; };
    switch (PAIR(left.kind, right.kind)) {
        case PAIR(DDS_FIELD_INTEGER, DDS_FIELD_INTEGER):
            order = order_of(left.integer, right.integer);
            return true;
        case PAIR(DDS_FIELD_INTEGER, DDS_FIELD_UNSIGNED):
            order = order_of_integer_and_unsigned(left.integer, right.unsigned_integer);
            return true;
        case PAIR(DDS_FIELD_INTEGER, DDS_FIELD_FLOAT):
            order = reversed(order_of_float_and_integer(right.floating, left.integer));
            return true;
        case PAIR(DDS_FIELD_UNSIGNED, DDS_FIELD_INTEGER):
            order = reversed(order_of_integer_and_unsigned(right.integer, left.unsigned_integer));
            return true;
        case PAIR(DDS_FIELD_UNSIGNED, DDS_FIELD_UNSIGNED):
            order = order_of(left.unsigned_integer, right.unsigned_integer);
            return true;
        case PAIR(DDS_FIELD_UNSIGNED, DDS_FIELD_FLOAT):
            order = reversed(order_of_float_and_unsigned(right.floating, left.unsigned_integer));
            return true;
        case PAIR(DDS_FIELD_FLOAT, DDS_FIELD_INTEGER):
            order = order_of_float_and_integer(left.floating, right.integer);
            return true;
        case PAIR(DDS_FIELD_FLOAT, DDS_FIELD_UNSIGNED):
            order = order_of_float_and_unsigned(left.floating, right.unsigned_integer);
            return true;
        case PAIR(DDS_FIELD_FLOAT, DDS_FIELD_FLOAT):
            order = order_of(left.floating, right.floating);
            return true;
        case PAIR(DDS_FIELD_BOOLEAN, DDS_FIELD_BOOLEAN):
            order = order_of(left.boolean, right.boolean);
            return true;
        case PAIR(DDS_FIELD_STRING, DDS_FIELD_STRING):
        case PAIR(DDS_FIELD_OCTETS, DDS_FIELD_OCTETS):
            order = order_of_octets(left, right);
            return true;
        default:
            return false;
    }
}

/// Matches a piece of a pattern without "%" at one place. @return where the match ends; null when there is none.
const char* end_of_match(const char* text, const char* text_end, std::string_view piece) noexcept {
    for (const char letter : piece) {
        if (text == text_end || (letter != '_' && letter != *text)) {
            return nullptr;
        }
        ++text;
        while (letter == '_' && text != text_end && (static_cast<unsigned char>(*text) & 0xc0U) == 0x80U) {
            ++text;
        }
    }
    return text;
}

/// Finds the first match of a piece of a pattern without "%". Linear in the text unless the piece has a "_".
/// @param to_the_end  whether only a match that ends with the text counts.
/// @return where it ends; null when there is none.
const char* find_match(const char* text, const char* text_end, std::string_view piece, bool to_the_end) noexcept {
    const std::size_t length = static_cast<std::size_t>(text_end - text);
    if (piece.find('_') == std::string_view::npos) {
        if (length < piece.size()) {
            return nullptr;
        }
        if (to_the_end) {
            return std::memcmp(text_end - piece.size(), piece.data(), piece.size()) == 0 ? text_end : nullptr;
        }
        const void* const found = memmem(text, length, piece.data(), piece.size());
        return found != nullptr ? static_cast<const char*>(found) + piece.size() : nullptr;
    }
    for (; text != text_end; ++text) {
        const char* const end = end_of_match(text, text_end, piece);
        if (end != nullptr && (!to_the_end || end == text_end)) {
            return end;
        }
    }
    return nullptr;
}

/// "%" any run, "_" any one character (of UTF-8). The text comes from a peer, the pattern from this process: linear in the text, but
/// for pieces of the pattern that have a "_", which cost their length for each octet.
bool is_like(const DDS_FieldValue& text_value, const DDS_FieldValue& pattern_value) noexcept {
    const char* text = static_cast<const char*>(text_value.data);
    const char* const text_end = text + text_value.length;
    std::string_view pattern(static_cast<const char*>(pattern_value.data), pattern_value.length);
    std::size_t run = pattern.find('%');
    text = end_of_match(text, text_end, pattern.substr(0, run));
    while (text != nullptr && run != std::string_view::npos) {
        pattern.remove_prefix(run + 1);
        run = pattern.find('%');
        // The first match of each piece leaves most of the text to those behind it.
        text = find_match(text, text_end, pattern.substr(0, run), run == std::string_view::npos);
    }
    return text == text_end;
}

void set_guid(DDS_FieldValue& value, const DDS_GUID_t& guid) noexcept {
    value.kind = DDS_FIELD_OCTETS;
    value.data = guid.value;
    value.length = sizeof guid.value;
}

void set_integer(DDS_FieldValue& value, std::int64_t integer) noexcept {
    value.kind = DDS_FIELD_INTEGER;
    value.integer = integer;
}

void read_metadata(FilterMetadata field, const SampleMetadata& metadata, DDS_FieldValue& value) noexcept {
    switch (field) {
        case FilterMetadata::RELATED_WRITER_GUID:
            return set_guid(value, metadata.related_identity.writer_guid);
        case FilterMetadata::RELATED_SEQUENCE_NUMBER:
            return set_integer(value, to_integer(metadata.related_identity.sequence_number));
        case FilterMetadata::WRITER_GUID:
            return set_guid(value, metadata.identity.writer_guid);
        case FilterMetadata::SEQUENCE_NUMBER:
            return set_integer(value, to_integer(metadata.identity.sequence_number));
        case FilterMetadata::SOURCE_TIMESTAMP_SEC:
            return set_integer(value, metadata.source_timestamp.sec);
        case FilterMetadata::SOURCE_TIMESTAMP_NANOSEC:
            return set_integer(value, metadata.source_timestamp.nanosec);
    }
}

std::optional<DDS_GUID_t> route_of(const FilterProgram& program) {
    const auto is_related_guid = [](const FilterOperand& operand) {
        return operand.source == FilterSource::METADATA && operand.number == static_cast<int>(FilterMetadata::RELATED_WRITER_GUID);
    };
    const FilterPredicate& predicate = program.predicates.front();
    if (program.predicates.size() != 1 || predicate.comparison != FilterComparison::EQUAL || predicate.on_true != FILTER_PASSES ||
        is_related_guid(predicate.left) == is_related_guid(predicate.right)) {
        return std::nullopt;
    }
    const FilterOperand& other = is_related_guid(predicate.left) ? predicate.right : predicate.left;
    if (other.source != FilterSource::CONSTANT) {
        return std::nullopt;
    }
    DDS_GUID_t guid;
    std::memcpy(guid.value, other.constant.data, sizeof guid.value);
    return guid;
}

/// @return the number of the character at an offset, from 1.
std::size_t column_of(std::string_view text, std::size_t offset) noexcept {
    std::size_t column = 1;
    for (std::size_t index = 0; index < offset && index < text.size(); ++index) {
        column += (static_cast<unsigned char>(text[index]) & 0xc0U) != 0x80U ? 1 : 0;
    }
    return column;
}

void set_message(std::string& message, const char* text) noexcept {
    try {
        message = text;
    } catch (const std::exception&) {
        message.clear();
    }
}

}  // namespace

FilterExpression::FilterExpression(FilterProgram&& program) : _program(std::move(program)), _route(route_of(_program)) {
    for (const FilterPredicate& predicate : _program.predicates) {
        _needs_data = _needs_data || predicate.left.source == FilterSource::FIELD || predicate.right.source == FilterSource::FIELD;
    }
}

DDS_ReturnCode_t FilterExpression::compile(const std::shared_ptr<const DDS_TypeOperations>& type, const char* text,
                                           const DDS_StringSeq& parameters, std::unique_ptr<const FilterExpression>& filter,
                                           std::string& message) noexcept {
    try {
        if (text == nullptr) {
            message = "the filter expression is null";
            return DDS_RETCODE_BAD_PARAMETER;
        }
        const std::string_view view(text, ::strnlen(text, MAX_FILTER_LENGTH + 1));
        if (view.size() > MAX_FILTER_LENGTH) {
            message = "column " + std::to_string(MAX_FILTER_LENGTH + 1) + ": expected the end: a filter has at most " +
                      std::to_string(MAX_FILTER_LENGTH) + " characters";
            return DDS_RETCODE_BAD_PARAMETER;
        }
        FilterProgram program;
        program.type = type;
        FilterParser parser(view, parameters, program);
        if (!parser.parse()) {
            message = "column " + std::to_string(column_of(view, parser.fault().offset)) + ": " + parser.fault().text;
            return DDS_RETCODE_BAD_PARAMETER;
        }
        filter.reset(new FilterExpression(std::move(program)));
        return DDS_RETCODE_OK;
    } catch (const std::bad_alloc&) {
        set_message(message, "no memory for the filter");
        return DDS_RETCODE_OUT_OF_RESOURCES;
    } catch (const std::exception& exception) {
        set_message(message, exception.what());
        return DDS_RETCODE_ERROR;
    } catch (...) {
        set_message(message, "the type's look-up of a field threw");
        return DDS_RETCODE_ERROR;
    }
}

bool FilterExpression::evaluate(const SampleMetadata& metadata, const void* sample) const noexcept {
    std::uint32_t place = 0;
    do {
        const FilterPredicate& predicate = _program.predicates[place];
        place = holds(predicate, metadata, sample) ? predicate.on_true : predicate.on_false;
    } while (place < FILTER_REFUSES);
    return place == FILTER_PASSES;
}

bool FilterExpression::holds(const FilterPredicate& predicate, const SampleMetadata& metadata, const void* sample) const noexcept {
    DDS_FieldValue left_value;
    DDS_FieldValue right_value;
    const DDS_FieldValue* left = &predicate.left.constant;
    const DDS_FieldValue* right = &predicate.right.constant;
    if (predicate.left.source != FilterSource::CONSTANT) {
        if (!read(predicate.left, metadata, sample, left_value)) {
            return false;
        }
        left = &left_value;
    }
    if (predicate.right.source != FilterSource::CONSTANT) {
        if (!read(predicate.right, metadata, sample, right_value)) {
            return false;
        }
        right = &right_value;
    }
    if (predicate.comparison == FilterComparison::LIKE || predicate.comparison == FilterComparison::NOT_LIKE) {
        return left->kind == DDS_FIELD_STRING && is_like(*left, *right) == (predicate.comparison == FilterComparison::LIKE);
    }
    Order order;
    if (!compare(*left, *right, order)) {
        return false;
    }
    switch (predicate.comparison) {
        case FilterComparison::EQUAL:
            return order == Order::EQUAL;
        case FilterComparison::NOT_EQUAL:
            return order != Order::EQUAL;
        case FilterComparison::LESS:
            return order == Order::LESS;
        case FilterComparison::LESS_OR_EQUAL:
            return order == Order::LESS || order == Order::EQUAL;
        case FilterComparison::GREATER:
            return order == Order::GREATER;
        default:
            return order == Order::GREATER || order == Order::EQUAL;
    }
}

bool FilterExpression::read(const FilterOperand& operand, const SampleMetadata& metadata, const void* sample,
                            DDS_FieldValue& value) const noexcept {
    if (operand.source == FilterSource::METADATA) {
        read_metadata(static_cast<FilterMetadata>(operand.number), metadata, value);
        return true;
    }
    if (sample == nullptr) {
        return false;
    }
    try {
        return _program.type->read_field(*_program.type, sample, operand.number, &value);
    } catch (...) {
        return false;  // a field that cannot be read is missing
    }
}

}  // namespace mw
}  // namespace norvane
