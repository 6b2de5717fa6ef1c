// SPDX-License-Identifier: Apache-2.0
// Cuts the text of a filter into tokens. The text may be hostile; nothing in it is trusted.
// Thread rule: one thread at a time.
#ifndef NORVANE_MIDDLEWARE_FILTERLEXER_HPP
#define NORVANE_MIDDLEWARE_FILTERLEXER_HPP

#include <cstddef>
#include <string>
#include <string_view>

#include "middleware/FilterProgram.hpp"

namespace norvane {
namespace mw {

enum class FilterTokenKind {
    END,
    FIELD,      ///< `text` is its path.
    METADATA,   ///< `text` is its path, with the "@".
    PARAMETER,  ///< `number` is its number.
    LITERAL,    ///< `value` is it; the octets of strings and octet arrays are in `octets`.
    COMPARISON,
    LEFT_PARENTHESIS,
    RIGHT_PARENTHESIS,
    AND,
    OR,
    NOT,
    BETWEEN,
    LIKE
};

struct FilterToken {
    FilterTokenKind kind = FilterTokenKind::END;
    std::size_t offset = 0;  ///< Where it starts in the text.
    std::string_view text;   ///< How it is written.
    int number = 0;
    FilterComparison comparison = FilterComparison::EQUAL;
    DDS_FieldValue value;
    std::string octets;
};

/// The first thing that is wrong with a filter, and where.
struct FilterFault {
    std::size_t offset = 0;
    std::string text;
};

/// @return the text in double quotes, shortened when it is long: it goes into messages.
std::string quoted(std::string_view text);

class FilterLexer {
public:
    /// @param text  borrowed for as long as the lexer and its tokens live.
    explicit FilterLexer(std::string_view text) noexcept : _text(text) {}

    /// Reads the next token.
    /// @return false when there is none that is well formed; `fault` then says why.
    [[nodiscard]] bool next(FilterToken& token, FilterFault& fault);

private:
    bool read_name(FilterToken& token, FilterFault& fault);
    bool read_metadata(FilterToken& token, FilterFault& fault);
    bool read_parameter(FilterToken& token, FilterFault& fault);
    bool read_number(FilterToken& token, FilterFault& fault);
    bool read_string(FilterToken& token, FilterFault& fault);
    bool read_octets(FilterToken& token, FilterFault& fault);
    bool read_sign(FilterToken& token, FilterFault& fault);
    bool read_path(FilterFault& fault);

    /// @return the character at the current place plus `ahead`; '\0' behind the end.
    char peek(std::size_t ahead = 0) const noexcept { return ahead < _text.size() - _at ? _text[_at + ahead] : '\0'; }
    bool accept(char character) noexcept;
    void skip_blanks() noexcept;

    std::string_view _text;
    std::size_t _at = 0;
};

}  // namespace mw
}  // namespace norvane

#endif
