#include "FloodSender.h"
#include "PselectWatch.h"
#include "RawReader.h"
#include "SystemTest.h"

#include <support/CapturedOutput.h>
#include <support/Program.h>
#include <support/Waiting.h>
#include <support/WatchedStream.h>

#include <cerrno>
#include <csignal>

#include <unistd.h>

namespace {

class FaultTest : public SystemTest
{
protected:
    TestInterface sender{{0, 0x100, CAN_STANDARD, {}}};
    TestInterface receiver{{1, 0x100, CAN_STANDARD, {}}};

    /// Sends one byte and waits for it.
    void expectTraffic(uint8_t byte)
    {
        ASSERT_EQ(sender.send({byte}), 0);
        EXPECT_EQ(receiver.callback.nextFrame().value_or(ReceivedFrame{}).payload, std::vector<uint8_t>{byte});
    }

    /// The documented order that brings the traffic back after the devices were gone.
    void recover()
    {
        transmitter().close();
        ASSERT_EQ(transmitter().open(), 0);
        goOffline({&sender, &receiver});
        goOnline({&sender, &receiver});
    }

    /// Lets the dispatcher fail to start.
    void expectFailedStart()
    {
        sender.configure();
        dispatcher().setOnline();
        EXPECT_EQ(sender.callback.nextStatus(), 4);
        EXPECT_EQ(sender.callback.nextStatus(), 2);
    }
};

TEST_F(FaultTest, MissingDeviceAtTheStartIsReportedAndLaterStartSucceeds)
{
    startLogger(vlogger::board::PLAIN);
    logger->setDeviceMissing(MAIN_DEVICE, true);
    CapturedOutput output;

    expectFailedStart();
    EXPECT_EQ(sender.send({1}), -1);

    logger->setDeviceMissing(MAIN_DEVICE, false);
    ASSERT_EQ(transmitter().open(), 0);
    goOnline({&sender, &receiver});
    expectTraffic(2);
    goOffline({&sender, &receiver});
    const std::vector<std::string> lines = linesOf(output.out());
    EXPECT_EQ(countOf(lines, "[ERROR] MsgRxHandler::openDevices() Can't open device=/dev/vqlog-fpgab"), 1U);
    EXPECT_EQ(countOf(lines, "[ERROR] CanTxHandler::open() can't open device = /dev/vqlog-fpgab"), 1U);
    EXPECT_EQ(countOf(lines, "[ERROR] CanTxHandler::send() FGPAB/M-Device is not open!"), 1U);
    EXPECT_EQ(output.err(), "");
}

TEST_F(FaultTest, MissingSecondDeviceClosesTheFirstAndTellsErrorThenOffline)
{
    startLogger(vlogger::board::WITH_EXTENSION);
    logger->setDeviceMissing(EXTENSION_DEVICE, true);
    sender.configure();
    CapturedOutput output;

    dispatcher().setOnline();
    EXPECT_EQ(sender.callback.nextStatus(), 4);
    EXPECT_EQ(sender.callback.nextStatus(), 2);

    EXPECT_EQ(withoutDescriptors(linesOf(output.out())),
              (std::vector<std::string>{
                  "[INFO] MsgRxHandler::setOnline() START",
                  "[DEBUG] MsgRxHandler::threadCode() Start thread.",
                  "[INFO] MsgRxHandler::closeDevices() Close 2 devices.",
                  "[INFO] MsgRxHandler::openDevices() Open device=/dev/vqlog-fpgab",
                  "[INFO] MsgRxHandler::openDevices() Open device, name=/dev/vqlog-fpgab, fd=N",
                  "[INFO] MsgRxHandler::openDevices() Open device=/dev/vqlog-fpgac",
                  "[ERROR] MsgRxHandler::openDevices() Can't open device=/dev/vqlog-fpgac",
                  "[INFO] MsgRxHandler::closeDevices() Close 2 devices.",
                  "[INFO] CanInterface::onStateChanged() _newState=ERROR; _text=",
                  "[INFO] MsgRxHandler::threadCode() Exit thread, close devices",
                  "[INFO] MsgRxHandler::closeDevices() Close 2 devices.",
                  "[DEBUG] MsgRxHandler::threadCode() Exit thread.",
                  "[INFO] CanInterface::onStateChanged() _newState=OFFLINE; _text=",
              }));
    EXPECT_EQ(output.err(), "");
    EXPECT_TRUE(becomesTrue([this] { return logger->statistics().readers == 0; }));
}

TEST_F(FaultTest, MissingExtensionDeviceFailsTheChannelsAboveFourteenOnly)
{
    startLogger(vlogger::board::WITH_EXTENSION);
    logger->setDeviceMissing(EXTENSION_DEVICE, true);
    TestInterface fourteen({14, 0x14, CAN_STANDARD, {}});
    TestInterface fifteen({15, 0x15, CAN_STANDARD, {}});
    fourteen.configure();
    fifteen.configure();
    CapturedOutput output;

    EXPECT_EQ(fourteen.send({1}), 0);
    EXPECT_EQ(fifteen.send({1}), -1);

    EXPECT_EQ(linesOf(output.out()),
              (std::vector<std::string>{
                  "[DEBUG] CanTxHandler::open() open device=/dev/vqlog-fpgab with O_SYNC flag? true",
                  "[DEBUG] CanTxHandler::open() ext board 4 detected, open device=/dev/vqlog-fpgac",
                  "[ERROR] CanTxHandler::open() can't open device = /dev/vqlog-fpgac",
                  "[ERROR] CanTxHandler::send() FPGAC-Device is not open!",
              }));
}

TEST_F(FaultTest, FailingWriteIsLoggedWithItsErrorAndTheNextSucceeds)
{
    startLogger(vlogger::board::PLAIN);
    CapturedOutput setup;
    goOnline({&sender, &receiver});
    expectTraffic(1);
    setup.out();
    CapturedOutput output;

    logger->failWrites(MAIN_DEVICE, EIO, 2);
    EXPECT_EQ(sender.send({2}), -1);
    EXPECT_EQ(sender.send({3}), -1);
    logger->failWrites(MAIN_DEVICE, ENOSPC);
    EXPECT_EQ(sender.send({4}), -1);
    expectTraffic(5);

    EXPECT_EQ(linesOf(output.out()),
              (std::vector<std::string>{
                  "[ERROR] CanTxHandler::send() Can't write data, err=-1, errStr=Input/output error",
                  "[ERROR] CanTxHandler::send() Can't write data, err=-1, errStr=Input/output error",
                  "[ERROR] CanTxHandler::send() Can't write data, err=-1, errStr=No space left on device",
              }));
    EXPECT_EQ(output.err(), "");
    CapturedOutput rest;
    goOffline({&sender, &receiver});
}

TEST_F(FaultTest, VanishedDeviceEndsTheStreamFailsTheWritesAndCostsNoProcessorTime)
{
    startLogger(vlogger::board::PLAIN);
    WatchedStream output(STDOUT_FILENO);
    goOnline({&sender, &receiver});
    expectTraffic(1);

    logger->vanish(MAIN_DEVICE);

    EXPECT_TRUE(output.awaitLine("[ERROR] TraceMessageBuffer::read() device is at its end, name=/dev/vqlog-fpgab"));
    EXPECT_TRUE(pselectwatch::awaitTimeouts(2, LIMIT));
    EXPECT_EQ(sender.send({2}), -1);
    EXPECT_TRUE(output.awaitLine("[ERROR] CanTxHandler::send() Can't write data, err=-1, errStr=No such device"));
    transmitter().close();
    EXPECT_EQ(transmitter().open(), -1);
    logger->setDeviceMissing(MAIN_DEVICE, false);
    recover();
    expectTraffic(3);
    goOffline({&sender, &receiver});
}

TEST_F(FaultTest, VanishedExtensionLeavesTheMainDeviceWorking)
{
    startLogger(vlogger::board::WITH_EXTENSION);
    TestInterface extensionReceiver({16, 0x100, CAN_STANDARD, {}});
    WatchedStream output(STDOUT_FILENO);
    goOnline({&sender, &receiver, &extensionReceiver});
    expectTraffic(1);

    logger->vanish(EXTENSION_DEVICE);

    EXPECT_TRUE(output.awaitLine("[ERROR] TraceMessageBuffer::read() device is at its end, name=/dev/vqlog-fpgac"));
    expectTraffic(2);
    goOffline({&sender, &receiver, &extensionReceiver});
}

TEST_F(FaultTest, StreamCutInsideARecordDeliversNothingOfItAndCountsTheRest)
{
    startLogger(vlogger::board::PLAIN);
    WatchedStream output(STDOUT_FILENO);
    goOnline({&sender, &receiver});
    expectTraffic(1);

    logger->cutNextRecord(MAIN_DEVICE);
    ASSERT_EQ(sender.send({2, 2, 2, 2, 2, 2, 2, 2}), 0);

    // A record of 8 payload bytes has 31 bytes; half of them arrive.
    EXPECT_TRUE(output.awaitLine("[ERROR] TraceMessageBuffer::read() device is at its end, name=/dev/vqlog-fpgab, "
                                 "bytes left=15"));
    EXPECT_EQ(receiver.callback.frames.count(), 1U);
    recover();
    expectTraffic(3);
    goOffline({&sender, &receiver});
}

TEST_F(FaultTest, MalformedRecordIsLoggedAndTheNextRecordArrives)
{
    startLogger(vlogger::board::PLAIN);
    WatchedStream output(STDOUT_FILENO);
    goOnline({&sender, &receiver});
    expectTraffic(1);

    logger->malformNextRecord(MAIN_DEVICE);
    ASSERT_EQ(sender.send({2}), 0);

    // One record of 24 bytes was read before.
    EXPECT_TRUE(
        output.awaitLine("[ERROR] MsgRxHandler::processMessages() /dev/vqlog-fpgab: malformed record at byte "
                         "24: the length field is below 14"));
    expectTraffic(3);
    EXPECT_EQ(receiver.callback.frames.count(), 2U);
    goOffline({&sender, &receiver});
}

TEST_F(FaultTest, ClocksThatAreNotSynchronisedCountAsOffsetZero)
{
    startLogger(vlogger::board::WITH_EXTENSION);
    logger->setSynchronised("fpgab", false);
    logger->setSynchronised("fpgac", false);
    TestInterface high({20, 0x20, CAN_STANDARD, {}});
    TestInterface highReceiver({21, 0x20, CAN_STANDARD, {}});
    CapturedOutput output;
    RawReader mainDevice(MAIN_DEVICE);
    RawReader extension(EXTENSION_DEVICE);
    goOnline({&sender, &receiver, &high, &highReceiver});

    ASSERT_EQ(sender.send({1}), 0);
    ASSERT_EQ(high.send({2}), 0);

    EXPECT_EQ(receiver.callback.nextFrame().value_or(ReceivedFrame{}).timestampUs,
              mainDevice.nextFrame().timestampUs);
    EXPECT_EQ(highReceiver.callback.nextFrame().value_or(ReceivedFrame{}).timestampUs,
              extension.nextFrame().timestampUs);
    goOffline({&sender, &receiver, &high, &highReceiver});
    const std::vector<std::string> lines = linesOf(output.out());
    EXPECT_EQ(countOf(lines, "[ERROR] MsgRxHandler::openDevices() fpgab is not synchronized"), 1U);
    EXPECT_EQ(countOf(lines, "[ERROR] MsgRxHandler::openDevices() fpgac is not synchronized"), 1U);
    EXPECT_EQ(countOf(lines, "[INFO] MsgRxHandler::openDevices() #################### fpgabOffset=0"), 1U);
    EXPECT_EQ(countOf(lines, "[INFO] MsgRxHandler::openDevices() #################### fpgacOffset=0"), 1U);
}

TEST_F(FaultTest, ClockThatIsSynchronisedAgainGivesItsOffsetAtTheNextStart)
{
    startLogger(vlogger::board::PLAIN);
    logger->setSynchronised("fpgab", false);
    CapturedOutput output;
    goOnline({&sender, &receiver});
    goOffline({&sender, &receiver});

    logger->setSynchronised("fpgab", true);
    goOnline({&sender, &receiver});
    const uint64_t before = systemTimeUs();
    ASSERT_EQ(sender.send({1}), 0);

    const auto frame = receiver.callback.nextFrame();
    ASSERT_TRUE(frame);
    EXPECT_GE(frame->timestampUs, before);
    EXPECT_LE(frame->timestampUs, systemTimeUs());
    goOffline({&sender, &receiver});
}

TEST_F(FaultTest, WithoutAnyLoggerStartAndSendFailAndLaterWork)
{
    CapturedOutput output;

    expectFailedStart();
    EXPECT_EQ(sender.send({1}), -1);

    startLogger(vlogger::board::PLAIN);
    ASSERT_EQ(transmitter().open(), 0);
    goOnline({&sender, &receiver});
    expectTraffic(2);
    goOffline({&sender, &receiver});
    EXPECT_EQ(linesOf(output.err()),
              (std::vector<std::string>{
                  "[ERROR] virtual logger: cannot reach the one at " + socketPath +
                      ": No such file or directory; start it with 'vlogger serve --socket " + socketPath +
                      "', or unset VLOGGER to run on one inside the process",
                  "[ERROR] PIE: the board does not answer: No such device or address; this process takes it for a "
                  "plain one",
              }));
}

TEST_F(FaultTest, TrafficComesBackAfterTheLoggerWasKilledAndStartedAgain)
{
    auto killed = std::make_unique<Program>(LOGGER_PROGRAM, std::vector<std::string>{socketPath, "extension"});
    ASSERT_TRUE(killed->awaitLine("ready"));
    FloodSender flood(2);
    TestInterface floodReceiver(NumberedSender::receiverConfiguration(3));
    CapturedOutput output;
    goOnline({&sender, &receiver, &floodReceiver});
    flood.start();
    ASSERT_TRUE(floodReceiver.callback.frames.waitForCount(1000));

    killed->signal(SIGKILL);
    EXPECT_EQ(killed->awaitEnd(), -SIGKILL);
    EXPECT_TRUE(flood.awaitFailure());

    Program restarted(LOGGER_PROGRAM, {socketPath, "extension"});
    ASSERT_TRUE(restarted.awaitLine("ready"));
    EXPECT_EQ(sender.send({1}), -1); // the descriptors stay dead
    transmitter().close();
    ASSERT_EQ(transmitter().open(), 0);
    goOffline({&sender, &receiver, &floodReceiver});
    goOnline({&sender, &receiver, &floodReceiver});
    const uint64_t before = systemTimeUs();
    const size_t seen = floodReceiver.callback.frames.count();
    flood.resume();

    EXPECT_TRUE(floodReceiver.callback.frames.waitForCount(seen + 1000));
    expectTraffic(9);
    flood.stop();
    goOffline({&sender, &receiver, &floodReceiver});
    const std::vector<ReceivedFrame> frames = floodReceiver.callback.frames.all();
    EXPECT_GE(frames.at(seen).timestampUs, before);
    EXPECT_LE(frames.back().timestampUs, systemTimeUs());
    EXPECT_EQ(output.err(), "");
}

} // namespace
