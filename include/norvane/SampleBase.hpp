// SPDX-License-Identifier: Apache-2.0
// How a holder keeps its data and metadata: one class for each way. None of them checks whether a copy found memory; SampleHolder
// does.
//
// Metadata is copied deeply, and exchanged by three copies. When memory is short for a cookie of write parameters, it is left
// empty, without an error.
// Thread rule: plain values; one thread at a time.
#ifndef NORVANE_SAMPLEBASE_HPP
#define NORVANE_SAMPLEBASE_HPP

#include <cstddef>
#include <string>
#include <type_traits>
#include <utility>

#include "norvane/dds/SampleInfo.hpp"
#include "norvane/dds/WriteParams.hpp"
#include "norvane/dds/builtin_types.hpp"

namespace norvane {
namespace details {

/// One of two types.
template <bool Condition, class Then, class Else>
struct if_ {
    typedef Then type;
};
template <class Then, class Else>
struct if_<false, Then, Else> {
    typedef Else type;
};

template <class I>
inline constexpr bool IS_WRITTEN = std::is_same<I, DDS_WriteParams_t>::value;

// A record exchanges its pointers by its own swap; std::swap would copy it.
template <class T>
auto exchange(T& left, T& right, int) -> decltype(left.swap(right)) {
    return left.swap(right);
}
template <class T>
void exchange(T& left, T& right, long) {
    std::swap(left, right);
}

/// The size parameter of types that have no size. Never defined, so that no argument exists. (Without it, a size of 0 would be
/// taken for a null text.)
class NoSize;

/// The data as a member.
template <class T, class I>
class SampleFields {
public:
    typedef const T& Value;

    T& data() & noexcept { return _data; }
    const T& data() const& noexcept { return _data; }
    /// Of a temporary object: the data itself, moved out.
    T data() && {
        if constexpr (std::is_nothrow_move_constructible<T>::value) {
            return std::move(_data);
        } else {
            T taken{};  // exchanged, since a built-in type has no move, and its copy does not report that memory is short
            exchange(taken, _data, 0);
            return taken;
        }
    }
    operator T&() noexcept { return _data; }
    operator const T&() const noexcept { return _data; }

    /// Exchanges data and metadata. The data of a built-in type is neither copied nor allocated.
    void swap(SampleFields& other) {
        if (this != &other) {
            swap_data(other);
            std::swap(_info, other._info);
        }
    }

protected:
    typedef const NoSize& Size;
    // Whether a copy is checked when it is made, and when it takes the place of another.
    static constexpr bool CHECKS_COPIES = true;
    static constexpr bool CHECKS_ASSIGNMENT = true;

    SampleFields() : _data(), _info() {}
    explicit SampleFields(Size) : SampleFields() {}
    template <class... Sizes>
    explicit SampleFields(std::in_place_t, Sizes... sizes) : _data(sizes...), _info() {}
    SampleFields(const T& data, const I& info) : _data(data), _info(info) {}

    bool is_bad() const noexcept { return false; }
    void swap_data(SampleFields& other) { exchange(_data, other._data, 0); }
    void assign(const T& data, const I& info) {
        _data = data;
        _info = info;
    }

    T _data;
    I _info;
};

/// A keyed built-in type. Bad when its key or its value is null.
template <class T, class I>
class SampleBaseBuiltin : public SampleFields<T, I> {
public:
    static constexpr int DEFAULT_KEY_SIZE = 255;
    static constexpr int DEFAULT_VALUE_SIZE = 255;

protected:
    typedef int KeySize;

    using SampleFields<T, I>::SampleFields;
    SampleBaseBuiltin() : SampleBaseBuiltin(DEFAULT_KEY_SIZE, DEFAULT_VALUE_SIZE) {}
    SampleBaseBuiltin(int key_size, int value_size) : SampleFields<T, I>(std::in_place, key_size, value_size) {}

    bool is_bad() const noexcept { return this->_data.is_allocated() == 0; }
};

/// Octets. Bad when they are null, whatever their length.
template <class I>
class OctetsFields : public SampleFields<DDS_Octets, I> {
public:
    static constexpr int DEFAULT_VALUE_SIZE = 255;

protected:
    typedef int Size;
    // A received sample of no octets is a sample.
    static constexpr bool CHECKS_COPIES = IS_WRITTEN<I>;
    static constexpr bool CHECKS_ASSIGNMENT = IS_WRITTEN<I>;

    using SampleFields<DDS_Octets, I>::SampleFields;
    OctetsFields() : OctetsFields(DEFAULT_VALUE_SIZE) {}
    explicit OctetsFields(int size) : SampleFields<DDS_Octets, I>(std::in_place, size) {}

    bool is_bad() const noexcept { return this->_data.is_allocated() == 0; }
};

/// An owned, terminated text, made with DDS_String_replace. Bad when it is null.
/// @tparam IsConst  only says how the text is shown: as `const char*` or as `char*`.
template <class I, bool IsConst>
class SampleBaseCharPtr {
public:
    typedef typename if_<IsConst, const char*, char*>::type CharPtr;
    typedef const char* Value;

    static constexpr int DEFAULT_SIZE = 255;

    /// @return the text; null after a null text, or one that found no memory, was assigned unchecked.
    CharPtr data() noexcept { return _data; }
    const char* data() const noexcept { return _data; }
    operator CharPtr() noexcept { return _data; }
    operator const char*() const noexcept { return _data; }

    /// Exchanges text and metadata. The text is not copied.
    void swap(SampleBaseCharPtr& other) noexcept {
        if (this != &other) {
            swap_data(other);
            std::swap(_info, other._info);
        }
    }

protected:
    typedef std::size_t Size;
    static constexpr bool CHECKS_COPIES = true;
    static constexpr bool CHECKS_ASSIGNMENT = IS_WRITTEN<I>;

    SampleBaseCharPtr() : SampleBaseCharPtr(static_cast<Size>(DEFAULT_SIZE)) {}
    explicit SampleBaseCharPtr(Size size) : _data(DDS_String_alloc(size)), _info() {}
    SampleBaseCharPtr(const char* text, const I& info) : _data(nullptr), _info(info) {
        char* copy = nullptr;
        DDS_String_replace(&copy, text);
        _data = copy;
    }
    SampleBaseCharPtr(const SampleBaseCharPtr& other) : SampleBaseCharPtr(other._data, other._info) {}
    SampleBaseCharPtr& operator=(const SampleBaseCharPtr& other) = delete;
    ~SampleBaseCharPtr() {
        DDS_String_free(const_cast<char*>(_data));
        _data = nullptr;
    }

    bool is_bad() const noexcept { return _data == nullptr; }
    void swap_data(SampleBaseCharPtr& other) noexcept { std::swap(_data, other._data); }
    void assign(const char* text, const I& info) { SampleBaseCharPtr(text, info).swap(*this); }

    CharPtr _data;
    I _info;
};

template <class T, class I>
class SampleBase;

/// A std::string. Never bad: what finds no memory throws.
template <class I>
class SampleBase<std::string, I> {
public:
    typedef const std::string& Value;
    typedef I Info;

    std::string& data() & noexcept { return _str; }
    const std::string& data() const& noexcept { return _str; }
    /// Of a temporary object: the text itself, moved out.
    std::string data() && { return std::move(_str); }
    operator std::string&() noexcept { return _str; }
    operator const std::string&() const noexcept { return _str; }

    /// Exchanges text and metadata. The text is not copied.
    void swap(SampleBase& other) noexcept {
        if (this == &other) {
            return;
        }
        std::swap(_initialized, other._initialized);
        swap_data(other);
        std::swap(_data, other._data);
        std::swap(_info, other._info);
        std::swap(_info_ptr, other._info_ptr);
    }

protected:
    typedef const char* DataInitType;
    typedef const NoSize& Size;
    static constexpr bool CHECKS_COPIES = true;
    static constexpr bool CHECKS_ASSIGNMENT = true;

    SampleBase() : SampleBase(std::string(), Info()) {}
    explicit SampleBase(Size) : SampleBase() {}
    SampleBase(const std::string& text, const Info& info)
        : _initialized(true), _str(text), _data(nullptr), _info(info), _info_ptr(nullptr) {}
    /// Only borrows, until `initialize()`. @param text  null for an empty one.
    explicit SampleBase(DataInitType text) : _initialized(false), _str(), _data(text), _info(), _info_ptr(nullptr) {}
    /// Only borrows, until `initialize()`.
    SampleBase(DataInitType text, const Info& info) : _initialized(false), _str(), _data(text), _info(), _info_ptr(&info) {}

    /// Makes what was borrowed its own.
    void initialize() {
        if (!_initialized) {
            assign(_data, _info_ptr != nullptr ? *_info_ptr : _info);
        }
    }
    void assign(DataInitType text, const Info& info) { assign(std::string(text != nullptr ? text : ""), info); }
    void assign(const std::string& text, const Info& info) { SampleBase(text, info).swap(*this); }

    bool is_bad() const noexcept { return false; }
    void swap_data(SampleBase& other) noexcept { _str.swap(other._str); }

    bool _initialized;  // whether text and metadata are its own
    std::string _str;
    const char* _data;  // borrowed; null once initialized
    Info _info;
    const Info* _info_ptr;  // borrowed; null once initialized, and for default metadata
};

/// The class that keeps data of a type.
template <class T, class I>
struct HeldBy {
    typedef SampleFields<T, I> type;
};
template <class I>
struct HeldBy<DDS_KeyedString, I> {
    typedef SampleBaseBuiltin<DDS_KeyedString, I> type;
};
template <class I>
struct HeldBy<DDS_KeyedOctets, I> {
    typedef SampleBaseBuiltin<DDS_KeyedOctets, I> type;
};
template <class I>
struct HeldBy<DDS_Octets, I> {
    typedef OctetsFields<I> type;
};
template <class I>
struct HeldBy<char*, I> {
    typedef SampleBaseCharPtr<I, false> type;
};
template <class I>
struct HeldBy<const char*, I> {
    typedef SampleBaseCharPtr<I, true> type;
};
template <class I>
struct HeldBy<std::string, I> {
    typedef SampleBase<std::string, I> type;
};

}  // namespace details
}  // namespace norvane

#endif
