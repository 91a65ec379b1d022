#include <logger/LockFile.h>

#include <logger/SystemError.h>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <utility>

namespace vlogger {

namespace {

/// True if the path still leads to the open file: its last holder may have removed it before we got the lock.
bool leadsTo(const std::string& path, int fd)
{
    struct stat named
    {
    };
    struct stat open
    {
    };
    return ::lstat(path.c_str(), &named) == 0 && ::fstat(fd, &open) == 0 && named.st_dev == open.st_dev &&
           named.st_ino == open.st_ino;
}

/// Who holds the claim, as far as the file says so. A holder that has just taken over a dead one's file has not yet put
/// itself in its place.
std::string holderOf(int fd)
{
    char text[16] = {};
    const ssize_t count = ::pread(fd, text, sizeof text - 1, 0);
    const long number = count > 0 ? std::strtol(text, nullptr, 10) : 0;
    return number > 0 && ::kill(static_cast<pid_t>(number), 0) == 0
               ? "the virtual logger of process " + std::to_string(number)
               : "a virtual logger";
}

/// For holderOf() alone, so that a full disk does no harm.
void nameHolder(int fd)
{
    const std::string text = std::to_string(::getpid()) + "\n";
    [[maybe_unused]] const bool isNamed =
        ::ftruncate(fd, 0) == 0 && ::pwrite(fd, text.data(), text.size(), 0) == static_cast<ssize_t>(text.size());
}

} // namespace

LockFile::LockFile(std::string lockPath) : path(std::move(lockPath))
{
    do {
        fd.reset(::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, S_IRUSR | S_IWUSR));
        if (!fd) {
            throw systemError(errno, "cannot make " + path);
        }
        if (::flock(fd.get(), LOCK_EX | LOCK_NB) != 0) {
            const int reason = errno;
            throw systemError(reason == EWOULDBLOCK ? EADDRINUSE : reason,
                              reason == EWOULDBLOCK ? holderOf(fd.get()) + " holds " + path
                                                    : "cannot lock " + path);
        }
    } while (!leadsTo(path, fd.get()));
    nameHolder(fd.get());
}

LockFile::~LockFile()
{
    ::unlink(path.c_str()); // while the lock is held, so that the file is ours
}

} // namespace vlogger
