// SPDX-License-Identifier: Apache-2.0
// Goes over the samples of a loan, in any order.
#ifndef NORVANE_SAMPLEITERATOR_HPP
#define NORVANE_SAMPLEITERATOR_HPP

#include <cstddef>
#include <iterator>
#include <type_traits>

#include "norvane/dds_type_traits.hpp"

namespace norvane {

/// Random-access iterator over a LoanedSamples. Dereferencing makes a SampleRef, by value.
///
/// Valid until its container is moved, assigned to, swapped or destroyed, or returns its loan.
/// @tparam IsConst  whether it came from a const container.
template <class T, bool IsConst>
class SampleIterator {
    typedef dds_type_traits<T> Traits;
    typedef typename Traits::Seq Seq;

public:
    typedef std::random_access_iterator_tag iterator_category;
    typedef typename std::conditional<IsConst, typename Traits::ConstSampleIteratorValueType,
                                      typename Traits::SampleIteratorValueType>::type value_type;
    typedef std::ptrdiff_t difference_type;
    typedef value_type reference;

    /// Keeps the reference alive that `operator->` goes through.
    class pointer {
    public:
        explicit pointer(const value_type& ref) noexcept : _ref(ref) {}
        const value_type* operator->() const noexcept { return &_ref; }

    private:
        value_type _ref;
    };

    /// Belongs to no container; may only be assigned to, or compared with its like.
    SampleIterator() noexcept : _seq(nullptr), _infoseq(nullptr), _index(0) {}
    SampleIterator(const Seq& seq, const DDS_SampleInfoSeq& infoseq, difference_type index) noexcept
        : _seq(&seq), _infoseq(&infoseq), _index(index) {}
    template <bool OtherIsConst, typename std::enable_if<IsConst && !OtherIsConst, int>::type = 0>
    SampleIterator(const SampleIterator<T, OtherIsConst>& other) noexcept
        : _seq(other._seq), _infoseq(other._infoseq), _index(other._index) {}

    value_type operator*() const noexcept { return (*this)[0]; }
    pointer operator->() const noexcept { return pointer(**this); }
    value_type operator[](difference_type offset) const noexcept {
        const DDS_Long index = static_cast<DDS_Long>(_index + offset);
        return value_type((*_seq)[index], (*_infoseq)[index]);
    }

    SampleIterator& operator+=(difference_type offset) noexcept {
        _index += offset;
        return *this;
    }
    SampleIterator& operator-=(difference_type offset) noexcept { return *this += -offset; }
    SampleIterator& operator++() noexcept { return *this += 1; }
    SampleIterator& operator--() noexcept { return *this += -1; }
    SampleIterator operator++(int) noexcept {
        const SampleIterator before = *this;
        ++*this;
        return before;
    }
    SampleIterator operator--(int) noexcept {
        const SampleIterator before = *this;
        --*this;
        return before;
    }

    friend SampleIterator operator+(SampleIterator it, difference_type offset) noexcept { return it += offset; }
    friend SampleIterator operator+(difference_type offset, SampleIterator it) noexcept { return it += offset; }
    friend SampleIterator operator-(SampleIterator it, difference_type offset) noexcept { return it -= offset; }
    friend difference_type operator-(const SampleIterator& left, const SampleIterator& right) noexcept {
        return left._index - right._index;
    }
    friend bool operator==(const SampleIterator& left, const SampleIterator& right) noexcept { return left._index == right._index; }
    friend bool operator!=(const SampleIterator& left, const SampleIterator& right) noexcept { return left._index != right._index; }
    friend bool operator<(const SampleIterator& left, const SampleIterator& right) noexcept { return left._index < right._index; }
    friend bool operator>(const SampleIterator& left, const SampleIterator& right) noexcept { return left._index > right._index; }
    friend bool operator<=(const SampleIterator& left, const SampleIterator& right) noexcept { return left._index <= right._index; }
    friend bool operator>=(const SampleIterator& left, const SampleIterator& right) noexcept { return left._index >= right._index; }

private:
    template <class, bool>
    friend class SampleIterator;

    const Seq* _seq;
    const DDS_SampleInfoSeq* _infoseq;
    difference_type _index;
};

}  // namespace norvane

#endif
