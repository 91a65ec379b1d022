#include <logger/node/IsoTpSender.h>

#include <algorithm>
#include <utility>

namespace vlogger {

namespace {

/// How long the peer may take for its flow control (N_Bs).
constexpr std::chrono::seconds PEER_TIMEOUT{1};

constexpr size_t JOBS_MAX = 64;

uint8_t controlByte(IsoTpKind kind, size_t low)
{
    return static_cast<uint8_t>(static_cast<size_t>(kind) << 4 | (low & 0x0F));
}

} // namespace

void IsoTpSender::reset()
{
    jobs.clear();
}

void IsoTpSender::send(Bytes message, Clock::Instant when)
{
    if (jobs.size() < JOBS_MAX) {
        jobs.push_back({.message = std::move(message), .due = when});
    }
}

std::optional<Clock::Instant> IsoTpSender::due() const
{
    return jobs.empty() ? std::nullopt : std::optional(jobs.front().due);
}

void IsoTpSender::receive(const IsoTpPdu& flowControl, Clock::Instant now)
{
    if (jobs.empty() || jobs.front().phase != Phase::WAIT_FOR_FLOW_CONTROL) {
        return;
    }
    Job& job = jobs.front();
    switch (static_cast<IsoTpFlow>(flowControl.flow)) {
    case IsoTpFlow::CONTINUE:
        job.phase = Phase::CONSECUTIVE;
        job.due = now;
        job.framesInBlock = 0;
        job.blockSize = flowControl.blockSize;
        job.separationTime = separationTimeOf(flowControl.separationTime);
        return;
    case IsoTpFlow::WAIT:
        job.due = now + PEER_TIMEOUT;
        return;
    case IsoTpFlow::OVERFLOWED:
        break;
    }
    jobs.pop_front(); // too long for the peer, or a status that nobody knows
}

void IsoTpSender::proceed(Clock::Instant now, const Put& put)
{
    Job& job = jobs.front();
    switch (job.phase) {
    case Phase::BEGIN:
        begin(job, now, put);
        return;
    case Phase::WAIT_FOR_FLOW_CONTROL:
        jobs.pop_front();
        return;
    case Phase::CONSECUTIVE:
        putConsecutive(job, now, put);
        return;
    }
}

void IsoTpSender::begin(Job& job, Clock::Instant now, const Put& put)
{
    const size_t length = job.message.size();
    if (length <= payloadBytesOf(IsoTpKind::SINGLE, options.format)) {
        if (put(encodeIsoTp({controlByte(IsoTpKind::SINGLE, length)}, job.message, options.format))) {
            jobs.pop_front();
        }
        return;
    }
    const auto start = std::span(job.message).first(payloadBytesOf(IsoTpKind::FIRST, options.format));
    if (put(encodeIsoTp({controlByte(IsoTpKind::FIRST, length >> 8), static_cast<uint8_t>(length)}, start,
                        options.format))) {
        job.sentBytes = start.size();
        job.phase = Phase::WAIT_FOR_FLOW_CONTROL;
        job.due = now + PEER_TIMEOUT;
    }
}

void IsoTpSender::putConsecutive(Job& job, Clock::Instant now, const Put& put)
{
    const auto rest = std::span(job.message).subspan(job.sentBytes);
    const auto part = rest.first(std::min(rest.size(), payloadBytesOf(IsoTpKind::CONSECUTIVE, options.format)));
    const uint32_t number = job.consecutiveFrames + 1;
    const bool isFaulty = number == options.faultFrame;
    const bool isDropped = isFaulty && options.fault == IsoTpFault::DROP_CONSECUTIVE;
    const uint32_t sequence = number + (isFaulty && options.fault == IsoTpFault::WRONG_SEQUENCE ? 1 : 0);
    if (!isDropped && !put(encodeIsoTp({controlByte(IsoTpKind::CONSECUTIVE, sequence)}, part, options.format))) {
        return;
    }
    job.consecutiveFrames = number;
    job.sentBytes += part.size();
    if (job.sentBytes == job.message.size()) {
        jobs.pop_front();
        return;
    }
    ++job.framesInBlock;
    if (job.blockSize != 0 && job.framesInBlock == job.blockSize) {
        job.phase = Phase::WAIT_FOR_FLOW_CONTROL;
        job.due = now + PEER_TIMEOUT;
    } else {
        job.due = now + job.separationTime;
    }
}

} // namespace vlogger
