#pragma once

#include <capture/CaptureReader.h>
#include <capture/PcapngBlockReader.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace capture {

/// Reads pcapng files as other tools write them: both byte orders, several sections, any time resolution and
/// offset, enhanced, simple and the obsolete packet blocks. Blocks and options that are not known are skipped, so
/// are packets of interfaces that are not CAN.
class PcapngReader : public CaptureReader
{
public:
    explicit PcapngReader(std::istream& input) : blocks(input) {}

    bool next(CaptureFrame& frame) override;
    std::vector<std::string> remarks() const override;
    uint64_t foreignPackets() const override { return skippedPackets; }

private:
    struct Interface
    {
        std::string name;
        bool isCan = false;
        uint8_t resolution = 6; ///< negative power of ten; with bit 7 set, of two
        int64_t offsetSeconds = 0;
        uint64_t droppedSeen = 0;     ///< told by its packets
        uint64_t droppedReported = 0; ///< told by its statistics
    };

    void takeSection();
    void takeInterface();
    void takeStatistics();
    /// @return true if `frame` is set
    bool takePacket(CaptureFrame& frame);
    void takePacketOptions(std::span<const uint8_t> options, CaptureFrame& frame) const;
    void setTime(const Interface& interface, uint64_t time, CaptureFrame& frame) const;
    uint64_t droppedInSection() const;

    PcapngBlockReader blocks;
    std::vector<Interface> interfaces; ///< of this section
    size_t earlierInterfaces = 0;      ///< of the sections before
    uint64_t earlierDropped = 0;
    uint64_t skippedPackets = 0;
    bool hasEnded = false; ///< behind an error there is nothing more
};

} // namespace capture
