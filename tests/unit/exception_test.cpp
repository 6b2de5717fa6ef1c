// SPDX-License-Identifier: Apache-2.0
// The exceptions, and the two reports that end in one: the return code and the failed precondition.
#include "norvane/Exception.hpp"

#include <gtest/gtest.h>

#include <set>
#include <sstream>
#include <string>

#include "norvane/details/EntityUntypedImpl.hpp"
#include "norvane/details/precondition.hpp"
#include "support/LogCapture.hpp"
#include "support/Thrown.hpp"

namespace norvane::test {
namespace {

// Method, level, module and text of each line.
std::string shown(const LogCapture& log) {
    std::ostringstream text;
    for (const LogCapture::Line& line : log.lines()) {
        text << line.method << ": " << std::hex << line.level << " " << line.module << " " << line.text << "\n";
    }
    return text.str();
}

template <typename Exception>
class EveryException : public ::testing::Test {};
typedef ::testing::Types<RuntimeException, LogicException, TimeoutException, OutOfResourcesException, UnsupportedException,
                         BadParameterException, PreconditionNotMetException, ImmutablePolicyException, InconsistentPolicyException,
                         NotEnabledException, AlreadyDeletedException, IllegalOperationException>
    AllExceptions;
TYPED_TEST_SUITE(EveryException, AllExceptions);

TYPED_TEST(EveryException, is_thrown_anew_as_its_own_class_through_any_of_its_bases) {
    const std::set<std::string> RUNTIME_ERRORS = {"RuntimeException", "TimeoutException", "OutOfResourcesException"};
    constexpr bool is_runtime = std::is_base_of<RuntimeException, TypeParam>::value;
    EXPECT_EQ(is_runtime, RUNTIME_ERRORS.count(class_name(typeid(TypeParam))) == 1);
    typedef typename std::conditional<is_runtime, RuntimeException, LogicException>::type Root;
    EXPECT_EQ(is_runtime, (std::is_base_of<std::runtime_error, TypeParam>::value));
    EXPECT_EQ(!is_runtime, (std::is_base_of<std::logic_error, TypeParam>::value));
    for (const std::string message : {"", "what was wrong"}) {
        TypeParam original(message);
        const Rethrowable& rethrowable = original;
        const Thrown rethrown = thrown_by([&] { rethrowable.rethrow("A::b failure"); });
        EXPECT_EQ(class_name(typeid(TypeParam)), rethrown.type);
        EXPECT_EQ("A::b failure caused by " + message, rethrown.message);
        Root& root = original;
        const Thrown raised = thrown_by([&] { root.raise(); });
        EXPECT_EQ(class_name(typeid(TypeParam)), raised.type);
        EXPECT_EQ(message, raised.message);
        EXPECT_EQ(message, original.what());
        EXPECT_THROW(root.raise(), Rethrowable);
    }
}

TEST(ReturnCode, becomes_the_exception_of_the_table_and_says_who_failed_at_what) {
    struct Case {
        int code;
        const char* type;  // empty: no exception
        bool result;       // then
    };
    const Case cases[] = {
        {DDS_RETCODE_OK, "", true},
        {DDS_RETCODE_ERROR, "RuntimeException", false},
        {DDS_RETCODE_UNSUPPORTED, "UnsupportedException", false},
        {DDS_RETCODE_BAD_PARAMETER, "BadParameterException", false},
        {DDS_RETCODE_PRECONDITION_NOT_MET, "PreconditionNotMetException", false},
        {DDS_RETCODE_OUT_OF_RESOURCES, "OutOfResourcesException", false},
        {DDS_RETCODE_NOT_ENABLED, "NotEnabledException", false},
        {DDS_RETCODE_IMMUTABLE_POLICY, "ImmutablePolicyException", false},
        {DDS_RETCODE_INCONSISTENT_POLICY, "InconsistentPolicyException", false},
        {DDS_RETCODE_ALREADY_DELETED, "AlreadyDeletedException", false},
        {DDS_RETCODE_TIMEOUT, "TimeoutException", false},
        {DDS_RETCODE_NO_DATA, "", false},
        {DDS_RETCODE_ILLEGAL_OPERATION, "IllegalOperationException", false},
        {DDS_RETCODE_NOT_ALLOWED_BY_SECURITY, "RuntimeException", false},
        {77, "RuntimeException", false},
        {-1, "RuntimeException", false},
    };
    const std::string text = expanded(DDS_LOG_BAD_PARAMETER_s, "max_samples");
    for (const Case& each : cases) {
        const DDS_ReturnCode_t code = static_cast<DDS_ReturnCode_t>(each.code);
        for (const bool throw_timeout_error : {false, true}) {
            SCOPED_TRACE(std::to_string(each.code) + (throw_timeout_error ? ", a time-out is an error" : ""));
            const std::string type = code == DDS_RETCODE_TIMEOUT && !throw_timeout_error ? "" : each.type;
            LogCapture log;
            bool result = !each.result;
            const Thrown thrown = thrown_by(
                [&] { result = check_retcode(code, "A::b", DDS_LOG_BAD_PARAMETER_s, "max_samples", throw_timeout_error); });
            EXPECT_EQ(type, thrown.type);
            EXPECT_TRUE(!type.empty() || result == each.result);
            EXPECT_EQ(type.empty() ? "" : "A::b:" + text, thrown.message);
            EXPECT_EQ(type.empty() ? "" : "A::b: 2 f0000 " + text + "\n", shown(log));
        }
        const Thrown thrown = thrown_by([&] { throw_retcode(code, "as it is %s"); });
        EXPECT_EQ(*each.type != '\0' ? each.type : "RuntimeException", thrown.type) << each.code;
        EXPECT_EQ("as it is %s", thrown.message);
    }
}

int breakpoints = 0;

TEST(Precondition, that_fails_is_logged_negated_marked_signalled_and_thrown_as_written) {
    const void* some_pointer = NULL;
    const std::string name;
    LogCapture log;
    const auto before = set_assert_callback([] { ++breakpoints; });
    EXPECT_NO_THROW(NORVANE_CHECK_PRECONDITION(some_pointer == NULL, "b"));
    EXPECT_EQ(0U, log.lines().size());
    EXPECT_EQ(0, breakpoints);

    VOSTLog_g_preconditionDetected = 0;
    VOSTLog_g_detectPrecondition = 0;
    const Thrown pointer = thrown_by([&] { NORVANE_CHECK_PRECONDITION(some_pointer != NULL, "wait_for_samples"); });
    EXPECT_EQ(0, VOSTLog_g_preconditionDetected);
    VOSTLog_g_detectPrecondition = 1;
    const Thrown text = thrown_by([&] { NORVANE_CHECK_PRECONDITION(name != "", "b"); });
    EXPECT_EQ(1, VOSTLog_g_preconditionDetected);
    VOSTLog_g_detectPrecondition = 0;
    VOSTLog_g_preconditionDetected = 0;
    set_assert_callback(before);

    EXPECT_EQ("PreconditionNotMetException", pointer.type);
    EXPECT_EQ("some_pointer != NULL", pointer.message);
    EXPECT_EQ("name != \"\"", text.message);
    EXPECT_EQ(2, breakpoints);
    EXPECT_EQ("wait_for_samples: 1 f0000 " + expanded(VOST_LOG_PRECONDITION_FAILURE_s, "\"!(some_pointer != __null)\"") +
                  "\nb: 1 f0000 " + expanded(VOST_LOG_PRECONDITION_FAILURE_s, "\"!(name != \"\")\"") + "\n",
              shown(log));
}

}  // namespace
}  // namespace norvane::test
