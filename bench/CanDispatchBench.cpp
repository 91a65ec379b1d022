#include <AllocationCount.h>
#include <BenchProcess.h>

#include <MsgRxHandler.h>

#include <vqtrace/CANExtTraceMessage.h>
#include <vqtrace/TraceMessageBuffer.h>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <numeric>
#include <random>
#include <vector>

#include <sys/socket.h>
#include <unistd.h>

// What it costs to read a trace stream and hand each record to its receivers, beside bare reads of the same stream.

namespace {

constexpr size_t READ_BYTES = 65536;
constexpr uint8_t CHANNEL = 3;

/// A stream of classic frames with eight bytes each, in pieces of whole records that fill one read. Every
/// identifier occurs equally often, in random order.
class Stream
{
public:
    explicit Stream(uint32_t identifiers)
    {
        std::vector<uint32_t> ids(std::max(identifiers, 10000U));
        std::iota(ids.begin(), ids.end(), 0U);
        std::shuffle(ids.begin(), ids.end(), std::mt19937(1)); // the same order in every run
        pieces.emplace_back();
        for (const uint32_t id : ids) {
            const std::vector<uint8_t> record = recordWith(id % identifiers);
            if (pieces.back().size() + record.size() > READ_BYTES) {
                pieces.emplace_back();
            }
            pieces.back().insert(pieces.back().end(), record.begin(), record.end());
        }
        pieces.pop_back(); // the last one is not full
        recordBytes = recordWith(0).size();
        if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) {
            std::abort();
        }
        const int roomBytes = 1 << 20;
        setsockopt(ends[1], SOL_SOCKET, SO_SNDBUF, &roomBytes, sizeof(roomBytes));
    }
    ~Stream()
    {
        close(ends[0]);
        close(ends[1]);
    }
    Stream(const Stream&) = delete;
    Stream& operator=(const Stream&) = delete;

    int fd() const { return ends[0]; }

    /// Lets the next piece arrive.
    /// @return its number of records
    size_t feed()
    {
        const std::vector<uint8_t>& piece = pieces[next];
        next = (next + 1) % pieces.size();
        if (write(ends[1], piece.data(), piece.size()) != static_cast<ssize_t>(piece.size())) {
            std::abort();
        }
        return piece.size() / recordBytes;
    }

private:
    static std::vector<uint8_t> recordWith(uint32_t id)
    {
        const uint8_t payload[8] = {1, 2, 3, 4, 5, 6, 7, 8};
        const CANExtTraceMessage frame(11, 1000, CHANNEL, CAN_FRAME_DATA, CAN_STATE_OK, CAN_EXTENDED, 8, id,
                                       payload);
        std::vector<uint8_t> record;
        frame.createByteArray(record, true, false);
        return record;
    }

    std::vector<std::vector<uint8_t>> pieces;
    size_t recordBytes = 0;
    size_t next = 0;
    int ends[2] = {-1, -1};
};

class CountingReceiver : public MsgRxHandlerCb
{
public:
    void onStateChanged(handlerState_t /*state*/, const std::string& /*text*/) override {}
    void onRawReceived(const uint8_t* /*data*/, size_t /*size*/) override { ++frames; }

    uint64_t frames = 0;
};

/// Processor time of this thread: what else runs on the machine does not count.
class Stopwatch
{
public:
    double seconds() const { return now() - start; }

private:
    static double now()
    {
        timespec time{};
        clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
        return static_cast<double>(time.tv_sec) + 1e-9 * static_cast<double>(time.tv_nsec);
    }

    const double start = now();
};

/// Reports the time of one record instead of that of a whole read.
void report(benchmark::State& state, uint64_t records)
{
    state.SetItemsProcessed(static_cast<int64_t>(records));
    state.counters["per_record"] =
        benchmark::Counter(static_cast<double>(records), benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

void dispatchBareRead(benchmark::State& state)
{
    const bench::SecondThread thread;
    Stream stream(static_cast<uint32_t>(state.range(0)));
    std::vector<uint8_t> buffer(READ_BYTES);
    uint64_t records = 0;
    for (auto _ : state) {
        const size_t fed = stream.feed();
        const Stopwatch watch;
        benchmark::DoNotOptimize(read(stream.fd(), buffer.data(), buffer.size()));
        state.SetIterationTime(watch.seconds());
        records += fed;
    }
    report(state, records);
}

void dispatchRecords(benchmark::State& state)
{
    const bench::SecondThread thread;
    const auto identifiers = static_cast<uint32_t>(state.range(0));
    Stream stream(identifiers);
    std::vector<CountingReceiver> receivers(static_cast<size_t>(state.range(1)));
    MsgRxHandler* const dispatcher = MsgRxHandler::getInstance();
    {
        const bench::Silence silence;
        for (CountingReceiver& receiver : receivers) {
            for (uint32_t id = 0; id < identifiers; ++id) {
                dispatcher->registerCanMessage(CHANNEL, id, CAN_EXTENDED, &receiver);
            }
        }
    }
    TraceMessageBuffer buffer(stream.fd(), READ_BYTES, nullptr);
    uint64_t records = 0;
    uint64_t allocated = 0;
    for (auto _ : state) {
        const size_t fed = stream.feed();
        const uint64_t allocatedBefore = bench::allocations();
        const Stopwatch watch;
        while (buffer.read() > 0) {
            dispatcher->processMessages(buffer);
        }
        state.SetIterationTime(watch.seconds());
        allocated += bench::allocations() - allocatedBefore;
        records += fed;
    }
    for (CountingReceiver& receiver : receivers) {
        if (receiver.frames != records) {
            state.SkipWithError("a receiver missed frames");
        }
        const bench::Silence silence;
        dispatcher->unregisterReceiver(&receiver);
    }
    report(state, records);
    state.counters["allocations_per_record"] = static_cast<double>(allocated) / static_cast<double>(records);
}

BENCHMARK(dispatchBareRead)->ArgName("identifiers")->Arg(1)->Arg(100)->Arg(10000)->UseManualTime();
BENCHMARK(dispatchRecords)
    ->ArgNames({"identifiers", "receivers"})
    ->ArgsProduct({{1, 100, 10000}, {1, 8}})
    ->UseManualTime();

} // namespace

int main(int argc, char** argv)
{
    bench::useOwnLogger();
    MsgRxHandler::getInstance();
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
