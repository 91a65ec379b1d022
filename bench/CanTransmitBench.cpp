#include <BenchProcess.h>
#include <TransmitterMain.h>

#include <CanTxHandler.h>

#include <benchmark/benchmark.h>

#include <cstdarg>
#include <cstring>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

// CanTxHandler::send() to a device that swallows everything, beside the bare write of the same bytes.

extern "C" int __real_open(const char* path, int flags, ...);
extern "C" int __wrap_open(const char* path, int flags, ...);

int __wrap_open(const char* path, int flags, ...)
{
    if (std::strcmp(path, "/dev/vqlog-fpgab") == 0) {
        return __real_open("/dev/null", flags);
    }
    va_list arguments;
    va_start(arguments, flags);
    const unsigned mode = (flags & O_CREAT) != 0 ? va_arg(arguments, unsigned) : 0;
    va_end(arguments);
    return __real_open(path, flags, mode);
}

namespace {

CANExtTraceMessage frameOf(int64_t payloadBytes)
{
    const uint8_t payload[64] = {1, 2, 3, 4, 5, 6, 7, 8};
    return {11,    0,      3, CAN_FRAME_TX, CAN_STATE_OK, CAN_FD_STANDARD, static_cast<uint8_t>(payloadBytes),
            0x123, payload};
}

void countFrames(benchmark::State& state)
{
    state.SetItemsProcessed(state.iterations());
    state.SetBytesProcessed(state.iterations() * state.range(0));
}

void transmitBareWrite(benchmark::State& state)
{
    const bench::SecondThread thread;
    std::vector<uint8_t> record;
    frameOf(state.range(0)).createByteArray(record, true, false);
    const int fd = open("/dev/null", O_WRONLY | O_SYNC);
    for (auto _ : state) {
        benchmark::DoNotOptimize(write(fd, record.data(), record.size()));
    }
    close(fd);
    countFrames(state);
}

void transmitSend(benchmark::State& state)
{
    const bench::SecondThread thread;
    CanTxHandler* const transmitter = CanTxHandler::getInstance(true);
    CANExtTraceMessage frame = frameOf(state.range(0));
    for (auto _ : state) {
        if (transmitter->send(frame) != 0) {
            state.SkipWithError("send failed");
            break;
        }
    }
    countFrames(state);
}

BENCHMARK(transmitBareWrite)->ArgName("payload")->Arg(8)->Arg(64);
BENCHMARK(transmitSend)->ArgName("payload")->Arg(8)->Arg(64);

} // namespace

int main(int argc, char** argv)
{
    return bench::runWithOpenTransmitter(argc, argv);
}
