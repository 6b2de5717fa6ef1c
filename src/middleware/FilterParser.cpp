// SPDX-License-Identifier: Apache-2.0
// The grammar of the filter language, and its type rules.
//
//   condition   = conjunction { OR conjunction }
//   conjunction = term { AND term }
//   term        = { NOT } ( "(" condition ")" | predicate )
//   predicate   = operand comparison operand | operand [NOT] BETWEEN operand AND operand | operand [NOT] LIKE string
//   operand     = field | "@" metadata | literal | parameter
#include "middleware/FilterParser.hpp"

#include <utility>

namespace norvane {
namespace mw {
namespace {

/// Kinds that compare with each other.
enum class Sort { NUMBER, BOOLEAN, STRING, OCTETS };

Sort sort_of(DDS_FieldKind kind) noexcept {
    switch (kind) {
        case DDS_FIELD_BOOLEAN:
            return Sort::BOOLEAN;
        case DDS_FIELD_STRING:
            return Sort::STRING;
        case DDS_FIELD_OCTETS:
            return Sort::OCTETS;
        default:
            return Sort::NUMBER;
    }
}

const char* name_of(Sort sort) noexcept {
    static constexpr const char* NAMES[] = {"a number", "a boolean", "a string", "octets"};
    return NAMES[static_cast<int>(sort)];
}

bool needs_order(FilterComparison comparison) noexcept {
    return comparison != FilterComparison::EQUAL && comparison != FilterComparison::NOT_EQUAL;
}

}  // namespace

bool FilterParser::fail(std::size_t offset, std::string text) {
    _fault.offset = offset;
    _fault.text = std::move(text);
    return false;
}

bool FilterParser::fail_unexpected(const char* expected) {
    return fail(_token.offset, std::string("expected ") + expected + ", found " +
                                   (_token.kind == FilterTokenKind::END ? "the end" : quoted(_token.text)));
}

bool FilterParser::parse() {
    Condition condition;
    if (!advance() || !parse_condition(condition, 0)) {
        return false;
    }
    if (_token.kind != FilterTokenKind::END) {
        return fail_unexpected("AND, OR or the end");
    }
    lead(condition.on_true, FILTER_PASSES);
    lead(condition.on_false, FILTER_REFUSES);
    return true;
}

bool FilterParser::parse_condition(Condition& condition, int depth) {
    if (!parse_conjunction(condition, depth)) {
        return false;
    }
    while (_token.kind == FilterTokenKind::OR) {
        lead(condition.on_false, next_place());
        Condition right;
        if (!advance() || !parse_conjunction(right, depth)) {
            return false;
        }
        condition = {join(condition.on_true, right.on_true), right.on_false};
    }
    return true;
}

bool FilterParser::parse_conjunction(Condition& condition, int depth) {
    if (!parse_term(condition, depth)) {
        return false;
    }
    while (_token.kind == FilterTokenKind::AND) {
        lead(condition.on_true, next_place());
        Condition right;
        if (!advance() || !parse_term(right, depth)) {
            return false;
        }
        condition = {right.on_true, join(condition.on_false, right.on_false)};
    }
    return true;
}

bool FilterParser::parse_term(Condition& condition, int depth) {
    bool negated = false;
    while (_token.kind == FilterTokenKind::NOT) {
        negated = !negated;
        if (!advance()) {
            return false;
        }
    }
    if (_token.kind != FilterTokenKind::LEFT_PARENTHESIS) {
        if (!parse_predicate(condition)) {
            return false;
        }
    } else {
        if (depth == MAX_DEPTH) {
            return fail(_token.offset, "more than " + std::to_string(MAX_DEPTH) + " parentheses inside each other");
        }
        if (!advance() || !parse_condition(condition, depth + 1)) {
            return false;
        }
        if (_token.kind != FilterTokenKind::RIGHT_PARENTHESIS) {
            return fail_unexpected("AND, OR or \")\"");
        }
        if (!advance()) {
            return false;
        }
    }
    if (negated) {
        std::swap(condition.on_true, condition.on_false);
    }
    return true;
}

bool FilterParser::parse_predicate(Condition& condition) {
    Operand left;
    if (!parse_operand(left)) {
        return false;
    }
    const std::size_t comparison_offset = _token.offset;
    Operand right;
    if (_token.kind == FilterTokenKind::COMPARISON) {
        const FilterComparison comparison = _token.comparison;
        if (!advance() || !parse_operand(right) || !check(left, comparison, comparison_offset, right)) {
            return false;
        }
        condition = add(left, comparison, right);
        return true;
    }
    const bool negated = _token.kind == FilterTokenKind::NOT;
    if (negated && !advance()) {
        return false;
    }
    if (_token.kind == FilterTokenKind::BETWEEN) {
        return parse_range(condition, left, negated);
    }
    if (_token.kind != FilterTokenKind::LIKE) {
        return fail_unexpected(negated ? "BETWEEN or LIKE" : "a comparison");
    }
    if (sort_of(left.kind) != Sort::STRING) {
        return fail(left.offset, "expected a string before LIKE, found " + std::string(name_of(sort_of(left.kind))));
    }
    if (!advance() || !parse_operand(right)) {
        return false;
    }
    if (right.kind != DDS_FIELD_STRING || right.program.source != FilterSource::CONSTANT) {
        return fail(right.offset, "expected a pattern in quotes after LIKE, found " + quoted(right.text));
    }
    condition = add(left, negated ? FilterComparison::NOT_LIKE : FilterComparison::LIKE, right);
    return true;
}

bool FilterParser::parse_range(Condition& condition, const Operand& left, bool negated) {
    const std::size_t between_offset = _token.offset;
    Operand low;
    Operand high;
    if (!advance() || !parse_operand(low)) {
        return false;
    }
    if (_token.kind != FilterTokenKind::AND) {
        return fail_unexpected("AND and the upper end of BETWEEN");
    }
    if (!advance() || !parse_operand(high)) {
        return false;
    }
    if (!check(left, FilterComparison::GREATER_OR_EQUAL, between_offset, low) ||
        !check(left, FilterComparison::LESS_OR_EQUAL, between_offset, high)) {
        return false;
    }
    // NOT BETWEEN is a comparison of its own, not the negation of one: a value that is missing is neither inside nor outside.
    Condition first = add(left, negated ? FilterComparison::LESS : FilterComparison::GREATER_OR_EQUAL, low);
    lead(negated ? first.on_false : first.on_true, next_place());
    const Condition second = add(left, negated ? FilterComparison::GREATER : FilterComparison::LESS_OR_EQUAL, high);
    condition = negated ? Condition{join(first.on_true, second.on_true), second.on_false}
                        : Condition{second.on_true, join(first.on_false, second.on_false)};
    return true;
}

bool FilterParser::parse_operand(Operand& operand) {
    operand.offset = _token.offset;
    operand.text = _token.text;
    switch (_token.kind) {
        case FilterTokenKind::FIELD:
            return parse_field(operand) && advance();
        case FilterTokenKind::METADATA:
            return parse_metadata(operand) && advance();
        case FilterTokenKind::PARAMETER:
            return parse_parameter(operand) && advance();
        case FilterTokenKind::LITERAL:
            take_literal(operand, _token);
            return advance();
        default:
            return fail_unexpected("a field, a literal or a parameter");
    }
}

bool FilterParser::parse_field(Operand& operand) {
    const DDS_TypeOperations* const type = _program.type.get();
    if (type == nullptr || type->find_field == nullptr) {
        return fail(operand.offset, "the type offers no fields to filters");
    }
    operand.program.source = FilterSource::FIELD;
    operand.program.number = type->find_field(*type, std::string(operand.text).c_str(), &operand.kind);
    if (operand.program.number < 0 || operand.kind == DDS_FIELD_NONE) {
        return fail(operand.offset, "type " + quoted(type->name) + " has no field " + quoted(operand.text));
    }
    return true;
}

bool FilterParser::parse_metadata(Operand& operand) {
    static constexpr struct {
        std::string_view path;
        FilterMetadata number;
        DDS_FieldKind kind;
    } FIELDS[] = {{"@related_sample_identity.writer_guid.value", FilterMetadata::RELATED_WRITER_GUID, DDS_FIELD_OCTETS},
                  {"@related_sample_identity.sequence_number", FilterMetadata::RELATED_SEQUENCE_NUMBER, DDS_FIELD_INTEGER},
                  {"@sample_identity.writer_guid.value", FilterMetadata::WRITER_GUID, DDS_FIELD_OCTETS},
                  {"@sample_identity.sequence_number", FilterMetadata::SEQUENCE_NUMBER, DDS_FIELD_INTEGER},
                  {"@source_timestamp.sec", FilterMetadata::SOURCE_TIMESTAMP_SEC, DDS_FIELD_INTEGER},
                  {"@source_timestamp.nanosec", FilterMetadata::SOURCE_TIMESTAMP_NANOSEC, DDS_FIELD_INTEGER}};
    for (const auto& field : FIELDS) {
        if (operand.text == field.path) {
            operand.kind = field.kind;
            operand.program.source = FilterSource::METADATA;
            operand.program.number = static_cast<int>(field.number);
            operand.octets = sizeof(DDS_GUID_t);
            operand.has_fixed_length = true;
            return true;
        }
    }
    return fail(operand.offset, "samples have no metadata " + quoted(operand.text));
}

bool FilterParser::parse_parameter(Operand& operand) {
    const std::string name = "%" + std::to_string(_token.number);
    if (_token.number >= _parameters.length() || _parameters[_token.number] == nullptr) {
        return fail(operand.offset, "parameter " + name + " is missing: there are " + std::to_string(_parameters.length()));
    }
    const std::string_view text = _parameters[_token.number];
    FilterLexer lexer(text);
    FilterToken literal;
    FilterToken rest;
    FilterFault fault;
    if (text.size() > MAX_FILTER_LENGTH || !lexer.next(literal, fault) || literal.kind != FilterTokenKind::LITERAL ||
        !lexer.next(rest, fault) || rest.kind != FilterTokenKind::END) {
        return fail(operand.offset, "parameter " + name + " is " + quoted(text) +
                                        ": expected one number, boolean, &hex(...), or string in single quotes");
    }
    take_literal(operand, literal);
    return true;
}

void FilterParser::take_literal(Operand& operand, FilterToken& literal) {
    operand.kind = literal.value.kind;
    operand.program.constant = literal.value;
    if (literal.value.kind == DDS_FIELD_STRING || literal.value.kind == DDS_FIELD_OCTETS) {
        _program.literals.push_back(std::move(literal.octets));
        operand.program.constant.data = _program.literals.back().data();
        operand.program.constant.length = _program.literals.back().size();
        operand.octets = _program.literals.back().size();
        operand.has_fixed_length = true;
    }
}

bool FilterParser::check(const Operand& left, FilterComparison comparison, std::size_t comparison_offset, const Operand& right) {
    // The operand that the author can change is the literal.
    const bool left_is_wrong = left.program.source == FilterSource::CONSTANT && right.program.source != FilterSource::CONSTANT;
    const Operand& wrong = left_is_wrong ? left : right;
    const Operand& reference = left_is_wrong ? right : left;
    const Sort sort = sort_of(reference.kind);
    if (sort_of(wrong.kind) != sort) {
        return fail(wrong.offset, std::string("expected ") + name_of(sort) + " to compare with " + quoted(reference.text) +
                                      ", found " + name_of(sort_of(wrong.kind)));
    }
    if (needs_order(comparison) && (sort == Sort::OCTETS || sort == Sort::BOOLEAN)) {
        return fail(comparison_offset,
                    std::string("expected = or <>: ") + (sort == Sort::OCTETS ? "octets" : "booleans") + " have no order");
    }
    if (sort == Sort::OCTETS && left.has_fixed_length && right.has_fixed_length && left.octets != right.octets) {
        return fail(wrong.offset, "expected " + std::to_string(reference.octets) + " octets to compare with " +
                                      quoted(reference.text) + ", found " + std::to_string(wrong.octets));
    }
    return true;
}

FilterParser::Condition FilterParser::add(const Operand& left, FilterComparison comparison, const Operand& right) {
    const std::uint32_t on_false = 2 * next_place();
    const std::uint32_t on_true = on_false + 1;
    _program.predicates.push_back({comparison, left.program, right.program, NO_EXIT, NO_EXIT});
    return {{on_true, on_true}, {on_false, on_false}};
}

std::uint32_t& FilterParser::end_at(std::uint32_t exit) noexcept {
    FilterPredicate& predicate = _program.predicates[exit / 2];
    return exit % 2 == 1 ? predicate.on_true : predicate.on_false;
}

FilterParser::Exits FilterParser::join(const Exits& left, const Exits& right) noexcept {
    end_at(left.last) = right.first;
    return {left.first, right.last};
}

void FilterParser::lead(const Exits& exits, std::uint32_t place) noexcept {
    for (std::uint32_t exit = exits.first; exit != NO_EXIT;) {
        std::uint32_t& end = end_at(exit);
        exit = end;
        end = place;
    }
}

}  // namespace mw
}  // namespace norvane
