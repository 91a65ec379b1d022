#include <logger/TransmitDevice.h>

#include <logger/WriterConnection.h>

#include <algorithm>

namespace vlogger {

void TransmitDevice::opened(WriterConnection& writer)
{
    writers.push_back(&writer);
    for (const auto& [errorNumber, count] : std::exchange(faultsForNext, {})) {
        writer.failWrites(errorNumber, count);
    }
}

void TransmitDevice::closed(WriterConnection& writer)
{
    std::erase(writers, &writer);
}

void TransmitDevice::failWrites(int errorNumber, unsigned count)
{
    if (writers.empty()) {
        faultsForNext.emplace_back(errorNumber, count);
    }
    for (WriterConnection* const writer : writers) {
        writer->failWrites(errorNumber, count);
    }
}

void TransmitDevice::vanish()
{
    const std::vector<WriterConnection*> gone = writers; // closing takes them off the list
    for (WriterConnection* const writer : gone) {
        writer->close();
    }
}

} // namespace vlogger
