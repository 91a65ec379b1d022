#pragma once

#include "Traffic.h"

#include <CanInterface.h>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <map>
#include <mutex>
#include <optional>

/// Counts what arrives, and lets the main thread wait for it.
class Arrivals
{
public:
    void add(const RowKey& row);

    /// Waits until every row has as many frames as `expected` names. What one row has too many does not stand for
    /// what another one lacks.
    /// @param patience  how long nothing at all may arrive before the wait is given up
    /// @return time at which the last frame arrived; nothing if the wait was given up
    std::optional<std::chrono::steady_clock::time_point> waitFor(const std::map<RowKey, uint64_t>& expected,
                                                                 std::chrono::milliseconds patience);

    /// Frames that have arrived, by row.
    std::map<RowKey, uint64_t> counts();

private:
    std::mutex mutex;
    std::condition_variable complete;
    std::map<RowKey, uint64_t> byRow;
    std::map<RowKey, uint64_t> awaited; ///< frames that rows still lack; empty while nobody waits
    uint64_t count = 0;
};

/// Lets the main thread wait until the dispatcher is online.
class StartState : public InterfaceBaseCb
{
public:
    void onDataReceived(const uint8_t* data, size_t size) override;
    void onInterfaceState(int status) override;

    /// Waits for the outcome of going online.
    /// @return true: the devices are open; false: one cannot be opened, or nothing happened for `patience`
    bool waitForOnline(std::chrono::seconds patience);

private:
    std::mutex mutex;
    std::condition_variable changed;
    int state = 0;
};

/// Receives everything that is sent on one channel, on the channel wired to it.
class Receiver : public InterfaceBaseCb
{
public:
    /// @param sendingChannel  the other end of the wire
    /// @param traffic         names the identifiers to receive
    /// @param start           hears of the dispatcher's states, too; outlives the receiver, like `arrivals`
    Receiver(uint8_t sendingChannel, const Traffic& traffic, StartState& start, Arrivals& arrivals);

    /// Registers for all identifiers; once before going online, once after.
    void configure();

    void onDataReceived(const uint8_t* data, size_t size) override;
    void onInterfaceState(int status) override;

private:
    const uint8_t sender;
    Arrivals& arrivals;
    CanInterface::Configuration configuration{};
    CanInterface interface;
};
