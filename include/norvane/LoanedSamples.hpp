// SPDX-License-Identifier: Apache-2.0
// Samples on loan from a reader. The loan is returned exactly once.
//
// A container holds a loan only while it has a reader and both its sequences are loans. The sequences change hands as raw bytes
// and are never copied element by element: an element-wise copy would own memory of the reader.
// Thread rule: one thread at a time. The loan may be returned from another thread than the one that took it.
#ifndef NORVANE_LOANEDSAMPLES_HPP
#define NORVANE_LOANEDSAMPLES_HPP

#include <cstddef>
#include <cstring>
#include <new>
#include <string>

#include "norvane/Exception.hpp"
#include "norvane/Sample.hpp"
#include "norvane/SampleIterator.hpp"
#include "norvane/dds_type_traits.hpp"
#include "norvane/details/precondition.hpp"
#include "norvane/export.hpp"

namespace norvane {

namespace details {

inline DDS_ReturnCode_t give_back(DDSStringDataReader& reader, DDS_StringSeq& data, DDS_SampleInfoSeq& infos) {
    return reader.return_loan(data, infos);
}

template <class T>
DDS_ReturnCode_t give_back(DDSDataReader& reader, Sequence<T>& data, DDS_SampleInfoSeq& infos) {
    return DDS_DataReader_return_loan_untypedI(reader.get_c_datareader(), reinterpret_cast<void**>(data.get_discontiguous_buffer()),
                                               infos);
}

}  // namespace details

/// Samples lent by a reader. They may be looked at until the container is destroyed, moved from, or returns its loan.
///
/// A loan may outlive the requester or replier that took it, and its participant's entities. While it is out, its samples take room
/// in the reader. Can be moved, not copied.
/// @par Threads  Distinct objects: any. Same object: one at a time.
template <class T>
class LoanedSamples {
    typedef dds_type_traits<T> Traits;

    // The raw state of a sequence. A fresh one holds that of an empty owning sequence, which has no heap memory, so that its bytes
    // may be doubled and overwritten freely.
    template <class U>
    class SequenceMemento {
    public:
        typedef typename dds_type_traits<U>::Seq Seq;

        SequenceMemento() noexcept {
            const Seq empty(0);
            pull_state(empty);
        }
        void pull_state(const Seq& seq) noexcept { std::memcpy(buffer, static_cast<const void*>(&seq), sizeof seq); }
        // Launder: gcc otherwise takes the sequence for its first member, and warns, when a program is optimised at link time.
        void push_state(Seq& seq) const noexcept {
            std::memcpy(std::launder(reinterpret_cast<unsigned char*>(&seq)), buffer, sizeof seq);
        }

    private:
        unsigned char buffer[sizeof(Seq)];
    };

public:
    typedef typename Traits::Seq TSeq;
    typedef typename Traits::DataReader TDataReader;
    typedef DDS_SampleInfoSeq SampleInfoSeq;
    typedef typename Traits::SampleIteratorValueType value_type;
    typedef typename Traits::ConstSampleIteratorValueType const_value_type;
    typedef SampleIterator<T, false> iterator;
    typedef SampleIterator<T, true> const_iterator;

    /// The whole state of a container, to be moved to another one. The loan of a memento that no container takes over is never
    /// returned.
    struct LoanMemento {
        /// Carries nothing yet; the reader is to be set.
        explicit LoanMemento() noexcept {}

        SequenceMemento<T> _seq_memento;
        SequenceMemento<DDS_SampleInfo> _infoseq_memento;
        TDataReader* _datareader;
    };

    /// Holds nothing.
    LoanedSamples() noexcept : _seq(0), _infoseq(0), _datareader(nullptr) {}
    /// Takes over what a memento carries.
    LoanedSamples(LoanMemento memento) noexcept : _seq(0), _infoseq(0), _datareader(memento._datareader) {
        memento._seq_memento.push_state(_seq);
        memento._infoseq_memento.push_state(_infoseq);
    }
    LoanedSamples(LoanedSamples&& other) noexcept : LoanedSamples() { swap(other); }
    LoanedSamples(const LoanedSamples&) = delete;
    /// Returns the loan that was held, then takes over the other one.
    LoanedSamples& operator=(LoanMemento memento) noexcept {
        LoanedSamples(memento).swap(*this);
        return *this;
    }
    LoanedSamples& operator=(LoanedSamples&& other) noexcept {
        LoanedSamples(static_cast<LoanedSamples&&>(other)).swap(*this);
        return *this;
    }
    LoanedSamples& operator=(const LoanedSamples&) = delete;
    /// Returns the loan.
    ~LoanedSamples() { return_loan(); }

    /// Takes over the loan that two sequences hold. Both come back empty and owning.
    /// @param reader  the reader that lent it; not null; borrowed: it lives until its last loan is back.
    /// @throws BadParameterException  `reader` is null; the sequences still hold the loan then.
    static LoanedSamples move_construct_from_loans(TDataReader* reader, TSeq& data_seq, SampleInfoSeq& info_seq) {
        if (reader == nullptr) {
            check_retcode(DDS_RETCODE_BAD_PARAMETER, "LoanedSamples::move_construct_from_loans", DDS_LOG_BAD_PARAMETER_s, "reader",
                          false);
        }
        return LoanedSamples(reader, data_seq, info_seq);
    }

    /// Takes over what an untyped read has lent, in place.
    /// @param data, count  as the read gave them. @param info_seq  the loan of the infos; empty and owning afterwards.
    /// @param reader       the reader that lent them; not null; borrowed: it lives until its last loan is back.
    /// @throws BadParameterException  `reader` is null; nothing has changed then.
    static LoanedSamples from_untyped_loan(TDataReader* reader, void** data, int count, SampleInfoSeq& info_seq) {
        if (reader == nullptr) {
            check_retcode(DDS_RETCODE_BAD_PARAMETER, "LoanedSamples::move_construct_from_loans", DDS_LOG_BAD_PARAMETER_s, "reader",
                          false);
        }
        return LoanedSamples(reader, data, count, info_seq);
    }

    /// Moves the state out; the container holds nothing afterwards.
    operator LoanMemento() noexcept {
        LoanMemento memento;
        memento._seq_memento.pull_state(_seq);
        memento._infoseq_memento.pull_state(_infoseq);
        memento._datareader = _datareader;
        set_default();
        return memento;
    }

    /// Returns the loan, if one is held; the container holds nothing afterwards. A refusal by the reader is not reported: there is
    /// nothing that the caller could do.
    /// @par Blocks  Never.
    void return_loan() {
        if (_datareader == nullptr || !is_loaning(_seq) || !is_loaning(_infoseq)) {
            return;
        }
        (void)details::give_back(*_datareader, _seq, _infoseq);
        _seq.unloan();
        _infoseq.unloan();
        _datareader = nullptr;
    }

    /// Hands the loan to the caller, who must then return it to the reader. The container holds nothing afterwards.
    /// @param datareader          gets the reader; null when the container had none.
    /// @param data_seq, info_seq  get the loan. Owning, without memory (maximum 0).
    /// @throws PreconditionNotMetException  a sequence holds memory or a loan; nothing changes then.
    void release(TDataReader*& datareader, TSeq& data_seq, SampleInfoSeq& info_seq) {
        NORVANE_CHECK_PRECONDITION(is_default_init(data_seq), "release");
        NORVANE_CHECK_PRECONDITION(is_default_init(info_seq), "release");
        swap_sequence<T>(_seq, data_seq);
        swap_sequence<DDS_SampleInfo>(_infoseq, info_seq);
        datareader = _datareader;
        _datareader = nullptr;
    }

    void swap(LoanedSamples& other) noexcept {
        swap_sequence<T>(_seq, other._seq);
        swap_sequence<DDS_SampleInfo>(_infoseq, other._infoseq);
        TDataReader* const reader = _datareader;
        _datareader = other._datareader;
        other._datareader = reader;
    }

    /// @return the number of samples.
    int length() const noexcept { return _seq.length(); }
    std::size_t size() const noexcept { return static_cast<std::size_t>(_seq.length()); }
    bool empty() const noexcept { return _seq.length() == 0; }

    /// @return a reference to the sample, valid as long as the loan.
    /// @throws PreconditionNotMetException  there is no such sample.
    value_type operator[](std::size_t index) & {
        NORVANE_CHECK_PRECONDITION(index < size(), "operator[]");
        return begin()[static_cast<std::ptrdiff_t>(index)];
    }
    const_value_type operator[](std::size_t index) const& {
        NORVANE_CHECK_PRECONDITION(index < size(), "operator[]");
        return begin()[static_cast<std::ptrdiff_t>(index)];
    }
    /// Of a container that is a temporary: its loan is returned at the end of the expression, so this is a copy.
    /// @throws PreconditionNotMetException  there is no such sample. @throws what the copy throws.
    Sample<T> operator[](std::size_t index) const&& { return Sample<T>((*this)[index]); }

    // A loop over a temporary, `for (const auto& reply : requester.take_replies(id))`, keeps it alive, and is correct.
    iterator begin() & noexcept { return iterator(_seq, _infoseq, 0); }
    iterator end() & noexcept { return iterator(_seq, _infoseq, length()); }
    const_iterator begin() const& noexcept { return const_iterator(_seq, _infoseq, 0); }
    const_iterator end() const& noexcept { return const_iterator(_seq, _infoseq, length()); }
    const_iterator begin() const&& = delete;  // keep the LoanedSamples in a variable
    const_iterator end() const&& = delete;    // keep the LoanedSamples in a variable

    /// The sequences of the loan. Their elements are shared with other readers and must not be changed.
    TSeq& data_seq() & noexcept { return _seq; }
    const TSeq& data_seq() const& noexcept { return _seq; }
    const TSeq& data_seq() const&& = delete;  // keep the LoanedSamples in a variable
    SampleInfoSeq& info_seq() & noexcept { return _infoseq; }
    const SampleInfoSeq& info_seq() const& noexcept { return _infoseq; }
    const SampleInfoSeq& info_seq() const&& = delete;  // keep the LoanedSamples in a variable

    /// Says which reader the loan goes back to.
    /// @param reader  borrowed; null: the loan will not be returned.
    void set_datareader(TDataReader* reader) noexcept { _datareader = reader; }

private:
    LoanedSamples(TDataReader* reader, TSeq& data_seq, SampleInfoSeq& info_seq) noexcept
        : _seq(0), _infoseq(0), _datareader(reader) {
        swap_sequence<T>(_seq, data_seq);
        swap_sequence<DDS_SampleInfo>(_infoseq, info_seq);
    }

    LoanedSamples(TDataReader* reader, void** data, int count, SampleInfoSeq& info_seq) noexcept
        : _seq(0), _infoseq(0), _datareader(reader) {
        _seq.loan_discontiguous(reinterpret_cast<typename TSeq::value_type**>(data), count, count);
        _infoseq.loan_contiguous(info_seq.get_contiguous_buffer(), info_seq.length(), info_seq.maximum());
        info_seq.unloan();
    }

    // Overwrites the sequences without destroying them: only right when they no longer own their memory.
    void set_default() noexcept {
        const LoanMemento fresh;
        fresh._seq_memento.push_state(_seq);
        fresh._infoseq_memento.push_state(_infoseq);
        _datareader = nullptr;
    }

    template <class Seq>
    static bool is_loaning(const Seq& seq) noexcept {
        return !seq.has_ownership();
    }

    // Whether its bytes may be overwritten: an empty sequence that owns its buffer, which is none.
    template <class Seq>
    static bool is_default_init(const Seq& seq) noexcept {
        return seq.has_ownership() && seq.maximum() == 0;
    }

    template <class U>
    static void swap_sequence(typename dds_type_traits<U>::Seq& seq1, typename dds_type_traits<U>::Seq& seq2) noexcept {
        SequenceMemento<U> seq1_memento;
        SequenceMemento<U> seq2_memento;
        seq1_memento.pull_state(seq1);
        seq2_memento.pull_state(seq2);
        seq1_memento.push_state(seq2);
        seq2_memento.push_state(seq1);
    }

    TSeq _seq;
    DDS_SampleInfoSeq _infoseq;
    TDataReader* _datareader;  // borrowed; null when there is nothing to return
};

namespace details {

/// Puts the outputs of an untyped loan into a container.
/// @param dataPtrArray, dataCount, info_seq  as the read gave them; `info_seq` is empty and owning afterwards.
/// @param datareader                         the reader that lent them; not null.
/// @throws BadParameterException  `datareader` is null; the caller still holds the loan then.
template <class T>
typename dds_type_traits<T>::LoanedSamplesType create_loaned_samples(void** dataPtrArray, int dataCount,
                                                                     DDS_SampleInfoSeq& info_seq,
                                                                     typename dds_type_traits<T>::DataReader* datareader) {
    return LoanedSamples<T>::from_untyped_loan(datareader, dataPtrArray, dataCount, info_seq);
}

/// Runs one untyped loaned read.
/// @param read  called with (void*** received_data, int* data_count, DDS_SampleInfoSeq& info_seq); lends nothing when the count
///              stays 0.
template <class T, class Read>
LoanedSamples<T> read_loaned_samples(typename dds_type_traits<T>::DataReader* datareader, Read&& read) {
    void** received_data = nullptr;
    int data_count = 0;
    DDS_SampleInfoSeq info_seq(0);
    read(&received_data, &data_count, info_seq);
    if (data_count == 0) {
        return LoanedSamples<T>();
    }
    return create_loaned_samples<T>(received_data, data_count, info_seq, datareader);
}

/// @return the reader as the type's own; never null.
/// @throws PreconditionNotMetException  it is not one.
template <class T>
typename dds_type_traits<T>::DataReader* typed_datareader(DDSDataReader* reader) {
    if constexpr (IS_STRING<T>) {
        DDSStringDataReader* string_reader = DDSStringDataReader::narrow(reader);
        NORVANE_CHECK_PRECONDITION(string_reader != NULL, "typed_datareader");
        return string_reader;
    } else {
        return reader;
    }
}

// Strings are in the library.
extern template NORVANE_EXPORT LoanedSamples<std::string> create_loaned_samples<std::string>(void**, int, DDS_SampleInfoSeq&,
                                                                                             DDSStringDataReader*);

}  // namespace details

extern template class NORVANE_EXPORT LoanedSamples<std::string>;

}  // namespace norvane

#endif
