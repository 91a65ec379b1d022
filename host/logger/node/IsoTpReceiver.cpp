#include <logger/node/IsoTpReceiver.h>

#include <algorithm>
#include <utility>

namespace vlogger {

namespace {

/// How long the next consecutive frame may take (N_Cr).
constexpr std::chrono::seconds SENDER_TIMEOUT{1};

} // namespace

std::optional<Bytes> IsoTpReceiver::receive(const IsoTpPdu& pdu, Clock::Instant now)
{
    switch (pdu.kind) {
    case IsoTpKind::SINGLE:
        reset();
        if (pdu.messageBytes == 0 || pdu.messageBytes > pdu.payload.size()) {
            return std::nullopt;
        }
        return Bytes(pdu.payload.begin(), pdu.payload.begin() + static_cast<ptrdiff_t>(pdu.messageBytes));
    case IsoTpKind::FIRST:
        begin(pdu, now);
        return std::nullopt;
    case IsoTpKind::CONSECUTIVE:
        return append(pdu, now);
    case IsoTpKind::FLOW_CONTROL:
        break;
    }
    return std::nullopt;
}

void IsoTpReceiver::begin(const IsoTpPdu& first, Clock::Instant now)
{
    reset();
    // What fits into a single frame does not come in several, and a first frame is always full.
    if (first.messageBytes <= payloadBytesOf(IsoTpKind::SINGLE, options.format) ||
        first.payload.size() != payloadBytesOf(IsoTpKind::FIRST, options.format) ||
        options.fault == IsoTpFault::NO_FLOW_CONTROL) {
        return;
    }
    if (options.fault == IsoTpFault::REPORT_OVERFLOW) {
        state = {.phase = Phase::REFUSAL_DUE, .due = now};
        return;
    }
    state.message.assign(first.payload.begin(), first.payload.end());
    state.messageBytes = first.messageBytes;
    letWait(now);
}

std::optional<Bytes> IsoTpReceiver::append(const IsoTpPdu& consecutive, Clock::Instant now)
{
    if (state.phase != Phase::RECEIVING) {
        return std::nullopt;
    }
    const size_t missing = state.messageBytes - state.message.size();
    const size_t taken = std::min(missing, payloadBytesOf(IsoTpKind::CONSECUTIVE, options.format));
    if (consecutive.sequenceNumber != state.nextSequenceNumber || consecutive.payload.size() < taken) {
        reset();
        return std::nullopt;
    }
    const std::span<const uint8_t> bytes = consecutive.payload.first(taken);
    state.message.insert(state.message.end(), bytes.begin(), bytes.end());
    state.nextSequenceNumber = (state.nextSequenceNumber + 1) & 0x0F;
    if (taken == missing) {
        return std::exchange(state, {}).message;
    }
    state.due = now + SENDER_TIMEOUT;
    ++state.framesInBlock;
    if (options.blockSize != 0 && state.framesInBlock == options.blockSize) {
        letWait(now);
    }
    return std::nullopt;
}

void IsoTpReceiver::letWait(Clock::Instant now)
{
    state.phase = Phase::FLOW_CONTROL_DUE;
    state.waitsLeft = options.waitFrames;
    state.due = now;
}

void IsoTpReceiver::proceed(Clock::Instant now, const Put& put)
{
    switch (state.phase) {
    case Phase::REFUSAL_DUE:
        if (putFlowControl(IsoTpFlow::OVERFLOWED, put)) {
            reset();
        }
        return;
    case Phase::FLOW_CONTROL_DUE:
        if (state.waitsLeft > 0) {
            if (putFlowControl(IsoTpFlow::WAIT, put)) {
                --state.waitsLeft;
                state.due = now + options.waitInterval;
            }
        } else if (putFlowControl(IsoTpFlow::CONTINUE, put)) {
            state.phase = Phase::RECEIVING;
            state.framesInBlock = 0;
            state.due = now + SENDER_TIMEOUT;
        }
        return;
    case Phase::RECEIVING:
    case Phase::IDLE:
        reset();
        return;
    }
}

bool IsoTpReceiver::putFlowControl(IsoTpFlow flow, const Put& put) const
{
    const auto status =
        static_cast<uint8_t>(static_cast<uint8_t>(IsoTpKind::FLOW_CONTROL) << 4 | static_cast<uint8_t>(flow));
    return put(
        encodeIsoTp({status, options.blockSize, separationCodeOf(options.separationTime)}, {}, options.format));
}

} // namespace vlogger
