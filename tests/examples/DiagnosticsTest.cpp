#include <logger/VirtualLogger.h>
#include <logger/node/IsoTpNode.h>
#include <support/ChildProcess.h>
#include <support/TemporaryDirectory.h>

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

namespace {

/// The tester of the example against an ECU that is not as it should be.
class DiagnosticsExampleTest : public ::testing::Test
{
protected:
    ChildResult testAgainst(std::vector<vlogger::Answer> answers)
    {
        vlogger::IsoTpNodeOptions ecu;
        ecu.answers = std::move(answers);
        vlogger::Options options;
        options.socketPath = directory.path("bench/socket");
        options.nodes = {std::make_shared<vlogger::IsoTpNode>(ecu)};
        const vlogger::VirtualLogger logger(options);
        return ChildProcess({TESTER_PROGRAM, "--lines", directory.path("lines.txt")})
            .with("VLOGGER", options.socketPath)
            .run();
    }

    TemporaryDirectory directory;
};

} // namespace

TEST_F(DiagnosticsExampleTest, WrongAnswerFailsTheRunAndIsShownBesideTheRightOne)
{
    const ChildResult run = testAgainst({{.request = {0x3E}, .mask = {}, .response = {0x7F, 0x3E, 0x11}}});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(run.out, "tester present  3E 00                         7F 3E 11  wrong, expected 7E 00\n");
    EXPECT_EQ(run.err, "");
}

TEST_F(DiagnosticsExampleTest, MissingAnswerFailsTheRunAndSaysWhereToLook)
{
    const ChildResult run = testAgainst({});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(run.out,
              "tester present  3E 00                         no answer within 10 s; is the ECU running, on the "
              "bus of this channel, and does VLOGGER name its socket?\n");
}

TEST_F(DiagnosticsExampleTest, LinesFileThatCannotBeWrittenIsNamed)
{
    const ChildResult run = ChildProcess({TESTER_PROGRAM, "--lines", "/nowhere/lines"}).run();
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(run.err, "tester: cannot write /nowhere/lines: No such file or directory\n");
}

TEST_F(DiagnosticsExampleTest, WrongUsageEndsWith2)
{
    EXPECT_EQ(ChildProcess({TESTER_PROGRAM, "--bogus"}).run().exitCode, 2);
    EXPECT_EQ(ChildProcess({TESTER_PROGRAM, "--channel", "256"}).run().exitCode, 2);
    EXPECT_EQ(ChildProcess({ECU_PROGRAM}).run().exitCode, 2);
    EXPECT_EQ(ChildProcess({ECU_PROGRAM, ""}).run().exitCode, 2);
}

TEST_F(DiagnosticsExampleTest, EcuThatCannotListenSaysWhy)
{
    const ChildResult run = ChildProcess({ECU_PROGRAM, "/nowhere/at/all"}).run();
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(run.err.rfind("ecu: ", 0), 0U) << run.err;
}
