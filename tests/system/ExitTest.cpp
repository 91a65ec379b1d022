#include "SystemTest.h"

#include <support/Program.h>

#include <algorithm>
#include <csignal>

namespace {

/// How a program ends. Its last lines show that the receive thread was stopped in order.
class ExitTest : public SystemTest
{
protected:
    /// Runs a program to its end: exit code 0 and nothing on standard error.
    /// @return its standard output
    static std::vector<std::string> run(const std::string& path, const std::vector<std::string>& arguments,
                                        const std::map<std::string, std::string>& environment = {})
    {
        Program program(path, arguments, environment);
        EXPECT_EQ(program.awaitEnd(), 0);
        program.signal(SIGKILL); // if it has not ended, its output would not either
        EXPECT_EQ(program.errorLines(), std::vector<std::string>{});
        return program.outputLines();
    }

    /// The lines from the destructor of the dispatcher on.
    static std::vector<std::string> endOf(const std::vector<std::string>& lines)
    {
        return {std::find(lines.begin(), lines.end(), "[DEBUG] MsgRxHandler::~MsgRxHandler() Destructor."),
                lines.end()};
    }
};

TEST_F(ExitTest, ProgramEndsWhileASenderIsBlockedInTheDevice)
{
    vlogger::Options options = optionsFor(vlogger::board::PLAIN);
    options.streamQueueBytes = 64U << 10;
    options.stallLimit = std::chrono::hours(1);
    startLogger(options);

    run(EXIT_PROGRAM, {"blocked-sender"});
}

TEST_F(ExitTest, ProgramEndsWithTheReceiveThreadNeverStopped)
{
    startLogger(vlogger::board::PLAIN);

    EXPECT_EQ(endOf(run(EXIT_PROGRAM, {"online"})),
              (std::vector<std::string>{
                  "[DEBUG] MsgRxHandler::~MsgRxHandler() Destructor.",
                  "[INFO] MsgRxHandler::setOffline() STOP",
                  "[INFO] MsgRxHandler::threadCode() Exit thread, close devices",
                  "[INFO] MsgRxHandler::closeDevices() Close 1 devices.",
                  "[DEBUG] MsgRxHandler::threadCode() Exit thread.",
                  "[INFO] CanInterface::onStateChanged() _newState=OFFLINE; _text=",
                  "[INFO] CanInterface::onStateChanged() _newState=OFFLINE; _text=",
              }));
}

TEST_F(ExitTest, ProgramEndsAfterAFailedStart)
{
    startLogger(vlogger::board::PLAIN);
    logger->setDeviceMissing(MAIN_DEVICE, true);

    EXPECT_EQ(endOf(run(EXIT_PROGRAM, {"failed-start"})),
              (std::vector<std::string>{"[DEBUG] MsgRxHandler::~MsgRxHandler() Destructor."}));
}

TEST_F(ExitTest, ProgramEndsUnderTraffic)
{
    startLogger(vlogger::board::PLAIN);

    run(EXIT_PROGRAM, {"traffic"});
}

TEST_F(ExitTest, ProgramEndsUnderTrafficOfTheEmbeddedLogger)
{
    run(EXIT_PROGRAM, {"traffic"}, {{"VLOGGER", "embedded"}});
}

TEST_F(ExitTest, ProgramEndsWhenAnotherThreadCallsExitUnderTraffic)
{
    startLogger(vlogger::board::PLAIN);

    run(EXIT_PROGRAM, {"exit-in-thread"});
}

TEST_F(ExitTest, ProgramEndsWhenACallbackCallsExit)
{
    startLogger(vlogger::board::PLAIN);

    run(EXIT_PROGRAM, {"exit-in-callback"});
}

TEST_F(ExitTest, InterfacesWithStaticStorageAreDestroyedWithoutHarm)
{
    startLogger(vlogger::board::PLAIN);

    run(STATIC_INTERFACES_PROGRAM, {});
}

TEST_F(ExitTest, InterfacesWithStaticStorageAreDestroyedWithoutHarmOnTheEmbeddedLogger)
{
    run(STATIC_INTERFACES_PROGRAM, {}, {{"VLOGGER", "embedded"}});
}

} // namespace
