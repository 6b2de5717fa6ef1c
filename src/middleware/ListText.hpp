// SPDX-License-Identifier: Apache-2.0
// A list in words for a log line. Thread rule: a plain value.
#ifndef NORVANE_MIDDLEWARE_LISTTEXT_HPP
#define NORVANE_MIDDLEWARE_LISTTEXT_HPP

#include <cstddef>
#include <string>

namespace norvane {
namespace mw {

class ListText {
public:
    /// Adds an entry. The first eight are named, further ones counted. @throws std::bad_alloc
    void add(const std::string& entry) {
        constexpr std::size_t MAX_ENTRIES = 8;
        if (_count < MAX_ENTRIES) {
            _text += (_count == 0 ? "" : ", ") + entry;
        }
        ++_count;
        _more = _count > MAX_ENTRIES ? _count - MAX_ENTRIES : 0;
    }
    /// @return "a, b, c and 2 more"; empty when nothing was added. @throws std::bad_alloc
    std::string text() const { return _more == 0 ? _text : _text + " and " + std::to_string(_more) + " more"; }

private:
    std::string _text;
    std::size_t _count = 0;
    std::size_t _more = 0;
};

}  // namespace mw
}  // namespace norvane

#endif
