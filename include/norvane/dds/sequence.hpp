// SPDX-License-Identifier: Apache-2.0
// Sequences of the object API: a length, a maximum, and elements that are either owned or on loan.
//
// A sequence may be moved as raw bytes (the loan container does so). Hence no sequence ever holds a pointer into
// itself: room inside the object is reached by index.
// Thread rule: a plain value; one thread at a time.
#ifndef NORVANE_DDS_SEQUENCE_HPP
#define NORVANE_DDS_SEQUENCE_HPP

#include <cstddef>
#include <new>
#include <type_traits>
#include <utility>

#include "norvane/dds/string.hpp"
#include "norvane/dds/types.hpp"

namespace norvane {
namespace details {

/// How a sequence makes, copies and drops an owned element.
template <typename T>
struct SequenceElement {
    static void construct(T* place) { new (place) T(); }
    static bool copy(T& destination, const T& source) {
        destination = source;
        return true;
    }
    static void destroy(T* place) noexcept { place->~T(); }
};

/// A sequence of strings owns its strings, and releases them with DDS_String_free.
template <>
struct SequenceElement<char*> {
    static void construct(char** place) noexcept { *place = nullptr; }
    static bool copy(char*& destination, char* const& source) noexcept {
        DDS_String_replace(&destination, source);
        return source == nullptr || destination != nullptr;
    }
    static void destroy(char** place) noexcept { DDS_String_free(*place); }
};

}  // namespace details

/// A sequence with `INLINE` elements of room in itself, so that a short one needs no heap memory.
///
/// Memory comes from operator new(std::nothrow): an operation that cannot get it returns false and changes nothing.
/// @tparam T       element type; default-constructible and copyable.
/// @tparam INLINE  elements kept in the object; only for trivial element types.
template <typename T, int INLINE = 0>
class Sequence {
    static_assert(INLINE == 0 || std::is_trivial<T>::value, "only trivial elements may live inside a sequence");
    typedef details::SequenceElement<T> Element;

public:
    typedef T value_type;

    /// Makes an empty sequence. With a maximum of 0 or below it holds no heap memory.
    /// A maximum that cannot be had is left at 0 (`maximum()` tells).
    explicit Sequence(DDS_Long new_maximum = 0) { maximum(new_maximum); }

    /// Deep copy. The copy ends at the first element that cannot be copied because memory is short (`length()` tells).
    Sequence(const Sequence& other) { copy_from(other); }

    /// Deep copy into owned elements; a loaned destination must have room, and keeps its loan.
    Sequence& operator=(const Sequence& other) {
        copy_from(other);
        return *this;
    }

    /// Drops owned elements; leaves loaned ones alone.
    ~Sequence() { release(); }

    /// @return the number of elements.
    DDS_Long length() const noexcept { return _length; }

    /// Sets the number of elements, up to the maximum. Elements that come back keep their old value.
    /// @return false when `new_length` is negative or above `maximum()`; nothing changes then.
    bool length(DDS_Long new_length) noexcept {
        if (new_length < 0 || new_length > maximum()) {
            return false;
        }
        _length = new_length;
        return true;
    }

    /// @return the number of elements there is room for.
    DDS_Long maximum() const noexcept { return _maximum > INLINE || !_owned ? _maximum : INLINE; }

    /// Gives an owning sequence room for exactly `new_maximum` elements; those that do not fit any more are dropped.
    /// @return false when the elements are on loan, `new_maximum` is negative, or memory is short.
    bool maximum(DDS_Long new_maximum) {
        if (!_owned || new_maximum < 0) {
            return false;
        }
        return reallocate(new_maximum);
    }

    /// Makes room for `new_maximum` elements when there is less than `new_length`, then sets the length.
    /// @return false when the elements are on loan and too few, the arguments are out of order, or memory is short.
    bool ensure_length(DDS_Long new_length, DDS_Long new_maximum) {
        if (new_length < 0 || new_length > new_maximum) {
            return false;
        }
        if (new_length > maximum() && !maximum(new_maximum)) {
            return false;
        }
        return length(new_length);
    }

    /// @return whether the elements belong to this sequence; false while it holds a loan.
    bool has_ownership() const noexcept { return _owned; }

    /// Holds `buffer` as a loan: the elements stay the lender's. Only an owning sequence with maximum 0 may borrow.
    /// @return false when the sequence holds memory or a loan already, or the arguments make no sense.
    bool loan_contiguous(T* buffer, DDS_Long new_length, DDS_Long new_maximum) noexcept {
        if (!may_borrow(buffer, new_length, new_maximum)) {
            return false;
        }
        _contiguous = buffer;
        return borrow(new_length, new_maximum);
    }

    /// Holds an array of pointers to elements as a loan. Only an owning sequence with maximum 0 may borrow.
    /// @return false when the sequence holds memory or a loan already, or the arguments make no sense.
    bool loan_discontiguous(T** buffer, DDS_Long new_length, DDS_Long new_maximum) noexcept {
        if (!may_borrow(buffer, new_length, new_maximum)) {
            return false;
        }
        _discontiguous = buffer;
        return borrow(new_length, new_maximum);
    }

    /// Gives the loan up: the sequence is empty and owning again. The lender is told nothing.
    /// @return false when there is no loan.
    bool unloan() noexcept {
        if (_owned) {
            return false;
        }
        _contiguous = nullptr;
        _discontiguous = nullptr;
        _length = 0;
        _maximum = 0;
        _owned = true;
        return true;
    }

    /// @return the elements as one array; null when there is none, or the elements are discontiguous or inside the object.
    T* get_contiguous_buffer() const noexcept { return _contiguous; }
    /// @return the array of pointers of a discontiguous loan, else null.
    T** get_discontiguous_buffer() const noexcept { return _discontiguous; }

    /// @param index  from 0 to `length()` - 1; not checked.
    T& operator[](DDS_Long index) noexcept { return *at(index); }
    const T& operator[](DDS_Long index) const noexcept { return *const_cast<Sequence*>(this)->at(index); }

    /// Makes the elements deep copies of those of `other`.
    /// @return false when a loaned destination has too little room, or memory is short.
    bool copy_from(const Sequence& other) {
        if (this == &other) {
            return true;
        }
        if (other._length > maximum() && !maximum(other._length)) {
            return false;
        }
        for (DDS_Long index = 0; index < other._length; ++index) {
            if (!Element::copy(*at(index), other[index])) {
                _length = index;
                return false;
            }
        }
        _length = other._length;
        return true;
    }

    /// Makes the elements copies of `count` elements of an array.
    /// @return false when there is no room and none can be made.
    bool from_array(const T* array, DDS_Long count) {
        if (count < 0 || (count > 0 && array == nullptr) || !ensure_length(count, count > maximum() ? count : maximum())) {
            return false;
        }
        for (DDS_Long index = 0; index < count; ++index) {
            if (!Element::copy(*at(index), array[index])) {
                _length = index;
                return false;
            }
        }
        return true;
    }

private:
    T* at(DDS_Long index) noexcept { return _discontiguous != nullptr ? _discontiguous[index] : element_in(_contiguous, index); }

    // No memory means the room inside.
    T* element_in(T* memory, DDS_Long index) noexcept {
        if constexpr (INLINE > 0) {
            if (memory == nullptr) {
                return _inline.elements + index;
            }
        }
        return memory + index;
    }

    bool may_borrow(const void* buffer, DDS_Long new_length, DDS_Long new_maximum) const noexcept {
        return _owned && _contiguous == nullptr && new_length >= 0 && new_length <= new_maximum &&
               (buffer != nullptr || new_maximum == 0);
    }

    bool borrow(DDS_Long new_length, DDS_Long new_maximum) noexcept {
        _length = new_length;
        _maximum = new_maximum;
        _owned = false;
        return true;
    }

    bool reallocate(DDS_Long new_maximum) {
        if (new_maximum <= INLINE ? _contiguous == nullptr : new_maximum == _maximum) {
            if (_length > new_maximum) {
                _length = new_maximum;
            }
            return true;
        }
        T* fresh = nullptr;
        if (new_maximum > INLINE) {
            fresh = static_cast<T*>(allocate(static_cast<std::size_t>(new_maximum)));
            if (fresh == nullptr) {
                return false;
            }
            for (DDS_Long index = 0; index < new_maximum; ++index) {
                Element::construct(fresh + index);
            }
        }
        const DDS_Long kept = _length < new_maximum ? _length : new_maximum;
        for (DDS_Long index = 0; index < kept; ++index) {
            std::swap(*element_in(fresh, index), *at(index));
        }
        release();
        _contiguous = fresh;
        _maximum = fresh != nullptr ? new_maximum : 0;
        _length = kept;
        return true;
    }

    static void* allocate(std::size_t count) noexcept {
        if (count > static_cast<std::size_t>(-1) / 2 / sizeof(T)) {
            return nullptr;
        }
        if constexpr (alignof(T) > alignof(std::max_align_t)) {
            return ::operator new(count * sizeof(T), std::align_val_t(alignof(T)), std::nothrow);
        } else {
            return ::operator new(count * sizeof(T), std::nothrow);
        }
    }

    void release() noexcept {
        if (_owned && _contiguous != nullptr) {
            for (DDS_Long index = 0; index < _maximum; ++index) {
                Element::destroy(_contiguous + index);
            }
            if constexpr (alignof(T) > alignof(std::max_align_t)) {
                ::operator delete(_contiguous, std::align_val_t(alignof(T)));
            } else {
                ::operator delete(_contiguous);
            }
            _contiguous = nullptr;
        }
    }

    struct NoRoom {};
    struct Room {
        T elements[INLINE > 0 ? INLINE : 1];
    };

    T* _contiguous = nullptr;      // owned when _owned, else the lender's; null while the elements are inside
    T** _discontiguous = nullptr;  // always a lender's
    DDS_Long _maximum = 0;
    DDS_Long _length = 0;
    bool _owned = true;
    typename std::conditional<(INLINE > 0), Room, NoRoom>::type _inline;
};

}  // namespace norvane

typedef norvane::Sequence<DDS_Octet> DDS_OctetSeq;
typedef norvane::Sequence<char*> DDS_StringSeq;
typedef norvane::Sequence<DDS_InstanceHandle_t> DDS_InstanceHandleSeq;

#endif
