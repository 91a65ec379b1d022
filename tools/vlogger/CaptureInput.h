#pragma once

#include "StandardInput.h"

#include <capture/CaptureReader.h>

#include <cstdint>
#include <fstream>
#include <istream>
#include <memory>
#include <optional>
#include <string>

namespace tool {

/// A capture file that is read over everything unreadable in it, which is counted and, the first few times, said on
/// standard error.
class CaptureInput
{
public:
    /// @param path  "-": standard input
    /// @param stopSignal  ends the capture once it has come, also while standard input brings nothing; nullptr:
    ///                    nothing ends it early. Outlives this.
    /// @throws std::system_error if the file cannot be opened; std::runtime_error if it is no capture, with the remedy
    explicit CaptureInput(const std::string& path, StopSignal* stopSignal = nullptr);

    /// @return false at the end, or once the user has stopped it
    /// @throws std::runtime_error if the file cannot be read any further
    bool next(capture::CaptureFrame& frame);

    uint64_t unreadable() const { return errors; }
    /// Whether everything that was read is of no use here, as opposed to an empty capture.
    bool isUseless() const { return !hasFrames && (errors != 0 || reader->foreignPackets() != 0); }
    /// How much of the file is read, 0 to 1; negative if nobody knows.
    double done();
    /// Says what the capture held besides, on standard error.
    void remark() const;

private:
    bool isStopped() const;
    void complain(const std::string& text);

    std::string name;
    std::ifstream file;
    StopSignal* stop;
    std::optional<StandardInput> standardInput;
    std::istream input{nullptr}; ///< reads standardInput
    std::istream* stream;
    std::unique_ptr<capture::CaptureReader> reader;
    double sizeBytes = 0;
    uint64_t errors = 0;
    bool hasFrames = false;
};

} // namespace tool
