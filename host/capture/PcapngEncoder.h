#pragma once

#include <capture/CaptureEncoder.h>

#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace capture {

/// pcapng: one interface per name with link type 227 and stamps in nanoseconds, described right before its first
/// frame; each frame with its direction and the frames lost before it; at the end the totals of each interface.
/// Written in the byte order of this machine, as the format intends.
class PcapngEncoder : public CaptureEncoder
{
public:
    /// @param application  name of the writing program, kept in the file; empty: none
    explicit PcapngEncoder(std::string application) : applicationName(std::move(application)) {}

    void begin(std::vector<uint8_t>& out) override;
    void encode(const CaptureFrame& frame, std::vector<uint8_t>& out) override;
    void finish(std::vector<uint8_t>& out) override;
    std::vector<std::string> losses() const override;

private:
    struct Interface
    {
        uint32_t number = 0;
        uint64_t frames = 0;
        uint64_t dropped = 0;
        uint64_t lastNs = 0;
    };

    Interface& interfaceOf(const std::string& name, std::vector<uint8_t>& out);

    std::string applicationName;
    std::map<std::string, Interface> interfaces;
    uint64_t fdMarks = 0; ///< frames whose flags marked CAN FD once more
};

} // namespace capture
