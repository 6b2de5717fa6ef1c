// SPDX-License-Identifier: Apache-2.0
// A doubly linked list through links inside its elements: no allocation, constant-time removal. Not thread-safe.
#ifndef NORVANE_MIDDLEWARE_INTRUSIVELIST_HPP
#define NORVANE_MIDDLEWARE_INTRUSIVELIST_HPP

namespace norvane {
namespace mw {

/// Membership of an element in one list.
template <typename T>
struct ListLink {
    T* previous = nullptr;
    T* next = nullptr;
};

template <typename T, ListLink<T> T::*LINK>
class IntrusiveList {
public:
    T* front() const noexcept { return _first; }
    bool empty() const noexcept { return _first == nullptr; }
    static T* next(const T& element) noexcept { return (element.*LINK).next; }

    /// @param element  in no list through this link.
    void push_back(T& element) noexcept {
        ListLink<T>& link = element.*LINK;
        link.previous = _last;
        link.next = nullptr;
        if (_last != nullptr) {
            (_last->*LINK).next = &element;
        } else {
            _first = &element;
        }
        _last = &element;
    }

    /// @param element  in this list.
    void remove(T& element) noexcept {
        ListLink<T>& link = element.*LINK;
        if (link.previous != nullptr) {
            (link.previous->*LINK).next = link.next;
        } else {
            _first = link.next;
        }
        if (link.next != nullptr) {
            (link.next->*LINK).previous = link.previous;
        } else {
            _last = link.previous;
        }
        link.previous = nullptr;
        link.next = nullptr;
    }

private:
    T* _first = nullptr;
    T* _last = nullptr;
};

}  // namespace mw
}  // namespace norvane

#endif
