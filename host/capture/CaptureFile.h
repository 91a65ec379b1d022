#pragma once

#include <capture/CaptureEncoder.h>
#include <wire/FileDescriptor.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace capture {

enum class Format : uint8_t
{
    CANDUMP,
    PCAPNG,
};

/// The format that the ending of a file name asks for, in upper or lower case: pcapng for ".pcapng" and ".ntar", nothing
/// for those of other capture formats, of packed files and of tables; log lines for every other.
std::optional<Format> formatOfName(std::string_view path);

/// Writes a capture into a file, or to standard output, so that the file can be read whatever happens: it grows by
/// whole frames only, each flush is one write of the operating system, and when that fails in the middle, for
/// instance on a full disk, the file is cut back to the last whole frame. A regular file is locked (flock) as long as
/// this lives, where its file system can, so that no other one writes it; reading it needs no lock.
///
/// Threads: one at a time.
class CaptureFile
{
public:
    /// @param path         an existing file is overwritten; "-": standard output
    /// @param application  kept in the file where the format can
    /// @throws std::system_error if the file cannot be made or has no room for its beginning; std::runtime_error if
    ///         another CaptureFile, of any program, is writing it, which leaves it as it is
    CaptureFile(const std::string& path, Format format, const std::string& application);
    /// Takes a frame; it is in the file after the next flush. Flushes by itself when much has gathered.
    /// @throws CaptureError if the format cannot hold the frame; std::system_error as flush()
    void write(const CaptureFrame& frame);

    /// Brings everything taken so far into the file.
    /// @throws std::system_error if that fails; the file then ends with the last whole frame that had room
    void flush();

    /// Writes what a file of this format ends with, and flushes. Nothing may be written afterwards. Without it the
    /// file lacks what has not been flushed.
    void finish();

    /// What the frames had in them that the format cannot hold, as whole sentences.
    std::vector<std::string> losses() const { return encoder->losses(); }

    /// Frames that are in the file.
    uint64_t framesWritten() const { return flushedFrames; }

private:
    [[noreturn]] void recover(int errorNumber, size_t writtenBytes);

    bool isStandardOutput;
    std::string name;
    wire::FileDescriptor fd;
    std::unique_ptr<CaptureEncoder> encoder;
    std::vector<uint8_t> pending;
    std::vector<size_t> ends; ///< where each whole piece in `pending` ends
    uint64_t flushedFrames = 0;
    uint64_t fileBytes = 0; ///< whole pieces only
};

} // namespace capture
