// SPDX-License-Identifier: Apache-2.0
// The container of loaned strings: whatever way a loan goes, its reader gets it back once, and as it was lent.
#include "norvane/LoanedSamples.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "support/AllocationProbe.hpp"
#include "support/CountingStringReader.hpp"
#include "support/LogCapture.hpp"
#include "support/Thrown.hpp"

namespace norvane {
namespace test {
namespace {

typedef LoanedSamples<std::string> Loan;

class LoanedStrings : public ::testing::Test {
protected:
    LoanedStrings() {
        for (DDS_UnsignedLong number = 0; number < 3; ++number) {
            _elements[number] = &_texts[number];
            _infos[number].original_publication_virtual_sequence_number = {0, number};
        }
    }

    /// Lends all three texts, as an untyped read would.
    Loan lend(DDSStringDataReader* reader) {
        _info_seq.loan_contiguous(_infos, 3, 3);
        return details::create_loaned_samples<std::string>(_elements, 3, _info_seq, reader);
    }
    static bool is_fresh(const DDS_StringSeq& data, const DDS_SampleInfoSeq& infos) {
        return data.has_ownership() && data.maximum() == 0 && infos.has_ownership() && infos.maximum() == 0;
    }
    static bool is_fresh(const Loan& loan) { return loan.empty() && is_fresh(loan.data_seq(), loan.info_seq()); }
    /// @return whether the reader got this loan, as it was lent, and nothing else since the last time.
    bool came_back(CountingStringReader& reader) {
        const std::vector<CountingStringReader::Return> returns = reader.returns();
        reader.forget();
        return returns.size() == 1 && returns[0].data == static_cast<const void*>(_elements) && returns[0].infos == _infos &&
               returns[0].length == 3 && returns[0].code == DDS_RETCODE_OK;
    }

    const LogCapture _quiet{0, 0};
    CountingStringReader _reader;
    CountingStringReader _other;
    char _text[4] = "one";
    char _more[4] = "two";
    char* _texts[3] = {_text, _more, nullptr};
    void* _elements[3];
    DDS_SampleInfo _infos[3];
    DDS_SampleInfoSeq _info_seq{0};
};

TEST_F(LoanedStrings, go_back_exactly_once_whatever_way_they_went) {
    struct Way {
        const char* name;
        std::function<void(Loan)> go;
    };
    const Way ways[] = {
        {"destroyed", [](Loan) {}},
        {"returned twice, then destroyed",
         [this](Loan loan) {
             loan.return_loan();
             EXPECT_TRUE(is_fresh(loan));
             loan.return_loan();
         }},
        {"handed over",
         [this](Loan loan) {
             Loan taken{Loan::LoanMemento(loan)};
             EXPECT_TRUE(is_fresh(loan));
             { const Loan gone(std::move(loan)); }
             EXPECT_EQ(0U, _reader.returns().size());
             Loan again;
             again = Loan::LoanMemento(taken);
             EXPECT_TRUE(is_fresh(taken));
             EXPECT_STREQ("two", again[1].c_str());
         }},
        {"moved, assigned to itself, swapped, and kept in a vector that grows",
         [this](Loan loan) {
             Loan moved(std::move(loan));
             EXPECT_TRUE(is_fresh(loan));  // NOLINT(bugprone-use-after-move): that it is empty then is a promise
             Loan& same = moved;
             moved = std::move(same);
             loan.swap(moved);
             EXPECT_TRUE(is_fresh(moved));
             std::vector<Loan> loans;
             loans.push_back(std::move(loan));
             loans.resize(100);
             EXPECT_STREQ("two", loans[0][1].c_str());
         }},
        {"assigned over by another",
         [](Loan loan) {
             Loan nothing;
             loan = std::move(nothing);
         }},
        {"released, and put into a container again",
         [this](Loan loan) {
             DDSStringDataReader* reader = nullptr;
             DDS_StringSeq data(0);
             DDS_SampleInfoSeq infos(0);
             loan.release(reader, data, infos);
             EXPECT_TRUE(is_fresh(loan));
             EXPECT_EQ(&_reader, reader);
             DDSStringDataReader* none = &_other;
             DDS_StringSeq no_data(0);
             DDS_SampleInfoSeq no_infos(0);
             EXPECT_EQ("PreconditionNotMetException", thrown_by([&] { loan.release(none, data, no_infos); }).type);
             EXPECT_EQ("PreconditionNotMetException", thrown_by([&] { loan.release(none, no_data, infos); }).type);
             EXPECT_EQ(&_other, none);
             loan.release(none, no_data, no_infos);
             EXPECT_EQ(nullptr, none);
             Loan::move_construct_from_loans(reader, data, infos);
             EXPECT_TRUE(is_fresh(data, infos));
         }},
    };
    for (const Way& way : ways) {
        way.go(lend(&_reader));
        EXPECT_TRUE(came_back(_reader)) << way.name;
        EXPECT_TRUE(_info_seq.has_ownership() && _info_seq.maximum() == 0) << way.name;
    }

    // Assigned over: what was held goes back, and what comes does not.
    Loan held = lend(&_reader);
    Loan coming = lend(&_other);
    held = std::move(coming);
    EXPECT_TRUE(came_back(_reader));
    coming = lend(&_reader);
    held = Loan::LoanMemento(coming);
    EXPECT_TRUE(came_back(_other));
    EXPECT_EQ(0U, _reader.returns().size());
    held.set_datareader(&_other);
    held.return_loan();
    EXPECT_TRUE(came_back(_other)) << "a loan goes back to the reader that was set last";

    // One that is never taken over stays out.
    {
        Loan lost = lend(&_other);
        const Loan::LoanMemento memento = lost;
        (void)memento;
    }
    EXPECT_EQ(0U, _other.returns().size());
}

TEST_F(LoanedStrings, without_a_reader_are_refused_and_stay_with_the_caller) {
    const std::string message = "LoanedSamples::move_construct_from_loans:" + expanded(DDS_LOG_BAD_PARAMETER_s, "reader");
    Thrown thrown = thrown_by([&] { lend(nullptr); });
    EXPECT_EQ("BadParameterException", thrown.type);
    EXPECT_EQ(message, thrown.message);
    EXPECT_EQ(_infos, _info_seq.get_contiguous_buffer());
    EXPECT_EQ(3, _info_seq.length());

    DDS_StringSeq data(0);
    ASSERT_TRUE(data.loan_discontiguous(reinterpret_cast<char***>(_elements), 2, 3));
    thrown = thrown_by([&] { Loan::move_construct_from_loans(nullptr, data, _info_seq); });
    EXPECT_EQ("BadParameterException", thrown.type);
    EXPECT_EQ(message, thrown.message);
    EXPECT_EQ(2, data.length());
    EXPECT_FALSE(data.has_ownership() || _info_seq.has_ownership());
}

TEST_F(LoanedStrings, that_are_no_loan_never_reach_the_reader_and_are_left_alone) {
    for (int loaned = 0; loaned < 3; ++loaned) {
        Loan loan;
        loan.set_datareader(&_reader);
        if (loaned == 1) {
            ASSERT_TRUE(loan.data_seq().loan_discontiguous(reinterpret_cast<char***>(_elements), 3, 3));
        } else if (loaned == 2) {
            ASSERT_TRUE(loan.info_seq().loan_contiguous(_infos, 3, 3));
        }
        loan.return_loan();
        EXPECT_EQ(loaned == 1 ? 3 : 0, loan.length());
        EXPECT_EQ(loaned == 2 ? 3 : 0, loan.info_seq().length());
        DDSStringDataReader* reader = nullptr;
        DDS_StringSeq data(0);
        DDS_SampleInfoSeq infos(0);
        loan.release(reader, data, infos);
        EXPECT_EQ(&_reader, reader);
    }
    EXPECT_EQ(0U, _reader.returns().size());
}

TEST_F(LoanedStrings, that_the_reader_refuses_are_let_go_and_not_offered_again) {
    _reader.refuse(DDS_RETCODE_ERROR);
    Loan loan = lend(&_reader);
    loan.return_loan();
    EXPECT_TRUE(is_fresh(loan));
    _reader.refuse(DDS_RETCODE_OK);
    loan.return_loan();
    ASSERT_EQ(1U, _reader.returns().size());
    EXPECT_EQ(DDS_RETCODE_ERROR, _reader.returns()[0].code);
}

TEST_F(LoanedStrings, are_a_range_of_references_into_the_loan) {
    Loan loan = lend(&_reader);
    const Loan& constant = loan;
    EXPECT_EQ(3, loan.length());
    EXPECT_EQ(_text, loan[0].data());
    EXPECT_EQ(_more, constant[1].data());
    EXPECT_EQ(&_infos[1], &constant[1].info());
    EXPECT_EQ(2U, loan[2].identity().sequence_number.low);
    EXPECT_TRUE(loan[2].is_nil_data());
    EXPECT_STREQ("", loan[2].c_str());
    EXPECT_EQ("PreconditionNotMetException", thrown_by([&] { loan[3]; }).type);
    EXPECT_EQ("PreconditionNotMetException", thrown_by([&] { constant[3]; }).type);

    std::vector<std::string> seen(loan.begin(), loan.end());
    EXPECT_EQ((std::vector<std::string>{"one", "two", ""}), seen);
    std::string all;
    for (const auto& sample : constant) {
        all += sample.c_str();
    }
    EXPECT_EQ("onetwo", all);
    const auto two = std::find_if(constant.begin(), constant.end(), [](const auto& sample) { return sample.c_str()[0] == 't'; });
    EXPECT_EQ(1, two - loan.begin());
    EXPECT_EQ(&_infos[1], &two->info());

    EXPECT_TRUE((std::is_same<SampleRef<const char*>, Loan::value_type>::value));
    EXPECT_TRUE((std::is_same<SampleRef<const char*>, Loan::const_value_type>::value));
    EXPECT_TRUE((std::is_same<SampleIterator<std::string, false>, Loan::iterator>::value));
    EXPECT_TRUE((std::is_same<DDS_SampleInfoSeq, dds_type_traits<DDS_SampleInfo>::Seq>::value));
    EXPECT_FALSE(std::is_copy_constructible<Loan>::value || std::is_copy_assignable<Loan>::value);
    EXPECT_TRUE(std::is_nothrow_move_constructible<Loan>::value && std::is_nothrow_move_assignable<Loan>::value);
}

TEST_F(LoanedStrings, want_no_memory_on_their_way) {
    EXPECT_EQ(0, fail_each_allocation([this] {
                  Loan loan = lend(&_reader);
                  Loan other{Loan::LoanMemento(loan)};
                  loan = std::move(other);
                  other.swap(loan);
                  other.set_datareader(nullptr);  // the double takes memory to note a return
              }));
}

}  // namespace
}  // namespace test
}  // namespace norvane
