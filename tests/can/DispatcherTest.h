#pragma once

#include <MsgRxHandler.h>
#include <can/MsgRxHandlerDevice.h>
#include <support/CapturedOutput.h>
#include <support/Effects.h>
#include <support/FakeBoard.h>
#include <support/FakeDevices.h>
#include <support/PrivateMember.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

REVEAL_MEMBER(Devices, MsgRxHandler, devices);
REVEAL_MEMBER(FpgabOffset, MsgRxHandler, fpgabOffset);
REVEAL_MEMBER(FpgacOffset, MsgRxHandler, fpgacOffset);
REVEAL_MEMBER(Receivers, MsgRxHandler, receivers);
REVEAL_MEMBER(ChannelReceivers, MsgRxHandler, channelReceivers);

namespace dispatchertest {

using Effects = std::vector<std::string>;

constexpr const char* MAIN = "/dev/vqlog-fpgab";
constexpr const char* EXTENSION = "/dev/vqlog-fpgac";
constexpr const char* COMBINED = "/dev/vqlog-fpgam";
constexpr const char* COMBINED_FD = "/dev/vqlog-fpgame";

/// Base of the tests of MsgRxHandler, on doubles. The board is chosen before the first use of sut().
class DispatcherTest : public testing::Test
{
protected:
    static void fitExtensionBoard() { fakeboard::answer({.deviceCode = 4}); }

    static MsgRxHandler& sut() { return *MsgRxHandler::getInstance(); }

    static std::vector<std::string> devicePaths()
    {
        std::vector<std::string> paths;
        for (const auto& [path, device] : sut().*reveal(Devices{})) {
            paths.push_back(path);
        }
        return paths;
    }

    static bool isActive(const char* path) { return (sut().*reveal(Devices{})).at(path)->active; }

    static int descriptorOf(const char* path) { return (sut().*reveal(Devices{})).at(path)->fd; }

    static bool hasBuffer(const char* path) { return (sut().*reveal(Devices{})).at(path)->buffer != nullptr; }

    /// Registers without the lines that this writes.
    static void registerQuietly(unsigned char channel, unsigned int id, cantype_t type, MsgRxHandlerCb& receiver)
    {
        CapturedOutput ignored;
        sut().registerCanMessage(channel, id, type, &receiver);
    }
};

} // namespace dispatchertest
