#pragma once

#include <logger/ConnectionList.h>
#include <logger/DeviceClock.h>
#include <logger/DeviceTable.h>
#include <logger/EpollLoop.h>
#include <logger/Listener.h>
#include <logger/MonitorHub.h>
#include <logger/NodeFrame.h>
#include <logger/ProcessBus.h>
#include <logger/Router.h>
#include <logger/SocketPath.h>
#include <logger/VirtualLogger.h>
#include <logger/node/NodeMember.h>
#include <wire/StageStatistics.h>

#include <memory>
#include <optional>
#include <string_view>
#include <vector>

namespace vlogger {

/// The virtual logger without its thread: everything in here belongs to the loop's thread.
class LoggerCore
{
public:
    /// @throws as VirtualLogger's constructor
    LoggerCore(EpollLoop& eventLoop, Options settings);
    ~LoggerCore();

    /// A connection that begins with a request.
    /// @param trusted  the client is known to belong to this user
    void addClient(wire::FileDescriptor connection, bool trusted);

    /// Sends a frame of a node, now or once a reader has room. Its thread waits for it.
    void sendFromNode(const std::shared_ptr<NodeFrame>& frame);

    DeviceTable& deviceTable() { return devices; }
    DeviceClock& clock() { return deviceClock; }
    Router& frameRouter() { return router; }
    Statistics statistics();
    std::vector<ReaderStatistics> readerStatistics();
    wire::StageReport stageReport();

private:
    void serve(wire::FileDescriptor connection, const wire::Request& request);
    void openForWriting(wire::FileDescriptor connection, std::string_view path);
    void openForReading(wire::FileDescriptor connection, std::string_view path);
    /// Opens a stream of the kind that `open` makes over its end of a socket pair, and hands out the other end.
    template <typename Open>
    void openStream(wire::FileDescriptor connection, const std::string& source, Open open);
    void openMonitor(wire::FileDescriptor connection, std::string_view channels);
    void joinProcessBus(wire::FileDescriptor connection, const std::string& name);
    void openForInjection(wire::FileDescriptor connection);
    void answerStatistics(wire::FileDescriptor connection);
    wire::Reply addressReply(const std::string& address) const;
    wire::Reply offsetReply(std::string_view deviceName);
    void refuse(wire::FileDescriptor connection, int errorNumber);

    EpollLoop& loop;
    const Options options;
    Statistics counters;
    DeviceClock deviceClock;
    DeviceTable devices;
    MonitorHub monitors;
    ProcessBus processBus;
    Router router;
    std::vector<std::shared_ptr<NodeMember>> nodes;
    ConnectionList connections;
    std::vector<std::weak_ptr<NodeFrame>> nodeFrames; ///< threads may be waiting for these
    std::optional<SocketPath> socketPath;
    std::optional<Listener> listener;
};

} // namespace vlogger
