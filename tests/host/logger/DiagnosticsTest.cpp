#include <logger/Diagnostics.h>

#include <support/CapturedOutput.h>
#include <support/RedirectedDescriptor.h>

#include <gtest/gtest.h>

#include <unistd.h>

#include <ios>
#include <iostream>

namespace {

TEST(DiagnosticsTest, LinesCarryTheirTagAndGoToStandardError)
{
    CapturedOutput output;
    vlogger::diagnostics::warn("one");
    vlogger::diagnostics::error("two");
    EXPECT_EQ(output.err(), "[WARNING] VirtualLogger: one\n[ERROR] VirtualLogger: two\n");
    EXPECT_EQ(output.out(), "");
}

TEST(DiagnosticsTest, FullDiskCostsItsLineAndNotTheNext)
{
    CapturedOutput output;
    {
        const RedirectedDescriptor redirected(STDERR_FILENO, openFullDisk());
        vlogger::diagnostics::warn("lost");
    }
    EXPECT_TRUE(std::cerr.good());
    vlogger::diagnostics::warn("kept");
    EXPECT_EQ(output.err(), "[WARNING] VirtualLogger: kept\n");
}

TEST(DiagnosticsTest, StateThatTheApplicationGaveTheStreamStays)
{
    CapturedOutput output;
    std::cerr.setstate(std::ios_base::failbit);
    vlogger::diagnostics::warn("unwanted");
    EXPECT_TRUE(std::cerr.fail());
    std::cerr.clear();
    EXPECT_EQ(output.err(), "");
}

} // namespace
