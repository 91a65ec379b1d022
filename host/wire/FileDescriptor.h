#pragma once

#include <unistd.h>

#include <utility>

namespace wire {

/// Owns one descriptor and closes it.
class FileDescriptor
{
public:
    FileDescriptor() = default;
    explicit FileDescriptor(int descriptor) : fd(descriptor) {}
    FileDescriptor(FileDescriptor&& other) noexcept : fd(other.release()) {}
    FileDescriptor& operator=(FileDescriptor&& other) noexcept
    {
        if (this != &other) {
            reset(other.release());
        }
        return *this;
    }
    ~FileDescriptor() { reset(); }
    FileDescriptor(const FileDescriptor&) = delete;
    FileDescriptor& operator=(const FileDescriptor&) = delete;

    int get() const { return fd; }
    explicit operator bool() const { return fd >= 0; }

    /// Gives the descriptor away.
    int release() { return std::exchange(fd, -1); }

    /// Closes the descriptor and takes another one.
    void reset(int descriptor = -1)
    {
        if (fd >= 0) {
            ::close(fd);
        }
        fd = descriptor;
    }

private:
    int fd = -1;
};

} // namespace wire
