#pragma once

#include <EthernetInterface.h>

#include <support/RecordedLines.h>
#include <support/Recorder.h>
#include <support/ScriptedServer.h>

#include <vqutil/TimeOfDayClock.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

/// Keeps what an interface tells, and shows each status among the lines as "{status 1}".
class NotingCallback : public InterfaceBaseCb
{
public:
    explicit NotingCallback(RecordedLines& output) : lines(output) {}

    void onDataReceived(const uint8_t* data, size_t size) override { received.add(Bytes(data, data + size)); }

    void onInterfaceState(int status) override
    {
        lines.note("{status " + std::to_string(status) + "}");
        statuses.add(status);
    }

    /// Waits until a status has been raised so many times.
    bool awaitStatus(int status, size_t times = 1) const
    {
        return statuses.waitUntil([=](const std::vector<int>& all) {
            return std::count(all.begin(), all.end(), status) >= static_cast<std::ptrdiff_t>(times);
        });
    }

    Recorder<Bytes> received;
    Recorder<int> statuses;

private:
    RecordedLines& lines;
};

/// An interface with one callback, and its output. Ports are chosen at run time: in lines they stand as "PORT".
class EthernetTest : public testing::Test
{
protected:
    using Lines = std::vector<std::string>;

    EthernetTest() : sut(std::make_unique<EthernetInterface>())
    {
        vqhost::setEpochClock(noon);
        sut->callbacks.insert(&callback);
    }
    ~EthernetTest() override { vqhost::setEpochClock(nullptr); }

    /// It stays noon, so that only the first reception closes a bus-load interval, however slow the machine is.
    static uint64_t noon() noexcept { return 12 * 3'600'000'000; }

    /// The configuration of the tests: by TCP to 127.0.0.1, by UDP from 127.0.0.1 to 127.0.0.2.
    static EthernetInterface::Configuration tcp(uint16_t port)
    {
        return {"eth1", ScriptedTcpServer::IP, "127.0.0.1", "255.0.0.0", "127.0.0.254", port, true};
    }
    static EthernetInterface::Configuration udp(uint16_t port)
    {
        return {"eth1", ScriptedUdpServer::IP, ScriptedUdpServer::CLIENT_IP, "255.0.0.0", "127.0.0.254", port,
                false};
    }

    int configure(const EthernetInterface::Configuration& configuration)
    {
        port = std::to_string(configuration.port);
        serverIp = configuration.serverIp;
        return sut->configure(configuration);
    }

    /// Configures, expects to be connected, waits until the receive thread runs, and drops the lines so far.
    void connectTo(const EthernetInterface::Configuration& configuration)
    {
        ASSERT_EQ(configure(configuration), 1);
        ASSERT_TRUE(await("[INFO] ETH[" + configuration.serverIp + ":PORT]::threadCode() Start RX thread."));
        lines.take();
    }

    /// Ends the interface, and with it its thread.
    void destroy() { sut.reset(); }

    /// Waits for a line in which the port stands as "PORT".
    bool await(std::string line, size_t times = 1) const
    {
        if (const size_t place = line.find("PORT"); place != std::string::npos) {
            line.replace(place, 4, port);
        }
        return lines.await(line, times);
    }

    /// Waits until the receive thread has dealt with everything and found nothing more.
    bool awaitIdle()
    {
        const std::string idle = "[DEBUG] ETH[" + serverIp + ":" + port + "]::threadCode() pselect() timeout.";
        const size_t before = lines.count(idle);
        sut->logLevel = 3;
        // The first one may belong to a wait that was over before the caller's datagram came.
        const bool isIdle = lines.await(idle, before + 2);
        sut->logLevel = 0;
        return isIdle;
    }

    /// The lines since the last call, with "PORT" for the port.
    Lines takeLines()
    {
        Lines taken = lines.take();
        for (std::string& line : taken) {
            for (const std::string before : {":", "port="}) {
                for (size_t place = 0; (place = line.find(before + port, place)) != std::string::npos;) {
                    line.replace(place + before.size(), port.size(), "PORT");
                }
            }
        }
        return taken;
    }

    /// The same without what the receive thread says in threadCode, whose place among the others is not fixed.
    Lines takeCallerLines()
    {
        Lines taken = takeLines();
        taken.erase(
            std::remove_if(taken.begin(), taken.end(),
                           [](const std::string& line) { return line.find("::threadCode()") != line.npos; }),
            taken.end());
        return taken;
    }

    RecordedLines lines;
    NotingCallback callback{lines};
    std::unique_ptr<EthernetInterface> sut;
    std::string port = "none";
    std::string serverIp;
};
