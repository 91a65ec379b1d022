#pragma once

#include <vqpbus/VQPBusProxy.h>

#include "FakeBus.h"
#include "RecordingBusCallback.h"

#include <vqtrace/SystemMessage.h>

#include <gtest/gtest.h>
#include <support/TemporaryDirectory.h>

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace busproxy {

inline const std::string CONNECTED = "status 0 0 connected to the process bus";
inline const std::string CONNECTED_AGAIN = "status 0 0 connected to the process bus again";
inline const std::string GONE = "status 2 104 the process bus is gone";

inline std::unique_ptr<MessageBase> command(const std::string& text)
{
    return std::make_unique<SystemMessage>(SystemMessage::MESSAGE_ID, 0, SystemMessage::COMMAND_REGISTER, text);
}

inline std::vector<uint8_t> recordOf(const std::string& text)
{
    std::vector<uint8_t> record;
    command(text)->createByteArray(record, true, false);
    return record;
}

inline BusEvent hello(const std::string& name)
{
    return {.hello = name, .source = {}, .destination = {}, .record = {}};
}

inline BusEvent message(const std::string& destination, const std::string& text)
{
    return {.hello = {}, .source = "Diagnostic", .destination = destination, .record = recordOf(text)};
}

/// The proxy of this process, and a bus in the hand of the test.
class ProxyTest : public testing::Test
{
protected:
    ProxyTest()
    {
        setenv("VLOGGER", socketPath().c_str(), 1);
        unsetenv("VQPBUS_NAME");
    }

    std::string socketPath() const { return directory.path("socket"); }
    FakeBus& startBus() { return bus.emplace(socketPath()); }

    /// A callback that is connected and has been told so.
    void connect(RecordingBusCallback& callback)
    {
        EXPECT_TRUE(sut.setCallBack(callback));
        ASSERT_TRUE(callback.waitFor(CONNECTED));
    }

    /// Delivers a text and waits until the callback has it.
    void deliverAndAwait(RecordingBusCallback& callback, const std::string& text)
    {
        bus->deliver("TraceLogger", "Diagnostic", *command(text));
        ASSERT_TRUE(callback.waitFor("TraceLogger>Diagnostic command=19; text=" + text));
    }

    TemporaryDirectory directory;
    std::optional<FakeBus> bus;
    VQPBusProxy& sut = *VQPBusProxy::getInstance();
};

} // namespace busproxy
