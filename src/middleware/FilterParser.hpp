// SPDX-License-Identifier: Apache-2.0
// Turns the text of a filter into a program. Recursion goes as deep as the parentheses, and those have a limit.
// Thread rule: one thread at a time.
#ifndef NORVANE_MIDDLEWARE_FILTERPARSER_HPP
#define NORVANE_MIDDLEWARE_FILTERPARSER_HPP

#include <string>
#include <string_view>

#include "middleware/FilterLexer.hpp"
#include "middleware/FilterProgram.hpp"
#include "norvane/dds/sequence.hpp"

namespace norvane {
namespace mw {

class FilterParser {
public:
    static constexpr int MAX_DEPTH = 100;  ///< Of parentheses.

    /// All three are borrowed for the parser's life. @param program  `type` is set; the rest is filled in.
    FilterParser(std::string_view text, const DDS_StringSeq& parameters, FilterProgram& program)
        : _lexer(text), _parameters(parameters), _program(program) {}

    /// @return false when the text is refused; `fault()` then says why. The program is of no use then.
    [[nodiscard]] bool parse();
    const FilterFault& fault() const noexcept { return _fault; }

private:
    // An exit is the index of a predicate, times two, plus one for its end when it holds.
    static constexpr std::uint32_t NO_EXIT = 0xffffffffU;

    /// Exits of predicates whose target is not known yet, chained through those exits.
    struct Exits {
        std::uint32_t first = NO_EXIT;
        std::uint32_t last = NO_EXIT;
    };
    /// A parsed condition: its exits when it is true and when it is not.
    struct Condition {
        Exits on_true;
        Exits on_false;
    };
    /// What the checks want to know of an operand besides its value.
    struct Operand {
        FilterOperand program;
        DDS_FieldKind kind = DDS_FIELD_NONE;
        std::size_t offset = 0;
        std::string_view text;
        std::size_t octets = 0;  // length of an octet array, where it is fixed
        bool has_fixed_length = false;
    };

    bool parse_condition(Condition& condition, int depth);
    bool parse_conjunction(Condition& condition, int depth);
    bool parse_term(Condition& condition, int depth);
    bool parse_predicate(Condition& condition);
    bool parse_range(Condition& condition, const Operand& left, bool negated);
    bool parse_operand(Operand& operand);
    bool parse_field(Operand& operand);
    bool parse_metadata(Operand& operand);
    bool parse_parameter(Operand& operand);
    void take_literal(Operand& operand, FilterToken& literal);

    bool check(const Operand& left, FilterComparison comparison, std::size_t comparison_offset, const Operand& right);
    Condition add(const Operand& left, FilterComparison comparison, const Operand& right);

    std::uint32_t next_place() const noexcept { return static_cast<std::uint32_t>(_program.predicates.size()); }
    std::uint32_t& end_at(std::uint32_t exit) noexcept;
    Exits join(const Exits& left, const Exits& right) noexcept;
    void lead(const Exits& exits, std::uint32_t place) noexcept;

    bool advance() { return _lexer.next(_token, _fault); }
    bool fail(std::size_t offset, std::string text);
    bool fail_unexpected(const char* expected);

    FilterLexer _lexer;
    const DDS_StringSeq& _parameters;
    FilterProgram& _program;
    FilterToken _token;
    FilterFault _fault;
};

}  // namespace mw
}  // namespace norvane

#endif
