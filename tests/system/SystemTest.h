#pragma once

#include <CanInterface.h>
#include <CanTxHandler.h>
#include <MsgRxHandler.h>

#include <logger/VirtualLogger.h>
#include <support/Census.h>
#include <support/FrameCallback.h>
#include <support/TemporaryDirectory.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

constexpr const char* MAIN_DEVICE = "/dev/vqlog-fpgab";
constexpr const char* EXTENSION_DEVICE = "/dev/vqlog-fpgac";

/// An application's interface with its callback.
struct TestInterface
{
    explicit TestInterface(CanInterface::Configuration settings) : configuration(std::move(settings))
    {
        can.callbacks.insert(&callback);
    }

    int configure() { return can.configure(configuration); }
    int send(const std::vector<uint8_t>& payload) { return can.send(payload.data(), payload.size()); }

    FrameCallback callback; ///< outlives the interface
    CanInterface can;
    CanInterface::Configuration configuration;
};

/// Library, host platform and a virtual logger of its own, put together as an application would.
///
/// The logger listens in a fresh directory; VLOGGER names that socket for this process and its children. The test
/// starts it with the board it wants, before anything of the library is used.
class SystemTest : public testing::Test
{
protected:
    SystemTest();
    ~SystemTest() override;

    /// Options with the board and the socket, patient with readers that a busy machine holds up.
    vlogger::Options optionsFor(const wire::Board& board) const;

    void startLogger(const vlogger::Options& options);
    void startLogger(const wire::Board& board) { startLogger(optionsFor(board)); }

    /// The documented order: configure, go online, wait for status 1, configure again.
    static void goOnline(const std::vector<TestInterface*>& interfaces);

    /// Stops the receive thread; checks that each interface heard of it.
    static void goOffline(const std::vector<TestInterface*>& interfaces);

    /// What the process holds, the ends of the logger in it included. To be taken before anything goes online.
    Census settledCensus() const;

    static CanTxHandler& transmitter() { return *CanTxHandler::getInstance(true); }
    static MsgRxHandler& dispatcher() { return *MsgRxHandler::getInstance(); }

    const TemporaryDirectory directory;
    const std::string socketPath = directory.path("logger");
    std::unique_ptr<vlogger::VirtualLogger> logger;
};

/// Microseconds since the epoch.
uint64_t systemTimeUs();

/// Replaces the number that ends a line with ", fd=" and a number by "N".
std::vector<std::string> withoutDescriptors(std::vector<std::string> lines);

/// The lines of a text.
std::vector<std::string> linesOf(const std::string& text);

/// How often `line` is among `lines`.
size_t countOf(const std::vector<std::string>& lines, const std::string& line);
