#include "IsoTpFixture.h"

#include <support/CapturedOutput.h>
#include <support/PipeCalls.h>
#include <support/ProcessResources.h>

#include <vqtrace/SystemMessage.h>
#include <vqutil/VQException.h>

#include <cerrno>
#include <stdexcept>
#include <utility>

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

REVEAL_MEMBER(Registered, CanIsoTpHandler, registered);
REVEAL_MEMBER(SeparationTime, CanIsoTpHandler, separationTime);
REVEAL_MEMBER(BlockSize, CanIsoTpHandler, blockSize);
REVEAL_MEMBER(SendCursor, CanIsoTpHandler, sendCursor);

using processresources::openDescriptors;

namespace {

class CanIsoTpHandlerLifecycleTest : public testing::Test
{
protected:
    CanIsoTpHandlerLifecycleTest()
    {
        bus.reset();
        FakeTransmitter::instance().reset();
        PipeCalls::instance().reset();
    }

    static std::unique_ptr<Handler> make(cantype_t rxType = CAN_STANDARD, uint32_t rxId = 2024,
                                         const std::string& ownName = "diag")
    {
        return std::make_unique<Handler>("TraceLogger", ownName, uint8_t{2}, rxId, rxType, TX_ID, CAN_STANDARD);
    }

    std::string registrationText() const
    {
        return dynamic_cast<const SystemMessage&>(*bus.sent().back().message).text;
    }

    static std::string failureOf(const std::function<void()>& construction)
    {
        try {
            construction();
        } catch (const VQException& failure) {
            return failure.what();
        }
        return "no failure";
    }

    FakeBus& bus = FakeBus::instance();
};

TEST_F(CanIsoTpHandlerLifecycleTest, ConstructionRegistersTheReceiveIdentifier)
{
    const auto sut = make();
    ASSERT_EQ(bus.sent().size(), 1U);
    const FakeBus::Sent sent = bus.sent().front();
    EXPECT_EQ(sent.destination, "TraceLogger");
    EXPECT_TRUE(sent.keep);
    const auto* const message = dynamic_cast<const SystemMessage*>(sent.message.get());
    ASSERT_NE(message, nullptr);
    EXPECT_EQ(message->msgId, 128);
    EXPECT_EQ(message->time, 0U);
    EXPECT_EQ(message->command, 19);
    EXPECT_EQ(message->text, "1 2 1 2024 diag");
    EXPECT_TRUE((*sut).*reveal(Registered{}));
}

TEST_F(CanIsoTpHandlerLifecycleTest, ExtendedIdentifierIsRegisteredWithBit31)
{
    const auto sut = make(CAN_EXTENDED, 0x18DA00F1);
    EXPECT_EQ(registrationText(), "1 2 1 2564423921 diag");
}

TEST_F(CanIsoTpHandlerLifecycleTest, OnlyTheClassicExtendedTypeSetsBit31)
{
    const auto sut = make(CAN_FD_EXTENDED, 0x18DA00F1);
    EXPECT_EQ(registrationText(), "1 2 1 416940273 diag");
}

TEST_F(CanIsoTpHandlerLifecycleTest, TrailingNulsOfTheOwnNameAreStripped)
{
    const auto sut = make(CAN_STANDARD, 1, std::string("diag\0\0", 6));
    EXPECT_EQ(registrationText(), "1 2 1 1 diag");
}

TEST_F(CanIsoTpHandlerLifecycleTest, CallbackIsOnTheBusBeforeTheRegistration)
{
    std::vector<std::string> calls;
    bus.onCall = [&](const std::string& operation) { calls.push_back(operation); };
    make();
    bus.onCall = nullptr;
    EXPECT_EQ(calls, (std::vector<std::string>{"setCallBack", "sendTo", "removeCallBack"}));
}

TEST_F(CanIsoTpHandlerLifecycleTest, RefusedRegistrationIsNoFailure)
{
    bus.acceptsMessages = false;
    const auto sut = make();
    EXPECT_FALSE((*sut).*reveal(Registered{}));
    EXPECT_FALSE(sut->registerHandler());
    bus.acceptsMessages = true;
    EXPECT_TRUE(sut->registerHandler());
}

TEST_F(CanIsoTpHandlerLifecycleTest, StartsIdleWithNormalAddressingAndPadding)
{
    const auto sut = make();
    EXPECT_EQ(expectationOf(*sut), Handler::EXPECT_SF_OR_FF);
    EXPECT_EQ(sut->debugLevel, 0);
    EXPECT_EQ(sut->extAddressLength, 0);
    EXPECT_EQ(sut->extAddress, 0);
    EXPECT_EQ(sut->useMinimalDlc, 0);
    EXPECT_EQ((*sut).*reveal(BlockSize{}), 0);
    EXPECT_EQ((*sut).*reveal(SeparationTime{}), 127);
    EXPECT_EQ((*sut).*reveal(SendCursor{}), Handler::MSGPART_INVALID);
    EXPECT_TRUE(sut->sendQueueEmpty());
}

TEST_F(CanIsoTpHandlerLifecycleTest, DestructionLeavesBusAndClosesPipe)
{
    const size_t before = openDescriptors();
    auto sut = make();
    EXPECT_EQ(openDescriptors(), before + 2);
    EXPECT_TRUE(bus.has(*sut));
    sut.reset();
    EXPECT_EQ(bus.callbackCount(), 0U);
    EXPECT_EQ(openDescriptors(), before);
}

TEST_F(CanIsoTpHandlerLifecycleTest, PipeIsClosedAfterTheBusCallbackIsRemoved)
{
    auto sut = make();
    const size_t before = openDescriptors();
    size_t atRemoval = 0;
    bus.onCall = [&](const std::string&) { atRemoval = openDescriptors(); };
    sut.reset();
    bus.onCall = nullptr;
    EXPECT_EQ(atRemoval, before);
}

TEST_F(CanIsoTpHandlerLifecycleTest, DestructionReleasesQueuedMessages)
{
    const auto sut = make(); // the address sanitizer looks for what is left
    const Bytes payload = counting(100);
    EXPECT_TRUE(sut->sendTxID(payload.data(), payload.size()));
    EXPECT_FALSE(sut->sendQueueEmpty());
}

TEST_F(CanIsoTpHandlerLifecycleTest, FailingPipeThrows)
{
    // The undefined-behaviour sanitizer calls pipe() itself when it meets a class for the first time.
    make();
    bus.reset();
    PipeCalls::instance().pipes.add(ENFILE);
    EXPECT_EQ(failureOf([] { make(); }),
              "[ERROR] CanIsoTpHandler::CanIsoTpHandler: can't init pipe: Too many open files in system");
    EXPECT_EQ(bus.callbackCount(), 0U);
    EXPECT_TRUE(bus.sent().empty());
}

/// Occupies descriptors until `next` is the lowest free one.
class FullDescriptorTable
{
public:
    explicit FullDescriptorTable(int next)
    {
        rlimit limit{};
        getrlimit(RLIMIT_NOFILE, &limit);
        limit.rlim_cur = FD_SETSIZE + 16;
        EXPECT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
        for (int fd = 0; fd >= 0 && fd < next - 1;) {
            fd = open("/dev/null", O_RDONLY | O_CLOEXEC);
            taken.push_back(fd);
        }
    }
    ~FullDescriptorTable()
    {
        for (const int fd : taken) {
            close(fd);
        }
    }
    FullDescriptorTable(const FullDescriptorTable&) = delete;
    FullDescriptorTable& operator=(const FullDescriptorTable&) = delete;

private:
    std::vector<int> taken;
};

TEST_F(CanIsoTpHandlerLifecycleTest, DescriptorsThatSelectCannotWatchAreAFailingPipe)
{
    const FullDescriptorTable table(FD_SETSIZE);
    EXPECT_EQ(failureOf([] { make(); }),
              "[ERROR] CanIsoTpHandler::CanIsoTpHandler: can't init pipe: Too many open files");
    EXPECT_EQ(fcntl(FD_SETSIZE, F_GETFD), -1);
    EXPECT_EQ(fcntl(FD_SETSIZE + 1, F_GETFD), -1);
}

TEST_F(CanIsoTpHandlerLifecycleTest, WriteEndThatSelectCannotWatchIsAFailingPipe)
{
    const FullDescriptorTable table(FD_SETSIZE - 1);
    EXPECT_EQ(failureOf([] { make(); }),
              "[ERROR] CanIsoTpHandler::CanIsoTpHandler: can't init pipe: Too many open files");
    EXPECT_EQ(fcntl(FD_SETSIZE - 1, F_GETFD), -1);
    EXPECT_EQ(fcntl(FD_SETSIZE, F_GETFD), -1);
}

TEST_F(CanIsoTpHandlerLifecycleTest, LastDescriptorsThatSelectCanWatchAreFine)
{
    const FullDescriptorTable table(FD_SETSIZE - 2);
    const auto sut = make();
    sut->pushThread('i');
    EXPECT_EQ(pendingCommands(*sut), "i");
}

TEST_F(CanIsoTpHandlerLifecycleTest, ConstructionThatFailsAfterThePipeCleansUp)
{
    const size_t before = openDescriptors();
    bus.onCall = [](const std::string& operation) {
        if (operation == "sendTo") {
            throw std::runtime_error("no bus");
        }
    };
    EXPECT_THROW(make(), std::runtime_error);
    bus.onCall = nullptr;
    EXPECT_EQ(bus.callbackCount(), 0U);
    EXPECT_EQ(openDescriptors(), before);
}

TEST_F(CanIsoTpHandlerLifecycleTest, ConstructionWhoseCleanUpFailsTooClosesThePipe)
{
    const size_t before = openDescriptors();
    bus.onCall = [](const std::string& operation) { throw std::runtime_error(operation); };
    std::string failure;
    try {
        make();
    } catch (const std::runtime_error& cause) {
        failure = cause.what();
    }
    bus.onCall = nullptr;
    EXPECT_EQ(failure, "setCallBack"); // the first cause
    EXPECT_EQ(openDescriptors(), before);
}

TEST_F(CanIsoTpHandlerLifecycleTest, DestructionWhoseRemovalFailsClosesThePipe)
{
    const size_t before = openDescriptors();
    auto sut = make();
    bool removed = false;
    bus.onCall = [this, &removed, &handler = *sut](const std::string&) {
        if (!std::exchange(removed, true)) {
            bus.remove(handler);
            throw std::runtime_error("no bus");
        }
    };
    sut.reset();
    bus.onCall = nullptr;
    EXPECT_EQ(openDescriptors(), before);
}

class CanIsoTpHandlerCallbacksTest : public IsoTpTest
{
};

TEST_F(CanIsoTpHandlerCallbacksTest, CallbackIsAddedOnce)
{
    RecordingIsoTpCallback other;
    EXPECT_TRUE(sut.setCallback(other));
    EXPECT_FALSE(sut.setCallback(other));
}

TEST_F(CanIsoTpHandlerCallbacksTest, RemovalTellsHowManyWereThere)
{
    RecordingIsoTpCallback unknown;
    EXPECT_EQ(sut.removeCallback(unknown), 0);
    EXPECT_EQ(sut.removeCallback(callback), 1);
    EXPECT_EQ(sut.removeCallback(callback), 0);
}

TEST_F(CanIsoTpHandlerCallbacksTest, StatusReachesEveryCallbackInAddressOrder)
{
    std::vector<const RecordingIsoTpCallback*> order;
    RecordingIsoTpCallback others[3];
    for (RecordingIsoTpCallback& other : others) {
        other.onStatus = [&](const IsoTpEvent&) { order.push_back(&other); };
    }
    sut.setCallback(others[2]);
    sut.setCallback(others[0]);
    sut.setCallback(others[1]);
    sut.callCanIsoTpHandlerStatusCb(CanIsoTpHandlerCallback::STATUS_WARNING, 7, "text");
    EXPECT_EQ(order, (std::vector<const RecordingIsoTpCallback*>{&others[0], &others[1], &others[2]}));
    EXPECT_EQ(events(), (Events{{{}, 1, 7, "text"}}));
}

TEST_F(CanIsoTpHandlerCallbacksTest, RemovedCallbackHearsNothing)
{
    sut.removeCallback(callback);
    sut.callCanIsoTpHandlerStatusCb(CanIsoTpHandlerCallback::STATUS_INFO, 0, "text");
    EXPECT_TRUE(events().empty());
}

TEST_F(CanIsoTpHandlerCallbacksTest, BusErrorIsLoggedOnly)
{
    CapturedOutput output;
    sut.vqpBusProxyStatusCb(VQPBusProxyCallback::STATUS_ERROR, 5, "bus is gone");
    EXPECT_EQ(output.err(), "[ERROR] CanIsoTpHandler::vqpBusProxyStatus: bus is gone\n");
    EXPECT_EQ(output.out(), "");
    EXPECT_TRUE(events().empty());
}

TEST_F(CanIsoTpHandlerCallbacksTest, OtherBusStatusIsIgnored)
{
    CapturedOutput output;
    sut.vqpBusProxyStatusCb(VQPBusProxyCallback::STATUS_INFO, 0, "text");
    sut.vqpBusProxyStatusCb(VQPBusProxyCallback::STATUS_WARNING, 0, "text");
    sut.vqpBusProxyStatusCb(static_cast<VQPBusProxyCallback::StatusCBType_t>(3), 0, "text");
    EXPECT_EQ(output.err(), "");
    EXPECT_EQ(output.out(), "");
    EXPECT_TRUE(events().empty());
}

} // namespace
