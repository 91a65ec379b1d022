#include <logger/LoggerCore.h>

#include <logger/Diagnostics.h>
#include <logger/InjectConnection.h>
#include <logger/PeerCredentials.h>
#include <logger/RequestConnection.h>
#include <logger/StageCounting.h>
#include <logger/WriterConnection.h>
#include <wire/PacketSocket.h>

#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <utility>

namespace vlogger {

namespace {

/// Answers a client. One that does not take the answer has gone, which shows by itself.
bool reply(const wire::FileDescriptor& connection, const wire::Reply& answer, int passed = -1)
{
    return wire::sendPacket(connection.get(), wire::encodeReply(answer), passed, MSG_DONTWAIT) == 0;
}

} // namespace

LoggerCore::LoggerCore(EpollLoop& eventLoop, Options settings)
    : loop(eventLoop), options(std::move(settings)), deviceClock(eventLoop.clock()),
      devices(eventLoop, options, counters), monitors(eventLoop, options),
      processBus(eventLoop, connections, options, counters),
      router(options, devices, deviceClock, monitors, processBus, counters), connections(eventLoop)
{
    for (const std::shared_ptr<Node>& node : options.nodes) {
        if (node == nullptr) {
            throw std::invalid_argument("a node of the options is a null pointer");
        }
        router.attach(*nodes.emplace_back(std::make_shared<NodeMember>(loop, router, node)));
    }
    if (options.socketPath.empty()) {
        return;
    }
    socketPath.emplace(options.socketPath);
    listener.emplace(
        loop, socketPath->takeListener(),
        [this](wire::FileDescriptor client) {
            const bool trusted = isSameUser(client.get());
            addClient(std::move(client), trusted);
        },
        [this] { ++counters.connectionsRefused; });
}

LoggerCore::~LoggerCore()
{
    for (const std::weak_ptr<NodeFrame>& waiting : nodeFrames) {
        if (const std::shared_ptr<NodeFrame> frame = waiting.lock()) {
            frame->giveUp();
        }
    }
}

void LoggerCore::addClient(wire::FileDescriptor connection, bool trusted)
{
    if (!trusted) {
        diagnostics::warn("a client of another user is refused");
        refuse(std::move(connection), EACCES);
        return;
    }
    connections.add(std::make_shared<RequestConnection>(
        loop, connections, std::move(connection),
        [this](wire::FileDescriptor client, const wire::Request& request) { serve(std::move(client), request); },
        [this](wire::FileDescriptor client, int errorNumber) { refuse(std::move(client), errorNumber); }));
}

void LoggerCore::sendFromNode(const std::shared_ptr<NodeFrame>& frame)
{
    std::erase_if(nodeFrames, [](const std::weak_ptr<NodeFrame>& waiting) { return waiting.expired(); });
    nodeFrames.push_back(frame);
    frame->resume();
}

Statistics LoggerCore::statistics()
{
    Statistics now = counters;
    for (const Device& device : devices.all()) {
        now.readers += device.trace.openStreams().size();
        now.writers += device.transmit.writerCount();
    }
    now.busClients = processBus.memberCount();
    return now;
}

std::vector<ReaderStatistics> LoggerCore::readerStatistics()
{
    std::vector<ReaderStatistics> readers;
    for (const Device& device : devices.all()) {
        for (const auto& stream : device.trace.openStreams()) {
            readers.push_back(stream->statistics());
        }
    }
    return readers;
}

wire::StageReport LoggerCore::stageReport()
{
    wire::StageReport report{.uptimeUs = deviceClock.nowUs(), .stages = busCounts(router)};
    for (const Device& device : devices.all()) {
        addCounts(device.path, device.trace, report.stages);
    }
    for (const auto& stream : monitors.openStreams()) {
        report.stages.push_back(stream->counts());
    }
    return report;
}

void LoggerCore::serve(wire::FileDescriptor connection, const wire::Request& request)
{
    switch (request.kind) {
    case wire::Kind::OPEN_WRITE:
        openForWriting(std::move(connection), request.text);
        return;
    case wire::Kind::OPEN_READ:
        openForReading(std::move(connection), request.text);
        return;
    case wire::Kind::BOARD:
        reply(connection, {.errorNumber = 0, .body = wire::encodeBoard(options.board)});
        return;
    case wire::Kind::OFFSET:
        reply(connection, offsetReply(request.text));
        return;
    case wire::Kind::BUS:
        joinProcessBus(std::move(connection), request.text);
        return;
    case wire::Kind::MONITOR:
        openMonitor(std::move(connection), request.text);
        return;
    case wire::Kind::INJECT:
        openForInjection(std::move(connection));
        return;
    case wire::Kind::STATISTICS:
        answerStatistics(std::move(connection));
        return;
    case wire::Kind::ADDRESS:
        reply(connection, addressReply(request.text));
        return;
    case wire::Kind::FINISH:
    case wire::Kind::FAULT:
    case wire::Kind::REPLY:
        break;
    }
    refuse(std::move(connection), EINVAL);
}

void LoggerCore::openForWriting(wire::FileDescriptor connection, std::string_view path)
{
    Device* const device = devices.forWriting(path);
    if (device == nullptr) {
        reply(connection, {.errorNumber = ENOENT, .body = {}});
        return;
    }
    if (reply(connection, {})) {
        connections.add(std::make_shared<WriterConnection>(loop, connections, std::move(connection),
                                                           device->transmit, router, counters));
    }
}

void LoggerCore::openForReading(wire::FileDescriptor connection, std::string_view path)
{
    Device* const device = devices.forReading(path);
    if (device == nullptr) {
        reply(connection, {.errorNumber = ENOENT, .body = {}});
        return;
    }
    openStream(std::move(connection), device->path,
               [&](wire::FileDescriptor end) -> TraceStream& { return device->trace.open(std::move(end)); });
}

void LoggerCore::openMonitor(wire::FileDescriptor connection, std::string_view channels)
{
    const auto watched = wire::channelsOfText(channels);
    if (!watched) {
        refuse(std::move(connection), EINVAL);
        return;
    }
    openStream(std::move(connection), "the buses",
               [&](wire::FileDescriptor end) -> TraceStream& { return monitors.open(std::move(end), *watched); });
}

template <typename Open>
void LoggerCore::openStream(wire::FileDescriptor connection, const std::string& source, Open open)
{
    int ends[2] = {-1, -1};
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) {
        const int reason = errno;
        diagnostics::error("a reader of " + source + " is refused: " + std::strerror(reason));
        refuse(std::move(connection), reason);
        return;
    }
    const wire::FileDescriptor readersEnd(ends[0]);
    // The stream is there before the answer is: what is sent from then on reaches the reader.
    TraceStream& stream = open(wire::FileDescriptor(ends[1]));
    if (!reply(connection, {}, readersEnd.get())) {
        stream.close();
    }
}

void LoggerCore::joinProcessBus(wire::FileDescriptor connection, const std::string& name)
{
    if (!wire::isBusName(name)) {
        refuse(std::move(connection), EINVAL);
    } else if (name == wire::TRACE_LOGGER_NAME) {
        refuse(std::move(connection), EADDRINUSE); // that is this virtual logger
    } else if (reply(connection, {})) {
        processBus.addMember(std::move(connection), name);
    }
}

void LoggerCore::openForInjection(wire::FileDescriptor connection)
{
    if (reply(connection, {})) {
        connections.add(
            std::make_shared<InjectConnection>(loop, connections, std::move(connection), router, counters));
    }
}

void LoggerCore::answerStatistics(wire::FileDescriptor connection)
{
    if (reply(connection, {})) {
        wire::sendPacket(connection.get(), wire::encodeStageReport(stageReport()), -1, MSG_DONTWAIT);
    }
}

wire::Reply LoggerCore::addressReply(const std::string& address) const
{
    const bool isTaken = std::ranges::find(options.takenAddresses, address) != options.takenAddresses.end();
    return {.errorNumber = isTaken ? EADDRINUSE : 0, .body = {}};
}

wire::Reply LoggerCore::offsetReply(std::string_view deviceName)
{
    const bool known = deviceName == DeviceClock::MAIN_NAME ||
                       (deviceName == DeviceClock::EXTENSION_NAME && board::hasExtension(options.board));
    if (!known) {
        return {.errorNumber = ENOENT, .body = {}};
    }
    if (!deviceClock.isSynchronised(deviceName)) {
        return {.errorNumber = ENODATA, .body = {}};
    }
    return {.errorNumber = 0, .body = wire::encodeOffset(deviceClock.offsetUs())};
}

void LoggerCore::refuse(wire::FileDescriptor connection, int errorNumber)
{
    ++counters.connectionsRefused;
    reply(connection, {.errorNumber = errorNumber, .body = {}});
}

} // namespace vlogger
