#include <BenchProcess.h>
#include <ClientThread.h>

#include <logger/VirtualLogger.h>
#include <support/LoggerClient.h>
#include <support/TemporaryDirectory.h>
#include <vlogger/Commands.h>

#include <benchmark/benchmark.h>

#include <array>
#include <chrono>
#include <memory>
#include <string>
#include <vector>

// Frames through the virtual logger: one application writes, 1, 4 or 16 read the trace device. Beside it the same
// bytes over bare socket pairs, one per reader, without anybody between. Then the command replay at full speed.

namespace {

constexpr uint32_t BATCH_FRAMES = 20000;
constexpr uint8_t CHANNEL = 1;
const std::vector<uint8_t> PAYLOAD{1, 2, 3, 4, 5, 6, 7, 8};

using Clients = std::vector<std::unique_ptr<bench::ClientThread>>;

std::vector<uint8_t> recordBytes()
{
    std::array<uint8_t, wire::CAN_RECORD_MAX_BYTES> bytes;
    const size_t size = wire::encode(loggerclient::frame(CHANNEL, 0x123, PAYLOAD), bytes);
    return {bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(size)};
}

void awaitAll(const Clients& clients, uint64_t frames)
{
    for (const auto& client : clients) {
        client->awaitBytes(frames * recordBytes().size());
    }
}

/// Times batches from the first write to the last read. Real time: several threads share the work.
template <typename SendBatch>
void measure(benchmark::State& state, const Clients& clients, SendBatch sendBatch)
{
    uint64_t frames = 0;
    for (auto _ : state) {
        const auto start = std::chrono::steady_clock::now();
        sendBatch();
        frames += BATCH_FRAMES;
        awaitAll(clients, frames);
        state.SetIterationTime(std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
    }
    state.SetItemsProcessed(static_cast<int64_t>(frames));
    state.counters["per_record"] =
        benchmark::Counter(static_cast<double>(frames), benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

void framesBare(benchmark::State& state)
{
    std::vector<wire::FileDescriptor> writers;
    Clients clients;
    for (int64_t i = 0; i < state.range(0); ++i) {
        int ends[2] = {-1, -1};
        if (::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0) {
            state.SkipWithError("no socket pair");
            return;
        }
        writers.emplace_back(ends[0]);
        clients.push_back(std::make_unique<bench::ClientThread>(wire::FileDescriptor(ends[1])));
    }
    const std::vector<uint8_t> record = recordBytes();
    measure(state, clients, [&] {
        for (uint32_t i = 0; i < BATCH_FRAMES; ++i) {
            for (const wire::FileDescriptor& writer : writers) {
                wire::sendPacket(writer.get(), record);
            }
        }
    });
}

/// A board whose channel 1 hears channel 0 and outside members, and nobody else does.
vlogger::Options optionsFor(const std::string& socketPath)
{
    vlogger::Options options;
    options.buses = {{0, CHANNEL}};
    options.socketPath = socketPath;
    return options;
}

Clients readersOf(vlogger::VirtualLogger& logger, int64_t count)
{
    Clients clients;
    for (int64_t i = 0; i < count; ++i) {
        const wire::FileDescriptor connection(logger.connect());
        clients.push_back(std::make_unique<bench::ClientThread>(
            loggerclient::ask(connection.get(), wire::Kind::OPEN_READ, vlogger::board::MAIN_DEVICE).descriptor));
    }
    return clients;
}

void framesLogger(benchmark::State& state)
{
    vlogger::VirtualLogger logger(optionsFor(""));
    const Clients clients = readersOf(logger, state.range(0));
    loggerclient::Writer writer(logger.connect(), vlogger::board::MAIN_DEVICE);
    const wire::CanRecord record = loggerclient::frame(0, 0x123, PAYLOAD);
    measure(state, clients, [&] {
        for (uint32_t i = 0; i < BATCH_FRAMES; ++i) {
            writer.write(record);
        }
    });
    if (logger.statistics().framesDropped != 0) {
        state.SkipWithError("the virtual logger dropped frames");
    }
}

std::string generatedLog()
{
    std::string text;
    for (uint32_t i = 0; i < BATCH_FRAMES; ++i) {
        text.append("(").append(std::to_string(1700000000 + i)).append(".000000) can0 123#0102030405060708\n");
    }
    return text;
}

void replayMax(benchmark::State& state)
{
    const TemporaryDirectory directory;
    const std::string log = directory.write("replay.log", generatedLog());
    vlogger::VirtualLogger logger(optionsFor(directory.path("socket")));
    const Clients clients = readersOf(logger, 1);
    const bench::Silence silence(std::cerr);
    measure(state, clients, [&] {
        CLI::App app;
        tool::Context context{.socket = directory.path("socket")};
        tool::addReplay(app, context);
        // As its channel, so that the channel beside it is the only one that hears a frame.
        app.parse("replay " + log + " --speed max --as-channel");
    });
}

BENCHMARK(framesBare)->ArgName("clients")->Arg(1)->Arg(4)->Arg(16)->UseManualTime();
BENCHMARK(framesLogger)->ArgName("clients")->Arg(1)->Arg(4)->Arg(16)->UseManualTime();
BENCHMARK(replayMax)->UseManualTime();

} // namespace

BENCHMARK_MAIN();
