#pragma once

#include <logger/Connection.h>
#include <logger/ConnectionList.h>
#include <logger/Watch.h>
#include <wire/FileDescriptor.h>
#include <wire/Protocol.h>

#include <functional>
#include <optional>

namespace vlogger {

/// A connection whose client has not yet said what it wants. Waits for its first packet, for as long as it takes.
class RequestConnection : public Connection
{
public:
    using Serve = std::function<void(wire::FileDescriptor, const wire::Request&)>;
    using Refuse = std::function<void(wire::FileDescriptor, int errorNumber)>;

    /// @param onRequest  gets the connection with a request that was understood
    /// @param onGarbage  gets it with the error number to answer anything else
    RequestConnection(EpollLoop& eventLoop, ConnectionList& owner, wire::FileDescriptor connection, Serve onRequest,
                      Refuse onGarbage);

    void close() override;
    void onReady(uint32_t events) override;
    void resume() override {}

private:
    ConnectionList& list;
    wire::FileDescriptor fd;
    std::optional<Watch> watch;
    const Serve serve;
    const Refuse refuse;
};

} // namespace vlogger
