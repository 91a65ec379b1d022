#pragma once

#include "LoggerClient.h"

#include <cstdint>
#include <map>
#include <string>

namespace tool {

/// Sends frames to the buses, from outside or as a channel's application would.
class Injector
{
public:
    /// @param asChannel  the channel sends: it does not hear the frame, the others on its bus do
    Injector(const LoggerClient& loggerClient, bool asChannel);

    /// Waits while a reader holds senders back.
    /// @throws std::system_error if the virtual logger has gone or a device fails
    void send(const wire::CanRecord& record);

    /// Waits until everything has been delivered.
    /// @throws std::system_error if that cannot be known, because the virtual logger has gone
    void finish();

private:
    int descriptorFor(uint8_t channel);

    const LoggerClient& client;
    const bool isChannel;
    wire::Board board;
    std::map<std::string, wire::FileDescriptor, std::less<>> devices;
    wire::FileDescriptor outside;
};

} // namespace tool
