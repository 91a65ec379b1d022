// ISO-TP through the devices and the process bus of a virtual logger in this process: two handlers on channels that
// are wired together. The limit writes the same records to the same device in a bare loop and waits for nobody.

#include <BenchProcess.h>
#include <TransmitterMain.h>

#include <CanIsoTpHandler.h>

#include <vqtrace/CANExtTraceMessage.h>

#include <benchmark/benchmark.h>

#include <atomic>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

namespace {

constexpr uint8_t SENDER_CHANNEL = 0;
constexpr uint8_t RECEIVER_CHANNEL = 1; // of the same bus
constexpr uint32_t SENDER_ID = 0x7E0;
constexpr uint32_t RECEIVER_ID = 0x7E8;
/// What the limit sends reaches nobody: registrations last as long as the process, and a late frame would abort a
/// transfer.
constexpr uint32_t UNHEARD_SENDER_ID = 0x6E0;
constexpr uint32_t UNHEARD_RECEIVER_ID = 0x6E8;
constexpr size_t MESSAGE_BYTES = 4095;
constexpr size_t CONSECUTIVE_FRAMES = 585;

/// A message's end can be awaited, and so can an error.
class Counter : public CanIsoTpHandlerCallback
{
public:
    void canIsoTpHandlerCb(const CANTransportTraceMessage*) override { ended(); }
    void canIsoTpHandlerStatusCb(StatusCBType_t type, int, const std::string&) override
    {
        if (type == STATUS_ERROR) {
            failed = true;
            ended();
        }
    }
    void awaitAfter(uint64_t count) const { transfers.wait(count); }

    std::atomic<uint64_t> transfers{0};
    std::atomic<bool> failed{false};

private:
    void ended()
    {
        ++transfers;
        transfers.notify_all();
    }
};

std::vector<uint8_t> record(uint8_t channel, uint32_t id, const std::vector<uint8_t>& data)
{
    std::vector<uint8_t> bytes;
    CANExtTraceMessage(CANExtTraceMessage::MESSAGE_ID, 0, channel, CAN_FRAME_DATA, CAN_STATE_OK, CAN_STANDARD, 8,
                       id, data.data())
        .createByteArray(bytes, true, false);
    return bytes;
}

void deviceBareWrites(benchmark::State& state)
{
    std::vector<std::vector<uint8_t>> records{
        record(SENDER_CHANNEL, UNHEARD_SENDER_ID, {0x1F, 0xFF, 1, 2, 3, 4, 5, 6}),
        record(RECEIVER_CHANNEL, UNHEARD_RECEIVER_ID, {0x30, 0, 0, 0, 0, 0, 0, 0}),
    };
    for (size_t i = 1; i <= CONSECUTIVE_FRAMES; ++i) {
        records.push_back(
            record(SENDER_CHANNEL, UNHEARD_SENDER_ID, {static_cast<uint8_t>(0x20 + i % 16), 1, 2, 3, 4, 5, 6, 7}));
    }
    const int fd = open("/dev/vqlog-fpgab", O_WRONLY | O_SYNC);
    for (auto _ : state) {
        for (const std::vector<uint8_t>& one : records) {
            if (write(fd, one.data(), one.size()) < 0) {
                state.SkipWithError("a write failed");
                break;
            }
        }
    }
    close(fd);
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(MESSAGE_BYTES));
    state.SetItemsProcessed(state.iterations());
}

void deviceMessage(benchmark::State& state)
{
    const bench::Silence silence;
    Counter atReceiver;
    CanIsoTpHandler sender("TraceLogger", "Diagnostic", SENDER_CHANNEL, RECEIVER_ID, CAN_STANDARD, SENDER_ID,
                           CAN_STANDARD);
    CanIsoTpHandler receiver("TraceLogger", "Diagnostic", RECEIVER_CHANNEL, SENDER_ID, CAN_STANDARD, RECEIVER_ID,
                             CAN_STANDARD);
    sender.setCallback(atReceiver); // its errors end a transfer, too
    receiver.setCallback(atReceiver);
    sender.start();
    receiver.start();
    const std::vector<uint8_t> payload(MESSAGE_BYTES, 0x55);
    for (auto _ : state) {
        const uint64_t before = atReceiver.transfers;
        sender.sendTxID(payload.data(), payload.size());
        atReceiver.awaitAfter(before);
        if (atReceiver.failed) {
            state.SkipWithError("a transfer was aborted");
            break;
        }
    }
    sender.stop();
    receiver.stop();
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(MESSAGE_BYTES));
    state.SetItemsProcessed(state.iterations());
}

BENCHMARK(deviceBareWrites)->UseRealTime();
BENCHMARK(deviceMessage)->UseRealTime();

} // namespace

int main(int argc, char** argv)
{
    return bench::runWithOpenTransmitter(argc, argv);
}
