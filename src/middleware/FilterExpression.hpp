// SPDX-License-Identifier: Apache-2.0
// A content filter, compiled. docs/filters.md describes the language.
//
// Immutable: it may be evaluated by any thread, and by many at once.
#ifndef NORVANE_MIDDLEWARE_FILTEREXPRESSION_HPP
#define NORVANE_MIDDLEWARE_FILTEREXPRESSION_HPP

#include <memory>
#include <optional>
#include <string>

#include "middleware/Engine.hpp"
#include "middleware/FilterProgram.hpp"
#include "norvane/dds/sequence.hpp"

namespace norvane {
namespace mw {

class FilterExpression {
public:
    /// Compiles the text of a filter, which may be hostile.
    /// @param type        the type whose fields the text may name; null when there are none. Kept.
    /// @param text        at most MAX_FILTER_LENGTH characters; null is refused.
    /// @param parameters  values of %0, %1 ... as literals of the language; not needed any more afterwards.
    /// @param filter      gets the filter; unchanged when it is refused.
    /// @param message     gets what is wrong with a refused filter: "column 7: expected ...".
    /// @return DDS_RETCODE_OK; DDS_RETCODE_BAD_PARAMETER for a filter that is refused; DDS_RETCODE_OUT_OF_RESOURCES;
    ///         DDS_RETCODE_ERROR when the type's own operation failed.
    [[nodiscard]] static DDS_ReturnCode_t compile(const std::shared_ptr<const DDS_TypeOperations>& type, const char* text,
                                                  const DDS_StringSeq& parameters, std::unique_ptr<const FilterExpression>& filter,
                                                  std::string& message) noexcept;

    /// @param sample  null when only the metadata is there: then every field is missing.
    /// @return whether the sample passes. Allocates nothing.
    bool evaluate(const SampleMetadata& metadata, const void* sample) const noexcept;

    /// @return whether the filter looks at fields of the sample, and not at its metadata alone.
    bool needs_data() const noexcept { return _needs_data; }

    /// @return the GUID when the filter asks for a related writer GUID and for nothing else.
    const std::optional<DDS_GUID_t>& route() const noexcept { return _route; }

private:
    explicit FilterExpression(FilterProgram&& program);

    bool holds(const FilterPredicate& predicate, const SampleMetadata& metadata, const void* sample) const noexcept;
    bool read(const FilterOperand& operand, const SampleMetadata& metadata, const void* sample,
              DDS_FieldValue& value) const noexcept;

    const FilterProgram _program;
    bool _needs_data = false;
    std::optional<DDS_GUID_t> _route;
};

}  // namespace mw
}  // namespace norvane

#endif
