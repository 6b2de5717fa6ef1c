// SPDX-License-Identifier: Apache-2.0
// A compiled filter: comparisons in the order of the text, each with the place to go on when it holds and when it does not.
// AND, OR, NOT and parentheses live in those places alone, so evaluating is one loop.
// Thread rule: immutable once compiled.
#ifndef NORVANE_MIDDLEWARE_FILTERPROGRAM_HPP
#define NORVANE_MIDDLEWARE_FILTERPROGRAM_HPP

#include <cstddef>
#include <cstdint>
#include <list>
#include <memory>
#include <string>
#include <vector>

#include "norvane/dds/TypeSupport.hpp"

namespace norvane {
namespace mw {

/// What can be asked of a sample's metadata.
enum class FilterMetadata : int {
    RELATED_WRITER_GUID,
    RELATED_SEQUENCE_NUMBER,
    WRITER_GUID,
    SEQUENCE_NUMBER,
    SOURCE_TIMESTAMP_SEC,
    SOURCE_TIMESTAMP_NANOSEC
};

enum class FilterSource : std::uint8_t { CONSTANT, FIELD, METADATA };

/// One side of a comparison.
struct FilterOperand {
    FilterSource source = FilterSource::CONSTANT;
    int number = 0;           ///< FIELD: as find_field gave it. METADATA: a FilterMetadata.
    DDS_FieldValue constant;  ///< CONSTANT: the value; its octets belong to the program.
};

enum class FilterComparison : std::uint8_t { EQUAL, NOT_EQUAL, LESS, LESS_OR_EQUAL, GREATER, GREATER_OR_EQUAL, LIKE, NOT_LIKE };

/// Characters of a filter, and of a parameter, at most.
constexpr std::size_t MAX_FILTER_LENGTH = 65536;

/// Places that end the evaluation; every other one is the index of a later predicate.
constexpr std::uint32_t FILTER_PASSES = 0xfffffffeU;
constexpr std::uint32_t FILTER_REFUSES = 0xfffffffdU;

struct FilterPredicate {
    FilterComparison comparison;
    FilterOperand left;
    FilterOperand right;
    std::uint32_t on_true;
    std::uint32_t on_false;
};

struct FilterProgram {
    std::shared_ptr<const DDS_TypeOperations> type;  ///< May be null: then there are no fields.
    std::vector<FilterPredicate> predicates;         ///< The first one is where evaluation starts.
    std::list<std::string> literals;                 ///< Octets of the constants; a list, because they are pointed at.
};

}  // namespace mw
}  // namespace norvane

#endif
