#include <logger/VirtualLogger.h>
#include <support/TemporaryDirectory.h>

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <string>

namespace {

struct Replay
{
    int exitCode = -1;
    std::string output;
};

/// The example on a bench: a virtual logger of its own process, found through the environment.
class RawCanBenchTest : public ::testing::Test
{
protected:
    Replay replay(vlogger::Options options, const std::string& log)
    {
        options.socketPath = directory.path("logger/socket");
        const vlogger::VirtualLogger logger(std::move(options));
        const std::string command = "VLOGGER='" + directory.path("logger/socket") +
                                    "' '" RAW_CAN_PROGRAM "' --log '" + directory.write("test.log", log) +
                                    "' --lines '" + directory.path("lines.txt") + "'";
        Replay run;
        FILE* const pipe = ::popen(command.c_str(), "r");
        std::array<char, 4096> chunk{};
        for (size_t size = 0; (size = std::fread(chunk.data(), 1, chunk.size(), pipe)) != 0;) {
            run.output.append(chunk.data(), size);
        }
        const int status = ::pclose(pipe);
        run.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        return run;
    }

    TemporaryDirectory directory;
};

/// One frame on each of `count` interfaces.
std::string logOfInterfaces(unsigned count)
{
    std::ostringstream log;
    for (unsigned number = 0; number < count; ++number) {
        log << "(1.000000) can" << number << " 123#01\n";
    }
    return log.str();
}

} // namespace

TEST_F(RawCanBenchTest, ChannelWithoutAWireLosesItsFramesAndFailsTheRun)
{
    const Replay run = replay({.board = vlogger::board::PLAIN, .buses = {{0, 1}}},
                              logOfInterfaces(2) + "(1.000001) can1 123#02\n");
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_NE(run.output.find("0 -> 1     123                 1          1          0"), std::string::npos)
        << run.output;
    EXPECT_NE(run.output.find("2 -> 3     123                 2          0          2          0/s\n"),
              std::string::npos)
        << run.output;
}

TEST_F(RawCanBenchTest, ExtensionBoardServesEveryPairAcrossBothDevices)
{
    const Replay run = replay({.board = vlogger::board::WITH_EXTENSION}, logOfInterfaces(128));
    EXPECT_EQ(run.exitCode, 0) << run.output;
    EXPECT_NE(run.output.find("254 -> 255 123                 1          1          0"), std::string::npos)
        << run.output;
}

TEST_F(RawCanBenchTest, CombinedBoardServesEveryPair)
{
    EXPECT_EQ(replay({.board = vlogger::board::COMBINED_16_FD}, logOfInterfaces(128)).exitCode, 0);
}

TEST_F(RawCanBenchTest, MoreInterfacesThanTheLargestBoardHasPairsAreRefused)
{
    EXPECT_EQ(replay({.board = vlogger::board::COMBINED_112}, logOfInterfaces(129)).exitCode, 1);
}
