#include "Report.h"

#include <algorithm>
#include <cstdio>
#include <string>

namespace {

std::string idText(uint32_t idWord)
{
    char text[sizeof "18FEF100"];
    const bool isExtended = (idWord & EXTENDED_ID_BIT) != 0;
    std::snprintf(text, sizeof text, isExtended ? "%08X" : "%03X", idWord & ~EXTENDED_ID_BIT);
    return text;
}

void printRow(std::ostream& stream, const std::string& channels, const std::string& id, uint64_t sent,
              uint64_t received, uint64_t lost, double seconds)
{
    const double rate = seconds > 0 ? static_cast<double>(received) / seconds : 0;
    char line[128];
    std::snprintf(line, sizeof line, "%-10s %-10s %10llu %10llu %10llu %10.0f/s\n", channels.c_str(), id.c_str(),
                  static_cast<unsigned long long>(sent), static_cast<unsigned long long>(received),
                  static_cast<unsigned long long>(lost), rate);
    stream << line;
}

} // namespace

uint64_t printReport(std::ostream& stream, const Traffic& traffic, const Outcome& outcome)
{
    uint64_t sentTotal = 0;
    uint64_t receivedTotal = 0;
    uint64_t lostTotal = 0;
    const double seconds = outcome.duration.count();
    stream << "channel    identifier       sent   received       lost         rate\n";
    for (const auto& [row, sent] : outcome.sent) {
        const auto found = outcome.received.find(row);
        const uint64_t received = found == outcome.received.end() ? 0 : found->second;
        // More than was sent is not negative loss: somebody else is on that bus, too.
        const uint64_t lost = sent - std::min(sent, received);
        printRow(stream, std::to_string(row.channel) + " -> " + std::to_string(receivingChannel(row.channel)),
                 idText(row.idWord), sent, received, lost, seconds);
        sentTotal += sent;
        receivedTotal += received;
        lostTotal += lost;
    }
    printRow(stream, "total", "", sentTotal, receivedTotal, lostTotal, seconds);
    stream << "skipped: " << traffic.remoteFrames << " remote frames, " << traffic.errorFrames << " error frames\n";
    if (outcome.refused != 0) {
        stream << "not sent: " << outcome.refused << " frames that the logger refused\n";
    }
    stream << std::flush;
    return lostTotal;
}
