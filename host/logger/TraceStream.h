#pragma once

#include <logger/ByteQueue.h>
#include <logger/EpollLoop.h>
#include <logger/StallGuard.h>
#include <logger/SystemQueue.h>
#include <logger/VirtualLogger.h>
#include <logger/Watch.h>
#include <wire/FileDescriptor.h>

#include <cstdint>
#include <deque>
#include <functional>
#include <optional>
#include <span>
#include <string>

namespace vlogger {

/// The trace stream of one opener of a device: a queue in front of a stream socket.
class TraceStream : public EpollLoop::Handler, private StallGuard::Queue
{
public:
    /// Told that a stream has ended; may destroy that stream, and no other one, whose work may still be deferred.
    using OnEnded = std::function<void(TraceStream&)>;

    /// @param onEnded  called at the end of the round in which the stream ended, however it did
    /// @throws std::system_error if the system cannot watch the socket
    TraceStream(EpollLoop& eventLoop, wire::FileDescriptor connection, std::string devicePath,
                const Options& options, Statistics& counters, OnEnded onEnded);
    virtual ~TraceStream() = default;

    /// Whether a record may be appended now. On HOLD the sender calls wait().
    Admission admit() { return guard.admit(); }
    void wait(Sender& sender) { guard.wait(sender); }

    /// Appends a whole record of a frame that was admitted. A stalled reader does not get it; that is counted.
    void append(std::span<const uint8_t> record);

    /// Records that the system has not taken yet.
    uint64_t recordsWaiting() const { return recordBytes.size(); }
    /// Records that the system has taken and the reader has not, as far as the system tells.
    uint64_t recordsInSystem() const;

    /// The next record is cut in the middle, and the stream ends there.
    void cutNextRecord() { cutNext = true; }
    /// The next record carries a length that cannot be.
    void malformNextRecord() { malformNext = true; }

    /// Ends the stream at once; what waits is lost.
    void close();
    bool hasEnded() const { return !fd; }

    ReaderStatistics statistics() const;

    void onReady(uint32_t events) override;
    void onFailure() noexcept override { close(); }

protected:
    bool isFull() const override { return queue.size() >= limitBytes && !takesNoMore(); }
    bool takesNoMore() const { return isLast || hasEnded(); }
    /// A frame is admitted once and brings a record for each channel of its bus. Those behind the one that fills the
    /// queue go beyond the limit: nobody waits for them any more, and the reader moves. Only a stalled one loses them.
    bool mustDrop() const { return isFull() && guard.hasStalled(); }
    /// Appends a whole record, full or not.
    void appendBeyondLimit(std::span<const uint8_t> record);
    /// From now on a reader that shuts down its sending side gets what waits, nothing newer, and then the end.
    void letReaderFinish();

private:
    void flush() override;
    void onStalled() override;
    /// The reader has taken something and the queue is no longer full, or nothing more will come.
    virtual void onRoom() {}
    void finish();
    void sentBytes(size_t count);
    void flushSoon();

    EpollLoop& loop;
    wire::FileDescriptor fd;
    std::optional<Watch> watch;
    const std::string path;
    const size_t limitBytes;
    const std::chrono::milliseconds stallLimit;
    Statistics& totals;
    const OnEnded ended;
    ByteQueue queue;
    std::deque<uint8_t> recordBytes; ///< length of each record in the queue; of the first also what is sent of it
    size_t sentOfFirst = 0;
    SystemQueue system;
    StallGuard guard;
    uint64_t framesQueued = 0;
    uint64_t framesDropped = 0;
    bool cutNext = false;
    bool malformNext = false;
    bool isLast = false;    ///< nothing follows what is in the queue; the stream ends behind it
    bool flushing = false;  ///< a flush is due at the end of the round
    bool isBlocked = false; ///< the system has no room; it reports when it has
    uint32_t finishEvents = 0;
};

} // namespace vlogger
