#include <logger/SocketPath.h>

#include <logger/SystemError.h>

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

namespace vlogger {

namespace {

std::string directoryOf(const std::string& path)
{
    const size_t slash = path.rfind('/');
    if (slash == std::string::npos) {
        return ".";
    }
    return slash == 0 ? "/" : path.substr(0, slash);
}

/// Makes the directory if it is missing. Whoever can write there could put a socket of their own in our place, and
/// whoever owns a link in its place could lead it elsewhere.
void prepareDirectory(const std::string& directory)
{
    if (::mkdir(directory.c_str(), S_IRWXU) != 0 && errno != EEXIST) {
        throw systemError(errno, "cannot make the directory " + directory);
    }
    const wire::FileDescriptor fd(::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    struct stat state
    {
    };
    if (!fd || ::fstat(fd.get(), &state) != 0) {
        const int reason = errno;
        if (::lstat(directory.c_str(), &state) == 0 && S_ISLNK(state.st_mode)) {
            throw systemError(EACCES, "the directory " + directory + " is a link");
        }
        throw systemError(reason, "cannot open the directory " + directory);
    }
    if (state.st_uid != ::geteuid()) {
        throw systemError(EACCES, "the directory " + directory + " belongs to another user");
    }
    if ((state.st_mode & (S_IWGRP | S_IWOTH)) != 0) {
        throw systemError(EACCES, "other users may write to the directory " + directory);
    }
}

sockaddr_un addressOf(const std::string& path)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path) {
        throw systemError(ENAMETOOLONG, "the socket path " + path);
    }
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    return address;
}

wire::FileDescriptor makeSocket()
{
    wire::FileDescriptor fd(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    if (!fd) {
        throw systemError(errno, "cannot make a socket");
    }
    return fd;
}

/// Removes a socket that nobody listens on any more. The lock is ours, so a virtual logger that answers here would
/// be none of this kind; it is left alone all the same, and so is anything that is no socket.
void clearDeadSocket(const std::string& path, const sockaddr_un& address)
{
    struct stat state
    {
    };
    if (::lstat(path.c_str(), &state) != 0) {
        return; // bind() says what is wrong, if anything
    }
    if (!S_ISSOCK(state.st_mode)) {
        throw systemError(EEXIST, path + " is there and is no socket");
    }
    const wire::FileDescriptor probe = makeSocket();
    if (::connect(probe.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 ||
        errno != ECONNREFUSED) {
        throw systemError(EADDRINUSE, "somebody listens at " + path);
    }
    ::unlink(path.c_str());
}

} // namespace

SocketPath::SocketPath(std::string socketPath) : path(std::move(socketPath))
{
    const sockaddr_un address = addressOf(path);
    prepareDirectory(directoryOf(path));
    claim.emplace(lockOf(path));
    clearDeadSocket(path, address);
    wire::FileDescriptor fd = makeSocket();
    if (::bind(fd.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        throw systemError(errno, "cannot bind " + path);
    }
    struct stat state
    {
    };
    // The directory keeps others out already; each connection is checked as well.
    if (::chmod(path.c_str(), S_IRUSR | S_IWUSR) != 0 || ::lstat(path.c_str(), &state) != 0 ||
        ::listen(fd.get(), SOMAXCONN) != 0) {
        const int reason = errno;
        ::unlink(path.c_str());
        throw systemError(reason, "cannot listen at " + path);
    }
    device = state.st_dev;
    inode = state.st_ino;
    listener = std::move(fd);
}

SocketPath::~SocketPath()
{
    struct stat state
    {
    };
    if (::lstat(path.c_str(), &state) == 0 && state.st_dev == device && state.st_ino == inode) {
        ::unlink(path.c_str());
    }
}

} // namespace vlogger
