#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <stdexcept>
#include <string>

#include "Support/ValidationException.h"

namespace {

template <typename Exception, typename Check>
Exception Raised(Check check) {
    try {
        check();
    } catch (const Exception& failure) {
        return failure;
    }
    throw std::runtime_error("the check did not raise");
}

using LogicFailure = ExtendedException<std::logic_error>;
using RuntimeFailure = ExtendedException<std::runtime_error>;

TEST(ValidationException, LogicTextIsKindColonMessage) {
    const auto failure =
        Raised<LogicFailure>([] { Validation2Exception::CheckLogic(false, "x y", "f.cpp", 7); });
    EXPECT_STREQ(failure.what(), "Bad logic:x y");
    EXPECT_EQ(failure.file, "f.cpp");
    EXPECT_EQ(failure.line, 7U);
}

TEST(ValidationException, ParameterTextIsKindColonMessage) {
    const auto failure = Raised<LogicFailure>(
        [] { Validation2Exception::CheckParameter(false, "NewProcessor", "f.cpp", 7); });
    EXPECT_STREQ(failure.what(), "Bad parameter:NewProcessor");
}

TEST(ValidationException, MemoryTextIsKindColonMessage) {
    const auto failure = Raised<RuntimeFailure>(
        [] { Validation2Exception::CheckMemoryAllocation(false, "m", "f.cpp", 7); });
    EXPECT_STREQ(failure.what(), "Memory allocation failed:m");
}

TEST(ValidationException, OSCallTextHasTheMessageFirstAndTheSystemErrorInBrackets) {
    const auto failure = Raised<RuntimeFailure>([] {
        errno = ENOENT;
        Validation2Exception::CheckOSCall(false, "Can not open file", "f.cpp", 7);
    });
    EXPECT_STREQ(failure.what(), "Can not open file [OS call failed:2(No such file or directory)]");
}

TEST(ValidationException, OSCallWithErrnoZeroSaysSuccess) {
    const auto failure = Raised<RuntimeFailure>([] {
        errno = 0;
        Validation2Exception::CheckOSCall(false, "m", "f.cpp", 7);
    });
    EXPECT_STREQ(failure.what(), "m [OS call failed:0(Success)]");
}

TEST(ValidationException, TrueConditionReturnsAndLeavesErrno) {
    errno = 42;
    ZYN_CHECK_LOGIC(true, "m");
    ZYN_CHECK_PARAMETER(true, "m");
    ZYN_CHECK_MEMORY_ALLOCATION(true, "m");
    ZYN_CHECK_OS_CALL(true, "m");
    EXPECT_EQ(errno, 42);
}

TEST(ValidationException, PlaceIsReachableThroughTheMixInAndNotPartOfTheText) {
    try {
        ZYN_CHECK_LOGIC(false, "m");
        FAIL() << "the check did not raise";
    } catch (const GenericExtendedException& failure) {
        EXPECT_EQ(failure.file, "tests/Support/ValidationExceptionTest.cpp");
        EXPECT_EQ(failure.line, static_cast<unsigned int>(__LINE__ - 4));
        EXPECT_STREQ(failure.what(), "Bad logic:m");
    }
}

TEST(ValidationException, EveryCheckIsCaughtAsAStandardException) {
    EXPECT_THROW(ZYN_CHECK_LOGIC(false, "m"), std::logic_error);
    EXPECT_THROW(ZYN_CHECK_PARAMETER(false, "m"), std::logic_error);
    EXPECT_THROW(ZYN_CHECK_MEMORY_ALLOCATION(false, "m"), std::runtime_error);
    EXPECT_THROW(ZYN_CHECK_OS_CALL(false, "m"), std::runtime_error);
}

TEST(ValidationException, PointerGuardsLookAtThePointerOnly) {
    int value = 0;
    ASSERT_READABLE("", 100);
    ASSERT_WRITABLE(&value, 100);
    EXPECT_TRUE(IS_READABLE_STRING("", 100));
    EXPECT_FALSE(IS_READABLE_STRING(static_cast<const char*>(nullptr), 0));
    EXPECT_TRUE(IS_WRITABLE(&value, 0));
    EXPECT_FALSE(IS_WRITABLE(static_cast<int*>(nullptr), 4));
}

}  // namespace
