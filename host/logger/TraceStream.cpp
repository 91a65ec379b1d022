#include <logger/TraceStream.h>

#include <logger/Diagnostics.h>
#include <wire/BigEndian.h>
#include <wire/TraceRecord.h>

#include <sys/epoll.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

namespace vlogger {

namespace {

/// Bytes per send. The system frees what was sent in one piece only once all of it is read, so this is also the
/// step in which a slow reader's progress shows; the size just fills the kernel's allocation.
constexpr size_t CHUNK_BYTES = 1536;
constexpr uint16_t IMPOSSIBLE_LENGTH = 3;

} // namespace

TraceStream::TraceStream(EpollLoop& eventLoop, wire::FileDescriptor connection, std::string devicePath,
                         const Options& options, Statistics& counters, OnEnded onEnded)
    : loop(eventLoop), fd(std::move(connection)), path(std::move(devicePath)), limitBytes(options.streamQueueBytes),
      stallLimit(options.stallLimit), totals(counters), ended(std::move(onEnded)),
      guard(eventLoop, *this, options.stallLimit)
{
    watch.emplace(loop, fd.get(), *this, 0U);
}

void TraceStream::append(std::span<const uint8_t> record)
{
    if (takesNoMore()) {
        return;
    }
    if (mustDrop()) {
        ++framesDropped;
        ++totals.framesDropped;
        return;
    }
    appendBeyondLimit(record);
}

void TraceStream::appendBeyondLimit(std::span<const uint8_t> record)
{
    if (cutNext) {
        queue.append(record.first(record.size() / 2));
        isLast = true;
    } else if (malformNext) {
        std::array<uint8_t, wire::CAN_RECORD_MAX_BYTES> bytes;
        std::copy(record.begin(), record.end(), bytes.begin());
        wire::putBigEndian(bytes.data(), IMPOSSIBLE_LENGTH);
        queue.append(std::span(bytes).first(record.size()));
        malformNext = false;
    } else {
        queue.append(record);
    }
    recordBytes.push_back(static_cast<uint8_t>(record.size()));
    ++framesQueued;
    ++totals.framesQueued;
    flushSoon();
}

void TraceStream::flushSoon()
{
    if (flushing || isBlocked) {
        return;
    }
    flushing = true;
    // At the end of the round: by then everything that one wake-up brought has come together.
    loop.defer([this] {
        flushing = false;
        flush();
    });
}

void TraceStream::flush()
{
    bool moved = false;
    isBlocked = false;
    while (!hasEnded() && !queue.empty() && !isBlocked) {
        const std::span<const uint8_t> chunk = queue.front(CHUNK_BYTES);
        const ssize_t sent = ::send(fd.get(), chunk.data(), chunk.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
        if (sent > 0) {
            queue.pop(static_cast<size_t>(sent));
            sentBytes(static_cast<size_t>(sent));
            moved = true;
        } else if (errno == EAGAIN || errno == EWOULDBLOCK) {
            isBlocked = true;
        } else if (errno != EINTR) {
            close(); // the reader has gone; EPIPE as a rule
        }
    }
    if (hasEnded()) {
        return;
    }
    if (moved && !isFull()) {
        onRoom();
    }
    watch->set((isBlocked ? EPOLLOUT : 0U) | (isLast ? 0U : finishEvents));
    if (queue.empty() && isLast) {
        close();
    } else if (moved) {
        guard.progressed();
    }
}

void TraceStream::sentBytes(size_t count)
{
    size_t whole = 0;
    sentOfFirst += count;
    while (!recordBytes.empty() && sentOfFirst >= recordBytes.front()) {
        sentOfFirst -= recordBytes.front();
        recordBytes.pop_front();
        ++whole;
    }
    system.sent(count, whole);
}

uint64_t TraceStream::recordsInSystem() const
{
    return hasEnded() ? 0 : system.recordsWaiting(fd.get());
}

void TraceStream::close()
{
    if (hasEnded()) {
        return;
    }
    watch.reset();
    fd.reset();
    guard.release();
    // A copy: the call may destroy this stream.
    loop.defer([this, tell = ended] { tell(*this); });
}

ReaderStatistics TraceStream::statistics() const
{
    return {.device = path,
            .framesQueued = framesQueued,
            .framesDropped = framesDropped,
            .sendersWaiting = guard.sendersWaiting(),
            .bytesWaiting = queue.size(),
            .hasStalled = guard.hasStalled()};
}

void TraceStream::letReaderFinish()
{
    finishEvents = EPOLLRDHUP;
    watch->set(finishEvents);
}

void TraceStream::finish()
{
    onRoom(); // one record beyond the limit, and nothing follows it
    isLast = true;
    guard.release();
}

void TraceStream::onReady(uint32_t events)
{
    if ((events & (EPOLLHUP | EPOLLERR)) != 0) {
        close();
        return;
    }
    if ((events & EPOLLRDHUP) != 0 && !isLast) {
        finish();
    }
    flush();
}

void TraceStream::onStalled()
{
    diagnostics::warn("a reader of " + path + " has taken nothing for " + std::to_string(stallLimit.count()) +
                      " ms: its newest frames are dropped until it reads again; activate the device by "
                      "configuring a receiver while online, or close it");
}

} // namespace vlogger
