#include <logger/VirtualLogger.h>

#include <logger/EpollLoop.h>
#include <logger/LoggerCore.h>
#include <logger/SignalsBlocked.h>
#include <logger/StageCounting.h>
#include <logger/SteadyClock.h>
#include <logger/SystemError.h>

#include <pthread.h>
#include <sys/socket.h>

#include <cerrno>
#include <stdexcept>
#include <thread>
#include <utility>

namespace vlogger {

namespace {

std::shared_ptr<Clock> clockOf(const Options& options)
{
    return options.clock ? options.clock : std::make_shared<SteadyClock>();
}

} // namespace

class VirtualLogger::Impl
{
public:
    explicit Impl(Options options) : loop(clockOf(options)), core(loop, std::move(options)), thread(startThread())
    {
    }

    ~Impl()
    {
        loop.stop();
        thread.join();
    }
    Impl(const Impl&) = delete;
    Impl& operator=(const Impl&) = delete;

    /// Does something with one device on the loop's thread.
    template <typename Work>
    void withDevice(std::string_view path, Work work)
    {
        Device* const device = core.deviceTable().find(path); // the table itself never changes
        if (device == nullptr) {
            throw std::invalid_argument("no board has a device " + std::string(path));
        }
        loop.call([&] { work(*device); });
    }

    EpollLoop loop;
    LoggerCore core;

private:
    std::thread startThread()
    {
        const SignalsBlocked blocked;
        std::thread started([this] { loop.run(); });
        pthread_setname_np(started.native_handle(), "virtual-logger");
        return started;
    }

    std::thread thread;
};

VirtualLogger::VirtualLogger(Options options) : impl(std::make_unique<Impl>(std::move(options))) {}

VirtualLogger::~VirtualLogger() = default;

int VirtualLogger::connect()
{
    int ends[2] = {-1, -1};
    if (::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0) {
        throw systemError(errno, "cannot connect to the virtual logger");
    }
    wire::FileDescriptor clientsEnd(ends[0]);
    impl->loop.call([&] { impl->core.addClient(wire::FileDescriptor(ends[1]), true); });
    return clientsEnd.release();
}

void VirtualLogger::sendFromNode(const wire::CanRecord& record)
{
    if (record.lengthBytes > wire::CAN_PAYLOAD_MAX_BYTES) {
        throw std::invalid_argument("a frame has at most 64 bytes, not " + std::to_string(record.lengthBytes));
    }
    const auto frame = std::make_shared<NodeFrame>(record, impl->core.frameRouter());
    impl->loop.post([this, frame] { impl->core.sendFromNode(frame); });
    frame->wait();
}

void VirtualLogger::setDeviceMissing(std::string_view path, bool missing)
{
    impl->withDevice(path, [=](Device& device) { device.missing = missing; });
}

void VirtualLogger::failWrites(std::string_view path, int errorNumber, unsigned count)
{
    if (errorNumber <= 0) {
        throw std::invalid_argument("a failing write needs an error number above 0");
    }
    impl->withDevice(path, [=](Device& device) { device.transmit.failWrites(errorNumber, count); });
}

void VirtualLogger::vanish(std::string_view path)
{
    impl->withDevice(path, [](Device& device) {
        device.missing = true;
        device.trace.vanish();
        device.transmit.vanish();
    });
}

void VirtualLogger::cutNextRecord(std::string_view path)
{
    impl->withDevice(path, [](Device& device) {
        for (const auto& stream : device.trace.openStreams()) {
            stream->cutNextRecord();
        }
    });
}

void VirtualLogger::malformNextRecord(std::string_view path)
{
    impl->withDevice(path, [](Device& device) {
        for (const auto& stream : device.trace.openStreams()) {
            stream->malformNextRecord();
        }
    });
}

void VirtualLogger::setSynchronised(std::string_view deviceName, bool synchronised)
{
    if (!impl->loop.call([&] { return impl->core.clock().setSynchronised(deviceName, synchronised); })) {
        throw std::invalid_argument("no device has a clock " + std::string(deviceName));
    }
}

uint64_t VirtualLogger::deviceOffsetUs() const
{
    return impl->loop.call([this] { return impl->core.clock().offsetUs(); });
}

bool VirtualLogger::settle(std::chrono::milliseconds limit)
{
    return impl->loop.awaitQuiet(limit);
}

Statistics VirtualLogger::statistics() const
{
    return impl->loop.call([this] { return impl->core.statistics(); });
}

std::vector<ReaderStatistics> VirtualLogger::readerStatistics() const
{
    return impl->loop.call([this] { return impl->core.readerStatistics(); });
}

std::vector<ChannelStatistics> VirtualLogger::channelStatistics() const
{
    return impl->loop.call([this] { return channelCounts(impl->core.frameRouter()); });
}

wire::StageReport VirtualLogger::stageReport() const
{
    return impl->loop.call([this] { return impl->core.stageReport(); });
}

} // namespace vlogger
