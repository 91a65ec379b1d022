#pragma once

#include <cstddef>
#include <deque>
#include <utility>
#include <vector>

namespace vlogger {

class WriterConnection;

/// Writes that are to fail: error number and how many.
using WriteFaults = std::deque<std::pair<int, unsigned>>;

/// The side of a device that is written to: who has it open, and the faults that wait for the next one.
class TransmitDevice
{
public:
    void opened(WriterConnection& writer);
    void closed(WriterConnection& writer);

    /// The next `count` writes of everyone who has the device open fail; if that is nobody, those of the next one.
    void failWrites(int errorNumber, unsigned count);

    /// Ends every connection. What was written and not yet delivered is lost.
    void vanish();

    size_t writerCount() const { return writers.size(); }

private:
    std::vector<WriterConnection*> writers;
    WriteFaults faultsForNext;
};

} // namespace vlogger
