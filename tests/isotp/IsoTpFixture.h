#pragma once

#include <support/FakeBus.h>
#include <support/FakeTransmitter.h>
#include <support/IsoTpState.h>
#include <support/PrivateMember.h>
#include <support/RecordingIsoTpCallback.h>

#include <CanIsoTpHandler.h>

#include <vqtrace/CANExtTraceMessage.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <numeric>
#include <optional>
#include <vector>

using Bytes = std::vector<uint8_t>;
using Frames = std::vector<Bytes>;
using Events = std::vector<IsoTpEvent>;
using Handler = CanIsoTpHandler;

constexpr uint8_t CHANNEL = 2;
constexpr uint32_t RX_ID = 0x7E8;
constexpr uint32_t TX_ID = 0x7E0;

/// 1, 2, 3, ... 255, 0, 1, ...
inline Bytes counting(size_t length)
{
    Bytes bytes(length);
    std::iota(bytes.begin(), bytes.end(), uint8_t{1});
    return bytes;
}

/// One frame's data, padded with zeros to 8 bytes.
inline Bytes padded(Bytes bytes)
{
    bytes.resize(8);
    return bytes;
}

inline Bytes bytesOf(const CANExtTraceMessage& frame)
{
    return {frame.data, frame.data + frame.length};
}

inline CANExtTraceMessage canFrame(const Bytes& bytes, uint32_t id = RX_ID, cantype_t type = CAN_STANDARD)
{
    return {CANExtTraceMessage::MESSAGE_ID,     0,  CHANNEL,     CAN_FRAME_DATA, CAN_STATE_OK, type,
            static_cast<uint8_t>(bytes.size()), id, bytes.data()};
}

Handler::rawCANMsg_t rawFrame(const Bytes& bytes, uint32_t id = RX_ID, cantype_t type = CAN_STANDARD);

/// A handler between a bus and a transmitter that the test owns. No worker runs unless the test starts it: the test
/// thread is the worker then, by carryOut().
class IsoTpTest : public testing::Test
{
protected:
    IsoTpTest()
    {
        transmitter.reset();
        sut.setCallback(callback);
    }

    /// A frame from the peer, by the process bus.
    void peerSends(const Bytes& bytes) { receive(sut, bytes); }
    /// The same, padded to 8 bytes.
    void peerSendsPadded(const Bytes& bytes) { receive(sut, padded(bytes)); }
    static void receive(Handler& handler, const Bytes& bytes)
    {
        const CANExtTraceMessage message = canFrame(bytes);
        handler.vqpBusProxyCb(&message, "TraceLogger", "Diagnostic");
    }

    void carryOut() { carryOutCommands(sut); }

    bool send(const Bytes& payload) { return sut.sendTxID(payload.data(), payload.size()); }

    /// The data of every frame sent so far.
    Frames sentFrames() const;
    Events events() const { return callback.events.all(); }
    Handler::expFrameType_t expectation() { return expectationOf(sut); }

    FakeBus& bus = FakeBus::instance();
    FakeTransmitter& transmitter = FakeTransmitter::instance();
    RecordingIsoTpCallback callback;
    Handler sut{"TraceLogger", "Diagnostic", CHANNEL, RX_ID, CAN_STANDARD, TX_ID, CAN_STANDARD};
};
