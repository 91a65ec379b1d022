#include <capture/CaptureFile.h>

#include <capture/CandumpEncoder.h>
#include <capture/PcapngEncoder.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <fcntl.h>
#include <stdexcept>
#include <sys/file.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace capture {

using namespace std::string_view_literals;

namespace {

constexpr size_t FLUSH_BYTES = size_t{64} * 1024;
constexpr mode_t FILE_MODE = 0666; // less what the user's mask takes away

std::unique_ptr<CaptureEncoder> makeEncoder(Format format, const std::string& application)
{
    if (format == Format::PCAPNG) {
        return std::make_unique<PcapngEncoder>(application);
    }
    return std::make_unique<CandumpEncoder>();
}

wire::FileDescriptor checked(int fd, const std::string& path)
{
    if (fd < 0) {
        throw std::system_error(errno, std::generic_category(), path);
    }
    return wire::FileDescriptor(fd);
}

/// Two programs that write one file would overwrite each other's frames. The lock goes with the descriptor, also after
/// a kill.
void lock(int fd, const std::string& path)
{
    if (::flock(fd, LOCK_EX | LOCK_NB) == 0) {
        return;
    }
    if (errno == EWOULDBLOCK) {
        throw std::runtime_error("another program is writing " + path + "; give another file name");
    }
    // Some file systems know no locks; a capture can be written there all the same.
    if (errno != ENOLCK && errno != EOPNOTSUPP) {
        throw std::system_error(errno, std::generic_category(), path);
    }
}

wire::FileDescriptor openOutput(const std::string& path)
{
    if (path == "-") {
        return checked(::fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 0), path);
    }
    // O_TRUNC would empty the file before it is known whether another program is writing it.
    wire::FileDescriptor fd = checked(::open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, FILE_MODE), path);
    struct stat status = {};
    if (::fstat(fd.get(), &status) == 0 && S_ISREG(status.st_mode)) {
        lock(fd.get(), path);
        if (::ftruncate(fd.get(), 0) != 0) {
            throw std::system_error(errno, std::generic_category(), path);
        }
    }
    return fd;
}

} // namespace

std::optional<Format> formatOfName(std::string_view path)
{
    constexpr std::array PCAPNG_ENDINGS{".pcapng"sv, ".ntar"sv};
    // A log under such a name would surprise whoever opens it.
    constexpr std::array FOREIGN_ENDINGS{".pcap"sv, ".cap"sv,  ".asc"sv, ".blf"sv, ".trc"sv, ".mf4"sv, ".mdf"sv,
                                         ".csv"sv,  ".json"sv, ".gz"sv,  ".xz"sv,  ".zst"sv, ".zip"sv};
    std::string name(path);
    std::ranges::transform(name, name.begin(), [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    const auto isEnding = [&](std::string_view ending) { return name.ends_with(ending); };
    if (std::ranges::any_of(PCAPNG_ENDINGS, isEnding)) {
        return Format::PCAPNG;
    }
    return std::ranges::any_of(FOREIGN_ENDINGS, isEnding) ? std::nullopt : std::optional(Format::CANDUMP);
}

CaptureFile::CaptureFile(const std::string& path, Format format, const std::string& application)
    : isStandardOutput(path == "-"), name(isStandardOutput ? "standard output" : path), fd(openOutput(path)),
      encoder(makeEncoder(format, application))
{
    encoder->begin(pending);
    flush();
}

void CaptureFile::write(const CaptureFrame& frame)
{
    encoder->encode(frame, pending);
    ends.push_back(pending.size());
    if (pending.size() >= FLUSH_BYTES) {
        flush();
    }
}

void CaptureFile::flush()
{
    size_t written = 0;
    while (written < pending.size()) {
        const ssize_t count = ::write(fd.get(), pending.data() + written, pending.size() - written);
        if (count < 0) {
            const int errorNumber = errno;
            if (errorNumber == EINTR) {
                continue;
            }
            recover(errorNumber, written);
        }
        written += static_cast<size_t>(count);
    }
    fileBytes += pending.size();
    flushedFrames += ends.size();
    pending.clear();
    ends.clear();
}

void CaptureFile::recover(int errorNumber, size_t writtenBytes)
{
    const auto whole = std::ranges::upper_bound(ends, writtenBytes);
    const size_t keptBytes = whole == ends.begin() ? 0 : *(whole - 1);
    flushedFrames += static_cast<uint64_t>(whole - ends.begin());
    fileBytes += keptBytes;
    pending.clear();
    ends.clear();
    // Standard output may be a pipe, which keeps what it has taken, or a file with more in it than ours.
    if (!isStandardOutput && ::ftruncate(fd.get(), static_cast<off_t>(fileBytes)) == 0) {
        ::lseek(fd.get(), static_cast<off_t>(fileBytes), SEEK_SET);
    }
    throw std::system_error(errorNumber, std::generic_category(), name);
}

void CaptureFile::finish()
{
    flush();
    encoder->finish(pending);
    flush();
}

} // namespace capture
