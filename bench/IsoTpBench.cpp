// ISO-TP in memory. The transmitter hands every frame straight to the other handler; the limit copies the same
// bytes frame by frame. Then the cost of one received consecutive frame, and how long separation times really are.

#include <support/FakeBus.h>
#include <support/FakeTransmitter.h>

#include <CanIsoTpHandler.h>

#include <vqtrace/CANExtTraceMessage.h>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstring>
#include <thread>
#include <vector>

#include <sys/select.h>
#include <unistd.h>

namespace {

constexpr uint32_t SENDER_ID = 0x7E0;
constexpr uint32_t RECEIVER_ID = 0x7E8;
constexpr size_t FIRST_FRAME_BYTES = 6;
constexpr size_t CONSECUTIVE_FRAME_BYTES = 7;

size_t consecutiveFramesOf(size_t messageBytes)
{
    return (messageBytes - FIRST_FRAME_BYTES + CONSECUTIVE_FRAME_BYTES - 1) / CONSECUTIVE_FRAME_BYTES;
}

/// Counts messages; a message's end can be awaited.
class Counter : public CanIsoTpHandlerCallback
{
public:
    void canIsoTpHandlerCb(const CANTransportTraceMessage*) override
    {
        ++messages;
        messages.notify_all();
    }
    void canIsoTpHandlerStatusCb(StatusCBType_t type, int, const std::string&) override
    {
        if (type == STATUS_ERROR) {
            ++errors;
        }
    }

    std::atomic<uint64_t> messages{0};
    std::atomic<uint64_t> errors{0};
};

struct Receiver
{
    Receiver()
    {
        FakeTransmitter::instance().records = false;
        handler.setCallback(counter);
        handler.start();
    }
    ~Receiver() { handler.stop(); }

    Counter counter;
    CanIsoTpHandler handler{"TraceLogger", "Diagnostic", 0, SENDER_ID, CAN_STANDARD, RECEIVER_ID, CAN_STANDARD};
};

CANExtTraceMessage frameTo(uint32_t id, const std::vector<uint8_t>& bytes)
{
    return {CANExtTraceMessage::MESSAGE_ID, 0, 0, CAN_FRAME_DATA, CAN_STATE_OK, CAN_STANDARD, 8, id, bytes.data()};
}

void isoTpCopy(benchmark::State& state)
{
    const auto messageBytes = static_cast<size_t>(state.range(0));
    const std::vector<uint8_t> payload(messageBytes, 0x55);
    for (auto _ : state) {
        std::vector<uint8_t> received;
        received.reserve(messageBytes);
        uint8_t frame[8];
        for (size_t done = 0; done < messageBytes; done += CONSECUTIVE_FRAME_BYTES) {
            const size_t count = std::min(CONSECUTIVE_FRAME_BYTES, messageBytes - done);
            std::memcpy(frame + 1, payload.data() + done, count);
            benchmark::DoNotOptimize(frame);
            received.insert(received.end(), frame + 1, frame + 1 + count);
        }
        benchmark::DoNotOptimize(received.data());
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
    state.SetItemsProcessed(state.iterations());
}

void isoTpMessage(benchmark::State& state)
{
    Receiver receiver;
    Counter senderCounter;
    CanIsoTpHandler sender("TraceLogger", "Diagnostic", 0, RECEIVER_ID, CAN_STANDARD, SENDER_ID, CAN_STANDARD);
    sender.setCallback(senderCounter);
    sender.start();
    FakeTransmitter::instance().onFrame = [&](const CANExtTraceMessage& frame) {
        (frame.canId == SENDER_ID ? receiver.handler : sender).vqpBusProxyCb(&frame, {}, {});
        return 0;
    };
    const std::vector<uint8_t> payload(static_cast<size_t>(state.range(0)), 0x55);
    uint64_t sent = 0;
    for (auto _ : state) {
        sender.sendTxID(payload.data(), payload.size());
        receiver.counter.messages.wait(sent++);
    }
    sender.stop();
    if (senderCounter.errors + receiver.counter.errors != 0) {
        state.SkipWithError("a transfer was aborted");
    }
    FakeTransmitter::instance().onFrame = nullptr;
    state.SetBytesProcessed(state.iterations() * state.range(0));
    state.SetItemsProcessed(state.iterations());
}

constexpr size_t LARGEST_MESSAGE_BYTES = 4095;

/// The frames of the largest message, as the bus delivers them.
std::vector<CANExtTraceMessage> framesOfLargestMessage()
{
    std::vector<CANExtTraceMessage> frames{frameTo(SENDER_ID, {0x1F, 0xFF, 1, 2, 3, 4, 5, 6})};
    for (size_t i = 1; i <= consecutiveFramesOf(LARGEST_MESSAGE_BYTES); ++i) {
        frames.push_back(frameTo(SENDER_ID, {static_cast<uint8_t>(0x20 + i % 16), 1, 2, 3, 4, 5, 6, 7}));
    }
    return frames;
}

constexpr bool FOR_READING = true;
constexpr bool FOR_WRITING = false;

void waitFor(int fd, bool forReading)
{
    fd_set watched;
    FD_ZERO(&watched);
    FD_SET(fd, &watched);
    timeval limit{1, 0};
    benchmark::DoNotOptimize(
        select(fd + 1, forReading ? &watched : nullptr, forReading ? nullptr : &watched, nullptr, &limit));
}

/// What no reassembly can do without: each frame's payload joins the message.
void isoTpReassemblyCopy(benchmark::State& state)
{
    const std::vector<CANExtTraceMessage> frames = framesOfLargestMessage();
    for (auto _ : state) {
        std::vector<uint8_t> message;
        message.reserve(LARGEST_MESSAGE_BYTES);
        for (const CANExtTraceMessage& frame : frames) {
            message.insert(message.end(), frame.data + 1, frame.data + frame.length);
            benchmark::DoNotOptimize(message.data());
        }
    }
    state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(frames.size()));
}

/// The same with what the protocol's time limit costs: after every frame the worker, a thread that waits at the
/// other end of a pipe, is told to start its wait again.
void isoTpReassemblyCommand(benchmark::State& state)
{
    int ends[2];
    if (pipe(ends) != 0) {
        state.SkipWithError("no pipe");
        return;
    }
    std::thread worker([readEnd = ends[0]] {
        char command = 0;
        do {
            waitFor(readEnd, FOR_READING);
        } while (read(readEnd, &command, 1) == 1);
    });
    const std::vector<CANExtTraceMessage> frames = framesOfLargestMessage();
    for (auto _ : state) {
        std::vector<uint8_t> message;
        message.reserve(LARGEST_MESSAGE_BYTES);
        for (const CANExtTraceMessage& frame : frames) {
            message.insert(message.end(), frame.data + 1, frame.data + frame.length);
            benchmark::DoNotOptimize(message.data());
            waitFor(ends[1], FOR_WRITING);
            benchmark::DoNotOptimize(write(ends[1], "i", 1));
        }
    }
    close(ends[1]);
    worker.join();
    close(ends[0]);
    state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(frames.size()));
}

void isoTpReassembly(benchmark::State& state)
{
    Receiver receiver;
    const std::vector<CANExtTraceMessage> frames = framesOfLargestMessage();
    for (auto _ : state) {
        for (const CANExtTraceMessage& frame : frames) {
            receiver.handler.vqpBusProxyCb(&frame, {}, {});
        }
    }
    if (receiver.counter.errors != 0) {
        state.SkipWithError("a transfer was aborted");
    }
    state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(frames.size()));
}

/// Time of the system's own sleep or of the separation time that a flow control frame sets, in microseconds.
void reportMean(benchmark::State& state, std::chrono::steady_clock::time_point begin)
{
    const std::chrono::duration<double, std::micro> taken = std::chrono::steady_clock::now() - begin;
    state.counters["mean_us"] = taken.count() / static_cast<double>(state.iterations());
    state.counters["wanted_us"] = static_cast<double>(state.range(1));
}

void separationTimeBareSleep(benchmark::State& state)
{
    const auto begin = std::chrono::steady_clock::now();
    for (auto _ : state) {
        usleep(static_cast<useconds_t>(state.range(1)));
    }
    reportMean(state, begin);
}

void separationTimeSleep(benchmark::State& state)
{
    FakeTransmitter::instance().records = false;
    CanIsoTpHandler handler("TraceLogger", "Diagnostic", 0, RECEIVER_ID, CAN_STANDARD, SENDER_ID, CAN_STANDARD);
    const std::vector<uint8_t> payload(20);
    handler.sendTxID(payload.data(), payload.size());
    handler.processSendQueue(); // the first frame; no worker runs
    const CANExtTraceMessage flowControl =
        frameTo(RECEIVER_ID, {0x30, 0, static_cast<uint8_t>(state.range(0)), 0, 0, 0, 0, 0});
    handler.vqpBusProxyCb(&flowControl, {}, {});
    const auto begin = std::chrono::steady_clock::now();
    for (auto _ : state) {
        handler.sleepSeparationTime();
    }
    reportMean(state, begin);
}

void separationTimes(benchmark::internal::Benchmark* benchmark)
{
    benchmark->ArgNames({"st", "us"})
        ->Args({0xF1, 100})
        ->Args({0xF5, 500})
        ->Args({0x01, 1000})
        ->Args({0x0A, 10000});
    benchmark->UseRealTime();
}

BENCHMARK(isoTpCopy)->ArgName("bytes")->Arg(7)->Arg(100)->Arg(4095)->UseRealTime();
BENCHMARK(isoTpMessage)->ArgName("bytes")->Arg(7)->Arg(100)->Arg(4095)->UseRealTime();
BENCHMARK(isoTpReassemblyCopy);
BENCHMARK(isoTpReassemblyCommand);
BENCHMARK(isoTpReassembly);
BENCHMARK(separationTimeBareSleep)->Apply(separationTimes);
BENCHMARK(separationTimeSleep)->Apply(separationTimes);

} // namespace

BENCHMARK_MAIN();
