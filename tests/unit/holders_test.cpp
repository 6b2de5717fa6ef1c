// SPDX-License-Identifier: Apache-2.0
// Holders of samples and references to them: what is copied, what is refused, and what is left when memory runs out.
#include "norvane/Sample.hpp"

#include <gtest/gtest.h>

#include <cstdio>
#include <functional>
#include <string>
#include <type_traits>
#include <typeinfo>

#include "norvane/WriteSample.hpp"
#include "support/AllocationProbe.hpp"
#include "support/LogCapture.hpp"
#include "support/Thrown.hpp"

namespace norvane::test {
namespace {

// ---- one way to fill, show and mark, for every type -------------------------------------------------------------

void fill(DDS_KeyedString& data, const char* key, const char* value) {
    DDS_String_replace(&data.key, key);
    DDS_String_replace(&data.value, value);
}
void fill_octets(unsigned char*& octets, int& length, const char* value) {
    DDS_OctetBuffer_free(octets);
    length = value != NULL ? static_cast<int>(std::string(value).size()) : 7;
    octets = value != NULL ? DDS_OctetBuffer_dup(reinterpret_cast<const unsigned char*>(value), length) : NULL;
}
void fill(DDS_KeyedOctets& data, const char* key, const char* value) {
    DDS_String_replace(&data.key, key);
    fill_octets(data.value, data.length, value);
}
void fill(DDS_Octets& data, const char*, const char* value) { fill_octets(data.value, data.length, value); }
void fill(char*& data, const char*, const char* value) { DDS_String_replace(&data, value); }
void fill(const char*& data, const char*, const char* value) {
    char* copy = const_cast<char*>(data);
    data = DDS_String_replace(&copy, value);
}
void fill(std::string& data, const char*, const char* value) { data = value != NULL ? value : ""; }

std::string shown(const char* text) { return text != NULL ? text : "null"; }
std::string shown(const unsigned char* octets, int length) {
    return std::to_string(length) + ":" +
           (octets != NULL ? std::string(reinterpret_cast<const char*>(octets), static_cast<std::size_t>(length)) : "null");
}
std::string shown(const std::string& text) { return text; }
std::string shown(const DDS_KeyedString& data) { return shown(data.key) + "=" + shown(data.value); }
std::string shown(const DDS_KeyedOctets& data) { return shown(data.key) + "=" + shown(data.value, data.length); }
std::string shown(const DDS_Octets& data) { return shown(data.value, data.length); }

const void* memory_of(const char* text) { return text; }
const void* memory_of(char* text) { return text; }
const void* memory_of(const std::string& text) { return text.data(); }
template <class Record>
const void* memory_of(const Record& record) {
    return record.value;
}

void mark(DDS_SampleInfo& info, DDS_UnsignedLong number) {
    info.original_publication_virtual_sequence_number = {0, number};
    info.related_original_publication_virtual_sequence_number = {1, number};
}
void mark(DDS_WriteParams_t& params, DDS_UnsignedLong number) {
    params.identity.sequence_number = {0, number};
    const DDS_Octet cookie[3] = {static_cast<DDS_Octet>(number), 2, 3};
    ASSERT_TRUE(params.cookie.value.from_array(cookie, 3));
}
// The cookie is the one thing that may be left behind when memory runs out.
std::string cookie_of(const DDS_SampleInfo&) { return ""; }
std::string cookie_of(const DDS_WriteParams_t& params) {
    const DDS_OctetSeq& cookie = params.cookie.value;
    return cookie.length() == 3 ? "cookie " + std::to_string(cookie[0]) : "no cookie";
}

// Too long for a std::string to keep in itself.
const char* const NEW = "a new text, which wants memory of its own";
const char* const OLD = "an old text, which wants memory of its own";

/// Data to copy, with metadata.
template <class T, class Info>
struct Source {
    Source(const char* key, const char* value, DDS_UnsignedLong number) : data() {
        fill(data, key, value);
        mark(info, number);
    }
    ~Source() {
        if constexpr (std::is_pointer<T>::value) {
            fill(data, NULL, NULL);
        }
    }
    Source(const Source&) = delete;
    Source& operator=(const Source&) = delete;

    T data;
    Info info;
};

// ---- what the table of holders says -----------------------------------------------------------------------------

struct Expected {
    std::string method_name;
    std::string message;
    bool construction_refuses;
    bool assignment_refuses;
};

template <class Holder>
Expected expected();

const char* const NO_KEYED_STRING = "DDS::KeyedString failed to allocate memory";
const char* const NO_KEYED_OCTETS = "DDS::KeyedOctets failed to allocate memory";
const char* const NO_OCTETS = "DDS::Octets failed to allocate memory";
const char* const NO_STRING = "DDS_String_alloc failed to allocate memory";

// clang-format off
template <> Expected expected<Sample<DDS_KeyedString>>() { return {"Sample<DDS::KeyedSting>::Sample", NO_KEYED_STRING, true, true}; }
template <> Expected expected<Sample<DDS_KeyedOctets>>() { return {"Sample<DDS::KeyedOctets>::Sample", NO_KEYED_OCTETS, true, true}; }
template <> Expected expected<Sample<DDS_Octets>>() { return {"Sample<DDS::Octets>::Sample", NO_OCTETS, false, false}; }
template <> Expected expected<Sample<char*>>() { return {"Sample<char *>::Sample", NO_STRING, true, false}; }
template <> Expected expected<Sample<const char*>>() { return {"Sample<const char *>::Sample", NO_STRING, true, false}; }
template <> Expected expected<Sample<std::string>>() { return {"", "", false, false}; }
template <> Expected expected<WriteSample<DDS_KeyedString>>() { return {"WriteSample<DDS::KeyedSting>::WriteSample", NO_KEYED_STRING, true, true}; }
template <> Expected expected<WriteSample<DDS_KeyedOctets>>() { return {"WriteSample<DDS::KeyedOctets>::WriteSample", NO_KEYED_OCTETS, true, true}; }
template <> Expected expected<WriteSample<DDS_Octets>>() { return {"WriteSample<DDS::Octets>::WriteSample", NO_OCTETS, true, true}; }
template <> Expected expected<WriteSample<char*>>() { return {"WriteSample<char *>::Sample", NO_STRING, true, true}; }
template <> Expected expected<WriteSample<const char*>>() { return {"WriteSample<const char *>::Sample", NO_STRING, true, true}; }
template <> Expected expected<WriteSample<std::string>>() { return {"", "", false, false}; }
// clang-format on

template <class Holder_>
class Holders;
template <template <class> class Kind, class T>
class Holders<Kind<T>> : public ::testing::Test {
protected:
    typedef Kind<T> Holder;
    typedef T Data;
    typedef typename std::conditional<std::is_same<Holder, Sample<T>>::value, SampleRef<T>, WriteSampleRef<T>>::type Ref;
    typedef test::Source<Data, typename Holder::Info> Source;

    static constexpr bool IS_KEYED = std::is_same<Data, DDS_KeyedString>::value || std::is_same<Data, DDS_KeyedOctets>::value;
    static constexpr bool IS_STRING = std::is_same<Data, std::string>::value;

    static Ref ref(Source& source) { return Ref(source.data, source.info); }
    static std::string text(const Holder& holder) { return shown(holder.data()); }
    template <class Data_, class Info>
    static std::string all(const Data_& data, const Info& info) {
        return shown(data) + " " + std::to_string(details::identity_of(info).sequence_number.low) + cookie_of(info);
    }
    static std::string all(const Holder& holder) { return all(holder.data(), holder.info()); }
    static std::string all(const Source& source) { return all(source.data, source.info); }
    static std::string message() {
        const Expected row = expected<Holder>();
        return row.method_name + ":" + expanded(DDS_LOG_BAD_PARAMETER_s, row.message);
    }
    template <class Call>
    static void expect_refusal(bool refuses, Call call) {
        const Thrown thrown = thrown_by(call);
        EXPECT_EQ(refuses ? "OutOfResourcesException" : "", thrown.type);
        EXPECT_EQ(refuses ? message() : "", thrown.message);
    }

    const LogCapture _quiet{0, 0};
    const Expected _expected = expected<Holder>();
};

typedef ::testing::Types<Sample<DDS_KeyedString>, Sample<DDS_KeyedOctets>, Sample<DDS_Octets>, Sample<char*>, Sample<const char*>,
                         Sample<std::string>, WriteSample<DDS_KeyedString>, WriteSample<DDS_KeyedOctets>, WriteSample<DDS_Octets>,
                         WriteSample<char*>, WriteSample<const char*>, WriteSample<std::string>>
    AllHolders;
TYPED_TEST_SUITE(Holders, AllHolders, );

TYPED_TEST(Holders, refuse_null_as_the_table_says_and_are_unchanged_then) {
    if constexpr (!TestFixture::IS_STRING) {
        typename TestFixture::Source old("o", OLD, 1);
        typename TestFixture::Source nulls[] = {{"k", NULL, 2}, {NULL, TestFixture::IS_KEYED ? NEW : NULL, 2}};
        for (typename TestFixture::Source& source : nulls) {
            SCOPED_TRACE(shown(source.data));
            this->expect_refusal(this->_expected.construction_refuses,
                                 [&] { EXPECT_EQ(this->all(source), this->all(TypeParam(this->ref(source)))); });
            this->expect_refusal(this->_expected.construction_refuses, [&] { const TypeParam holder(source.data); });
            TypeParam target = this->ref(old);
            this->expect_refusal(this->_expected.assignment_refuses, [&] { target = this->ref(source); });
            EXPECT_EQ(this->_expected.assignment_refuses ? this->all(old) : this->all(source), this->all(target));
            const TypeParam copy(target);  // one that holds null may be copied
            EXPECT_EQ(this->all(target), this->all(copy));

            TypeParam kept = this->ref(old);
            this->expect_refusal(this->_expected.construction_refuses, [&] { kept.set_data(source.data); });
            EXPECT_EQ((this->_expected.construction_refuses ? shown(old.data) : shown(source.data)), this->text(kept));
        }
    }
}

TYPED_TEST(Holders, keep_what_they_are_given_whatever_becomes_of_its_source) {
    typename TestFixture::Source source("k", NEW, 1);
    typename TestFixture::Source other("o", OLD, 2);
    const auto without_data = [this](const TypeParam& of) { return this->all(of).substr(this->text(of).size()); };
    TypeParam holder(source.data);
    EXPECT_EQ(shown(source.data) + without_data(TypeParam()), this->all(holder));
    holder = TypeParam(source.data, source.info);
    const TypeParam copy(holder);
    const TypeParam of_reference = this->ref(source);
    TypeParam assigned = this->ref(other);
    assigned = this->ref(source);
    const std::string given = this->all(source);
    fill(source.data, "changed", "changed");
    mark(source.info, 9);
    for (const TypeParam* each : {static_cast<const TypeParam*>(&holder), &copy, &of_reference}) {
        EXPECT_EQ(given, this->all(*each));
    }
    holder = other.data;
    EXPECT_EQ(shown(other.data) + without_data(copy), this->all(holder));
    holder.set_info(other.info);
    assigned.swap(holder);
    EXPECT_EQ(this->all(other), this->all(assigned));
    EXPECT_EQ(given, this->all(holder));
    holder.set_data(other.data);
    EXPECT_EQ(shown(other.data), this->text(holder));

    if constexpr (std::is_pointer<typename TestFixture::Data>::value) {
        const TypeParam& constant = holder;
        EXPECT_EQ(holder.data(), static_cast<typename TestFixture::Data>(holder));
        EXPECT_EQ(holder.data(), static_cast<const char*>(constant));
        EXPECT_STREQ("", TypeParam().data());
        EXPECT_STREQ("", TypeParam(std::size_t{0}).data());
        this->expect_refusal(true, [] { TypeParam(static_cast<std::size_t>(-1)); });
    } else if constexpr (TestFixture::IS_STRING) {
        EXPECT_EQ("", this->text(TypeParam(static_cast<const char*>(NULL))));
        EXPECT_EQ(this->all(source), this->all(TypeParam(source.data.c_str(), source.info)));
        holder = "x";
        EXPECT_EQ("x", holder.data());
    } else if constexpr (TestFixture::IS_KEYED) {
        EXPECT_EQ(shown(typename TestFixture::Data(3, 5)), this->text(TypeParam(3, 5)));
        EXPECT_EQ(shown(typename TestFixture::Data(255, 255)), this->text(TypeParam()));
        this->expect_refusal(true, [] { TypeParam(3, -1); });
    } else {
        EXPECT_EQ(255, TypeParam().data().length);
        EXPECT_EQ(std::string("3:") + std::string(3, '\0'), this->text(TypeParam(3)));
        this->expect_refusal(true, [] { TypeParam(-1); });
    }
}

// Fails each allocation of each operation in turn. Data is 1 block of memory, 2 of a keyed type; parameters have a cookie in
// another.
TYPED_TEST(Holders, report_each_allocation_of_data_that_fails_and_leak_nothing) {
    typename TestFixture::Source source("k", NEW, 1);
    typename TestFixture::Source old("o", OLD, 2);
    const TypeParam original(source.data, source.info);
    const bool checked = this->_expected.construction_refuses || TestFixture::IS_STRING;
    const int blocks = TestFixture::IS_KEYED ? 2 : 1;
    struct Operation {
        const char* name;
        int reports;  // how many failures
        bool changes_target;
        std::function<void(TypeParam& target)> run;
    };
    const Operation operations[] = {
        {"construct from a reference", checked ? blocks : 0, false, [&](TypeParam&) { const TypeParam holder(this->ref(source)); }},
        {"construct from a value", checked ? blocks : 0, false, [&](TypeParam&) { const TypeParam holder(source.data); }},
        {"copy", checked ? blocks : 0, false, [&](TypeParam&) { const TypeParam holder(original); }},
        {"construct with default size", TestFixture::IS_STRING ? 0 : blocks, false, [&](TypeParam&) { const TypeParam holder; }},
        {"assign a reference", this->_expected.assignment_refuses || TestFixture::IS_STRING ? blocks : 0, true,
         [&](TypeParam& target) { target = this->ref(source); }},
        {"assign a holder", checked ? blocks : 0, true, [&](TypeParam& target) { target = original; }},
        {"set data", checked ? blocks : 0, true, [&](TypeParam& target) { target.set_data(source.data); }},
        {"set metadata", 0, false, [&](TypeParam& target) { target.set_info(source.info); }},
    };
    for (const Operation& operation : operations) {
        SCOPED_TRACE(operation.name);
        int throws = 0;
        for (long failing = 1; failing == 1 || AllocationProbe::has_failed(); ++failing) {
            TypeParam target(old.data, old.info);
            const std::type_info* type = nullptr;
            char message[200] = "";
            AllocationProbe::fail(failing);
            try {
                operation.run(target);
            } catch (const std::exception& exception) {
                type = &typeid(exception);
                std::snprintf(message, sizeof message, "%s", exception.what());
            }
            AllocationProbe::stop();
            const int lost = memory_of(target.data()) == NULL ? 1 : 0;  // by an unchecked assignment: it had one block more before
            EXPECT_EQ(-lost, AllocationProbe::outstanding()) << "allocation " << failing;
            if (type != nullptr) {
                ++throws;
                EXPECT_EQ(TestFixture::IS_STRING ? "bad_alloc" : "OutOfResourcesException", class_name(*type));
                EXPECT_TRUE(TestFixture::IS_STRING || this->message() == message) << message;
                EXPECT_EQ(this->all(old), this->all(target));
            } else {
                EXPECT_TRUE(lost != 0 || this->text(target) == shown(operation.changes_target ? source.data : old.data));
            }
        }
        EXPECT_EQ(operation.reports, throws);
    }
    TypeParam same(source.data, source.info);
    for (const auto& change : {+[](TypeParam& it) { it = *&it; }, +[](TypeParam& it) { it.swap(it); }}) {
        fail_each_allocation([&] { change(same); });
        EXPECT_EQ(this->all(source), this->all(same)) << "with itself";
    }
}

// The text alone would do as a std::string, without a word on what became of the metadata.
template <class Holder, class Ref>
void expect_kept(const Ref& ref) {
    Holder assigned;
    assigned = ref;
    for (const Holder& holder : {Holder(ref), assigned}) {
        EXPECT_STREQ("text", std::string(holder.data()).c_str());
        EXPECT_EQ(6U, holder.identity().sequence_number.low);
    }
}

TEST(Holders, of_texts_keep_the_metadata_of_a_loan_of_any_kind_of_text) {
    char octets[] = "text";
    char* text = octets;
    const char* constant = octets;
    DDS_SampleInfo info;
    DDS_WriteParams_t params;
    mark(info, 6);
    mark(params, 6);
    expect_kept<Sample<std::string>>(SampleRef<char*>(text, info));
    expect_kept<Sample<std::string>>(SampleRef<const char*>(constant, info));
    expect_kept<Sample<const char*>>(SampleRef<const char*>(constant, info));
    expect_kept<WriteSample<std::string>>(WriteSampleRef<char*>(text, params));
    expect_kept<WriteSample<std::string>>(WriteSampleRef<const char*>(constant, params));
    EXPECT_EQ("", Sample<std::string>(SampleRef<const char*>(NULL, info)).data());
}

// What the place of a cookie held before must not go out with another write.
TEST(Holders, lose_a_cookie_that_finds_no_memory_and_keep_no_other_in_its_place) {
    const DDS_Octet octets[3] = {1, 2, 3};
    DDS_WriteParams_t brief;
    DDS_WriteParams_t full;
    ASSERT_TRUE(brief.cookie.value.from_array(octets, 1) && full.cookie.value.from_array(octets, 3));
    WriteSample<std::string> left("left", brief);
    WriteSample<std::string> right("right", full);
    AllocationProbe::fail(1);
    left.set_info(full);
    AllocationProbe::stop();
    EXPECT_EQ(0, left.info().cookie.value.length());

    left.set_info(brief);
    AllocationProbe::fail(2);  // the first is the copy in between
    right.swap(left);
    AllocationProbe::stop();
    EXPECT_EQ(1, right.info().cookie.value.length());
    EXPECT_EQ(0, left.info().cookie.value.length());
}

}  // namespace
}  // namespace norvane::test
