#pragma once

#include <logger/Connection.h>
#include <logger/ConnectionList.h>
#include <logger/PacketBatch.h>
#include <logger/Watch.h>
#include <wire/FileDescriptor.h>

#include <optional>

namespace vlogger {

class Router;
struct Statistics;

/// A tool that sends on the buses without being a channel: its packets are frames for the bus of their channel.
///
/// While a frame has to wait for a reader, nothing more is read from the tool; the system then holds it back.
class InjectConnection : public Connection
{
public:
    InjectConnection(EpollLoop& eventLoop, ConnectionList& owner, wire::FileDescriptor connection,
                     Router& frameRouter, Statistics& counters);

    void close() override;
    void onReady(uint32_t events) override;
    void resume() override;

private:
    bool receive();
    bool deliver();

    ConnectionList& list;
    wire::FileDescriptor fd;
    std::optional<Watch> watch;
    Router& router;
    Statistics& statistics;
    PacketBatch batch;
    size_t next = 0; ///< first packet of the batch that is not delivered
};

} // namespace vlogger
