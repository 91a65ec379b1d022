#include <logger/LockFile.h>

#include <logger/SystemError.h>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
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
                              reason == EWOULDBLOCK ? "a virtual logger holds " + path : "cannot lock " + path);
        }
    } while (!leadsTo(path, fd.get()));
}

LockFile::~LockFile()
{
    ::unlink(path.c_str()); // while the lock is held, so that the file is ours
}

} // namespace vlogger
