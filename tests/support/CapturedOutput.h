#pragma once

#include <gtest/gtest.h>

#include <iostream>
#include <string>

/// What the process writes while this object lives, standard output and standard error apart.
///
/// The first out() or err() ends the capture. One at a time. If the test has failed, what was captured, messages of
/// failed assertions included, is shown after all.
class CapturedOutput
{
public:
    CapturedOutput()
    {
        testing::internal::CaptureStdout();
        testing::internal::CaptureStderr();
    }
    ~CapturedOutput() { stop(); }
    CapturedOutput(const CapturedOutput&) = delete;
    CapturedOutput& operator=(const CapturedOutput&) = delete;

    /// Everything written to standard output.
    const std::string& out()
    {
        stop();
        return outText;
    }

    /// Everything written to standard error.
    const std::string& err()
    {
        stop();
        return errText;
    }

private:
    void stop()
    {
        if (!stopped) {
            stopped = true;
            outText = testing::internal::GetCapturedStdout();
            errText = testing::internal::GetCapturedStderr();
            if (testing::Test::HasFailure()) {
                std::cout << outText << std::flush;
                std::cerr << errText << std::flush;
            }
        }
    }

    bool stopped = false;
    std::string outText;
    std::string errText;
};
