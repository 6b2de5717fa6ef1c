// SPDX-License-Identifier: Apache-2.0
// The tokens of the filter language. Nothing here depends on the locale.
#include "middleware/FilterLexer.hpp"

#include <charconv>
#include <system_error>

namespace norvane {
namespace mw {
namespace {

bool is_digit(char character) noexcept { return character >= '0' && character <= '9'; }
/// Octets of UTF-8 beyond ASCII count as letters: a member may be called what its author likes.
bool is_letter(char character) noexcept {
    return (character >= 'a' && character <= 'z') || (character >= 'A' && character <= 'Z') || character == '_' ||
           static_cast<unsigned char>(character) >= 0x80;
}
bool is_name_character(char character) noexcept { return is_letter(character) || is_digit(character); }

char lower(char character) noexcept {
    return character >= 'A' && character <= 'Z' ? static_cast<char>(character - 'A' + 'a') : character;
}

/// @return the value of a hexadecimal digit, or -1.
int hex_digit(char character) noexcept {
    const char digit = lower(character);
    return is_digit(digit) ? digit - '0' : digit >= 'a' && digit <= 'f' ? digit - 'a' + 10 : -1;
}

bool is_word(std::string_view text, std::string_view lower_case_word) noexcept {
    if (text.size() != lower_case_word.size()) {
        return false;
    }
    for (std::size_t index = 0; index < text.size(); ++index) {
        if (lower(text[index]) != lower_case_word[index]) {
            return false;
        }
    }
    return true;
}

bool fail(FilterFault& fault, std::size_t offset, std::string text) {
    fault.offset = offset;
    fault.text = std::move(text);
    return false;
}

}  // namespace

std::string quoted(std::string_view text) {
    constexpr std::size_t LONGEST = 64;
    return text.size() <= LONGEST ? "\"" + std::string(text) + "\"" : "\"" + std::string(text.substr(0, LONGEST)) + "...\"";
}

bool FilterLexer::accept(char character) noexcept {
    if (peek() != character) {
        return false;
    }
    ++_at;
    return true;
}

void FilterLexer::skip_blanks() noexcept {
    while (peek() == ' ' || peek() == '\t' || peek() == '\n' || peek() == '\r') {
        ++_at;
    }
}

bool FilterLexer::next(FilterToken& token, FilterFault& fault) {
    skip_blanks();
    token = FilterToken();
    token.offset = _at;
    bool done = true;
    if (_at == _text.size()) {
        return true;
    }
    if (is_letter(peek())) {
        done = read_name(token, fault);
    } else if (is_digit(peek()) || peek() == '+' || peek() == '-' || peek() == '.') {
        done = read_number(token, fault);
    } else if (peek() == '@') {
        done = read_metadata(token, fault);
    } else if (peek() == '%') {
        done = read_parameter(token, fault);
    } else if (peek() == '\'') {
        done = read_string(token, fault);
    } else if (peek() == '&') {
        done = read_octets(token, fault);
    } else {
        done = read_sign(token, fault);
    }
    token.text = _text.substr(token.offset, _at - token.offset);
    return done;
}

bool FilterLexer::read_path(FilterFault& fault) {
    do {
        if (!is_letter(peek())) {
            return fail(fault, _at, "expected a name");
        }
        while (is_name_character(peek())) {
            ++_at;
        }
    } while (accept('.'));
    return true;
}

bool FilterLexer::read_name(FilterToken& token, FilterFault& fault) {
    static constexpr struct {
        std::string_view word;
        FilterTokenKind kind;
    } KEYWORDS[] = {{"and", FilterTokenKind::AND},
                    {"or", FilterTokenKind::OR},
                    {"not", FilterTokenKind::NOT},
                    {"between", FilterTokenKind::BETWEEN},
                    {"like", FilterTokenKind::LIKE}};
    if (!read_path(fault)) {
        return false;
    }
    const std::string_view name = _text.substr(token.offset, _at - token.offset);
    token.kind = FilterTokenKind::FIELD;
    for (const auto& keyword : KEYWORDS) {
        if (is_word(name, keyword.word)) {
            token.kind = keyword.kind;
        }
    }
    if (is_word(name, "true") || is_word(name, "false")) {
        token.kind = FilterTokenKind::LITERAL;
        token.value.kind = DDS_FIELD_BOOLEAN;
        token.value.boolean = is_word(name, "true");
    }
    return true;
}

bool FilterLexer::read_metadata(FilterToken& token, FilterFault& fault) {
    ++_at;
    if (!read_path(fault)) {
        return false;
    }
    token.kind = FilterTokenKind::METADATA;
    return true;
}

bool FilterLexer::read_parameter(FilterToken& token, FilterFault& fault) {
    ++_at;
    const std::size_t digits = _at;
    while (is_digit(peek())) {
        token.number = _at - digits < 3 ? token.number * 10 + (peek() - '0') : 100;
        ++_at;
    }
    if (_at == digits || token.number > 99 || is_name_character(peek())) {
        return fail(fault, token.offset, "expected a parameter from %0 to %99");
    }
    token.kind = FilterTokenKind::PARAMETER;
    return true;
}

bool FilterLexer::read_number(FilterToken& token, FilterFault& fault) {
    const bool negative = peek() == '-';
    if (negative || peek() == '+') {
        ++_at;
    }
    const bool is_hex = peek() == '0' && lower(peek(1)) == 'x';
    if (is_hex) {
        _at += 2;
    }
    const std::size_t start = _at;
    bool is_integer = true;
    // Takes in whatever looks like part of a number; what is not well formed is found out by the conversion.
    while (is_name_character(peek()) || peek() == '.' ||
           ((peek() == '+' || peek() == '-') && !is_hex && _at > start && lower(_text[_at - 1]) == 'e')) {
        is_integer = is_integer && (is_hex || is_digit(peek()));
        ++_at;
    }
    const char* const first = _text.data() + start;
    const char* const last = _text.data() + _at;
    std::from_chars_result result{};
    std::uint64_t magnitude = 0;
    double floating = 0;
    if (is_integer) {
        result = std::from_chars(first, last, magnitude, is_hex ? 16 : 10);
    } else if (is_digit(*first) || *first == '.') {
        result = std::from_chars(first, last, floating);
    } else {
        result.ec = std::errc::invalid_argument;  // from_chars would take "inf" and "nan"
    }
    const std::string_view written = _text.substr(token.offset, _at - token.offset);
    if (result.ec == std::errc::result_out_of_range) {
        return fail(fault, token.offset, "the number " + quoted(written) + " is out of range");
    }
    if (result.ec != std::errc() || result.ptr != last) {
        return fail(fault, token.offset, quoted(written) + " is not a number");
    }
    token.kind = FilterTokenKind::LITERAL;
    constexpr std::uint64_t LEAST = std::uint64_t{1} << 63;  // magnitude of the least signed number
    if (!is_integer) {
        token.value.kind = DDS_FIELD_FLOAT;
        token.value.floating = negative ? -floating : floating;
    } else if (negative) {
        if (magnitude > LEAST) {
            return fail(fault, token.offset, "the number " + quoted(written) + " is out of range");
        }
        token.value.kind = DDS_FIELD_INTEGER;
        token.value.integer = magnitude == LEAST ? INT64_MIN : -static_cast<std::int64_t>(magnitude);
    } else if (magnitude >= LEAST) {
        token.value.kind = DDS_FIELD_UNSIGNED;
        token.value.unsigned_integer = magnitude;
    } else {
        token.value.kind = DDS_FIELD_INTEGER;
        token.value.integer = static_cast<std::int64_t>(magnitude);
    }
    return true;
}

bool FilterLexer::read_string(FilterToken& token, FilterFault& fault) {
    ++_at;
    for (;;) {
        if (_at == _text.size()) {
            return fail(fault, token.offset, "a string without its closing quote");
        }
        // Two quotes in a row stand for one that is part of the string.
        if (accept('\'') && peek() != '\'') {
            break;
        }
        token.octets += _text[_at++];
    }
    token.kind = FilterTokenKind::LITERAL;
    token.value.kind = DDS_FIELD_STRING;
    return true;
}

bool FilterLexer::read_octets(FilterToken& token, FilterFault& fault) {
    ++_at;
    skip_blanks();
    if (!is_word(_text.substr(_at, 3), "hex") || is_name_character(peek(3))) {
        return fail(fault, token.offset, "expected octets, written &hex(...)");
    }
    _at += 3;
    skip_blanks();
    if (!accept('(')) {
        return fail(fault, _at, "expected \"(\" after &hex");
    }
    skip_blanks();
    const std::size_t digits = _at;
    while (hex_digit(peek()) >= 0) {
        if ((_at - digits) % 2 == 1) {
            token.octets += static_cast<char>(hex_digit(_text[_at - 1]) * 16 + hex_digit(peek()));
        }
        ++_at;
    }
    const std::size_t count = _at - digits;
    skip_blanks();
    if (!accept(')')) {
        return fail(fault, _at, "expected a hexadecimal digit or \")\"");
    }
    if (count == 0 || count % 2 == 1) {
        return fail(fault, digits, "expected two hexadecimal digits for each octet, found " + std::to_string(count) + " in all");
    }
    token.kind = FilterTokenKind::LITERAL;
    token.value.kind = DDS_FIELD_OCTETS;
    return true;
}

bool FilterLexer::read_sign(FilterToken& token, FilterFault& fault) {
    token.kind = FilterTokenKind::COMPARISON;
    if (accept('(')) {
        token.kind = FilterTokenKind::LEFT_PARENTHESIS;
    } else if (accept(')')) {
        token.kind = FilterTokenKind::RIGHT_PARENTHESIS;
    } else if (accept('=')) {
        token.comparison = FilterComparison::EQUAL;
    } else if (accept('<')) {
        token.comparison = accept('>')   ? FilterComparison::NOT_EQUAL
                           : accept('=') ? FilterComparison::LESS_OR_EQUAL
                                         : FilterComparison::LESS;
    } else if (accept('>')) {
        token.comparison = accept('=') ? FilterComparison::GREATER_OR_EQUAL : FilterComparison::GREATER;
    } else if (peek() == '!' && peek(1) == '=') {
        _at += 2;
        token.comparison = FilterComparison::NOT_EQUAL;
    } else {
        return fail(fault, _at, "unexpected character " + quoted(_text.substr(_at, 1)));
    }
    return true;
}

}  // namespace mw
}  // namespace norvane
