// Frames from a peer, messages to send and seconds that pass, in any order: the ISO-TP handler must report, send
// and wait for exactly what the model of the rules does.
//
// Input: one byte of settings (bit 0 extended addressing, bit 1 minimal DLC, bit 2 slow worker), then steps. A step's
// first byte is 0 to 8: a frame of so many bytes, which follow; 9: a second passes; 10: a message to send, its length
// in the next two bytes, modulo 160. A slow worker carries out its commands, one by one, only with steps 11. Higher
// values count modulo 11, with a slow worker modulo 12. What is missing at the end counts as zero.

#include <support/FakeBus.h>
#include <support/FakeTransmitter.h>
#include <support/IsoTpModel.h>
#include <support/IsoTpState.h>
#include <support/RecordingIsoTpCallback.h>

#include <CanIsoTpHandler.h>

#include <cstdint>
#include <cstdlib>
#include <iostream>

namespace {

using Bytes = std::vector<uint8_t>;

constexpr uint8_t ADDRESS = 0xA5;
constexpr uint8_t SECOND_PASSES = 9;
constexpr uint8_t SEND = 10;
constexpr uint8_t WORKER_PROCEEDS = 11;
/// Long enough for every sequence number; longer ones only make runs slow.
constexpr size_t LONGEST = 160;

void require(bool condition)
{
    if (!condition) {
        std::abort();
    }
}

class Input
{
public:
    Input(const uint8_t* first, size_t size) : next(first), end(first + size) {}
    bool isEmpty() const { return next == end; }
    uint8_t byte() { return isEmpty() ? uint8_t{0} : *next++; }
    Bytes bytes(size_t count)
    {
        Bytes taken(count);
        for (uint8_t& one : taken) {
            one = byte();
        }
        return taken;
    }

private:
    const uint8_t* next;
    const uint8_t* end;
};

void compare(CanIsoTpHandler& handler, RecordingIsoTpCallback& callback, IsoTpModel& model)
{
    require(callback.events.all() == model.events);
    const std::vector<CANExtTraceMessage> sent = FakeTransmitter::instance().frames.all();
    require(sent.size() == model.frames.size());
    for (size_t i = 0; i < sent.size(); ++i) {
        require(Bytes(sent[i].data, sent[i].data + sent[i].length) == model.frames[i]);
    }
    require(expectationOf(handler) == IsoTpModel::expectationIn(model.state));
    require(handler.sendQueueEmpty() == (model.queued() == 0));
    callback.events.clear();
    callback.messages.clear();
    FakeTransmitter::instance().frames.clear();
    model.events.clear();
    model.frames.clear();
}

void catchUp(CanIsoTpHandler& handler, IsoTpModel& model)
{
    model.workerCatchesUp();
    carryOutCommands(handler);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    // Every protocol error writes lines.
    std::cout.setstate(std::ios::failbit);
    std::cerr.setstate(std::ios::failbit);

    Input input(data, size);
    const uint8_t settings = input.byte();
    CanIsoTpHandler handler("TraceLogger", "Diagnostic", 0, 0x7E8, CAN_STANDARD, 0x7E0, CAN_STANDARD);
    handler.extAddressLength = settings & 1U;
    handler.extAddress = ADDRESS;
    handler.useMinimalDlc = (settings >> 1U) & 1U;
    RecordingIsoTpCallback callback;
    handler.setCallback(callback);
    IsoTpModel model({(settings & 1U) != 0, (settings & 2U) != 0, ADDRESS});

    const bool workerIsSlow = (settings & 4U) != 0;
    while (!input.isEmpty()) {
        const auto step =
            static_cast<uint8_t>(input.byte() % (workerIsSlow ? WORKER_PROCEEDS + 1 : WORKER_PROCEEDS));
        if (step == SECOND_PASSES) {
            model.secondPasses();
            handler.handleTimeout();
        } else if (step == WORKER_PROCEEDS) {
            if (carryOutCommand(handler) == 's') {
                model.workerLooks();
            }
        } else if (step == SEND) {
            const size_t high = input.byte();
            const size_t low = input.byte();
            const Bytes payload((high * 256 + low) % LONGEST, ADDRESS);
            model.send(payload);
            handler.sendTxID(payload.data(), payload.size());
        } else {
            const Bytes frame = input.bytes(step);
            const CANExtTraceMessage message(CANExtTraceMessage::MESSAGE_ID, 0, 0, CAN_FRAME_DATA, CAN_STATE_OK,
                                             CAN_STANDARD, step, 0x7E8, frame.data());
            model.receive(frame);
            handler.vqpBusProxyCb(&message, "", "");
        }
        if (!workerIsSlow) {
            catchUp(handler, model);
        }
        compare(handler, callback, model);
    }
    catchUp(handler, model);
    compare(handler, callback, model);
    FakeBus::instance().reset(); // what stays allocated looks like a leak and costs a search for it
    std::cout.clear();
    std::cerr.clear();
    return 0;
}
