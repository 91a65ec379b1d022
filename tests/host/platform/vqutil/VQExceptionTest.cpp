#include <vqutil/VQException.h>

#include <gtest/gtest.h>
#include <support/TextOf.h>

#include <exception>

TEST(VQExceptionTest, WhatIsTheTextAsGiven)
{
    const VQException sut("no time offset");

    EXPECT_STREQ(sut.what(), "no time offset");
}

TEST(VQExceptionTest, StreamGetsTheTextWithoutALineEnd)
{
    EXPECT_EQ(textOf(VQException("no time offset")), "no time offset");
}

TEST(VQExceptionTest, StreamFlagsHaveNoEffectAndStay)
{
    EXPECT_EQ(textOnOddStream(VQException("12")), "12 kept");
}

TEST(VQExceptionTest, EmptyTextIsFine)
{
    EXPECT_EQ(textOf(VQException("")), "");
}

TEST(VQExceptionTest, CopyKeepsTheText)
{
    VQException first("first");
    const VQException copy(first);
    first = VQException("second");

    EXPECT_STREQ(copy.what(), "first");
    EXPECT_STREQ(first.what(), "second");
}

TEST(VQExceptionTest, IsCaughtAsStandardException)
{
    EXPECT_THROW(throw VQException("text"), std::exception);
}

TEST(BufferMismatchExceptionTest, IsCaughtAsVQException)
{
    try {
        throw BufferMismatchException("too long");
    } catch (const VQException& exception) {
        EXPECT_EQ(textOf(exception), "too long");
    }
}
