#pragma once

#include <vqutil/Export.h>
#include <vqutil/Mutex.h>
#include <vqutil/VQException.h>

#include <cstddef>
#include <memory>
#include <string>

/// Buffered reader of the records of one trace device.
///
/// Owns its buffer, not the descriptor. A record that a read cut in two waits in the buffer for the next read.
///
/// Threads: one at a time, the receive thread.
class VQ_API TraceMessageBuffer
{
public:
    /// @param fd         descriptor open for reading; stays the caller's
    /// @param sizeBytes  size of the buffer; 65536 takes every record, a longer record than fits is malformed
    /// @param logMutex   held while the reader writes a diagnostic line; may be null
    TraceMessageBuffer(int fd, size_t sizeBytes, Mutex* logMutex);
    ~TraceMessageBuffer();
    TraceMessageBuffer(const TraceMessageBuffer&) = delete;
    TraceMessageBuffer& operator=(const TraceMessageBuffer&) = delete;

    /// Takes what the device has, up to the room in the buffer. Never blocks.
    ///
    /// @return above 0 if there is something to fetch: the number of bytes read or, if none came, of those that wait
    ///         because getNextMessage() has not yet returned false, as after an exception; 0 if there is nothing new
    ///         or the device is at its end and everything is fetched; -1 on failure, with errno set by read(2)
    ///
    /// When the device is at its end and everything is fetched, one line on standard output says so, "[ERROR]
    /// TraceMessageBuffer::read() device is at its end, name=", `name` and, if the stream broke off within a record,
    /// ", bytes left=" and their number. The descriptor is then replaced, under its number, by one that is never
    /// ready, so that waiting for it costs nothing; until then it stays ready. Invalidates every pointer from
    /// getNextMessage().
    int read();

    /// Finds the next complete record in the buffer.
    ///
    /// @param begin, end  set to the bounds of the record inside the buffer; the caller may change the bytes.
    ///                    Valid until the next read().
    /// @return true if there is one; false if the buffer holds no further complete record
    /// @throws VQException if the bytes are no record: `name`, ": malformed record at byte ", the position in the
    ///         stream since the reader was built, ": " and the reason. The reader has then moved on to the next
    ///         record, which the next call returns; a stretch of bad bytes is reported once, also if it goes on in
    ///         the next read
    bool getNextMessage(unsigned char*& begin, unsigned char*& end);

    /// Names the device in diagnostics and to the reader's user; set by the owner.
    std::string name;

private:
    class Impl;
    std::unique_ptr<Impl> impl;
};
