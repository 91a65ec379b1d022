#include <isotp/DirectLine.h>

#include <support/CapturedOutput.h>
#include <support/GroupedDigits.h>

#include <gtest/gtest.h>

#include <sstream>
#include <streambuf>
#include <string>
#include <utility>

namespace {

TEST(DirectLineTest, OutputAndErrorsKeepTheirStreams)
{
    CapturedOutput output;
    directline::toOutput("a=", 1, "; b=", std::string("two"));
    directline::toError("c=", 3);
    EXPECT_EQ(output.out(), "a=1; b=two\n");
    EXPECT_EQ(output.err(), "c=3\n");
}

TEST(DirectLineTest, NumbersLookTheSameInEveryLocale)
{
    const GroupedDigits locale;
    CapturedOutput output;
    directline::toOutput(1234567);
    directline::toError(std::hex, 0x1234567);
    EXPECT_EQ(output.out(), "1234567\n");
    EXPECT_EQ(output.err(), "1234567\n");
}

/// A device without room for the first line.
class FullOnce : public std::streambuf
{
public:
    std::string written;

private:
    std::streamsize xsputn(const char* text, std::streamsize size) override
    {
        if (!std::exchange(wasFull, true)) {
            return 0;
        }
        written.append(text, static_cast<size_t>(size));
        return size;
    }

    bool wasFull = false;
};

TEST(DirectLineTest, LineWithoutRoomDoesNotCostTheNext)
{
    FullOnce device;
    std::ostream stream(&device);
    directline::write(stream, "first");
    directline::write(stream, "second");
    EXPECT_EQ(device.written, "second\n");
}

TEST(DirectLineTest, StreamThatTheApplicationSwitchedOffStaysOff)
{
    std::ostringstream stream;
    stream.setstate(std::ios::failbit);
    directline::write(stream, "text");
    EXPECT_TRUE(stream.fail());
    EXPECT_EQ(stream.str(), "");
}

} // namespace
