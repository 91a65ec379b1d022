#pragma once

#include <logger/Connection.h>
#include <logger/ConnectionList.h>
#include <logger/PacketBatch.h>
#include <logger/TransmitDevice.h>
#include <logger/Watch.h>
#include <wire/FileDescriptor.h>

#include <optional>

namespace vlogger {

class Router;
struct Statistics;

/// A client that has a device open for writing: its packets are frames for the buses.
///
/// While a frame has to wait for a reader, nothing more is read from the client; the system then holds its writes
/// back.
class WriterConnection : public Connection
{
public:
    WriterConnection(EpollLoop& eventLoop, ConnectionList& owner, wire::FileDescriptor connection,
                     TransmitDevice& transmitDevice, Router& frameRouter, Statistics& counters);
    ~WriterConnection() override;

    /// The next `count` writes fail, after those of earlier calls.
    void failWrites(int errorNumber, unsigned count);

    void close() override;
    void onReady(uint32_t events) override;
    void resume() override;

private:
    void receive();
    bool deliver();
    bool finishBatch();
    void sendFaults();
    uint32_t wantedEvents() const;

    ConnectionList& list;
    wire::FileDescriptor fd;
    std::optional<Watch> watch;
    TransmitDevice& device;
    Router& router;
    Statistics& statistics;
    PacketBatch batch;
    size_t next = 0;         ///< first packet of the batch that is not delivered
    size_t emptyPackets = 0; ///< of this batch
    WriteFaults faults;
};

} // namespace vlogger
