#pragma once

#include <wire/FileDescriptor.h>

#include <string>

namespace vlogger {

/// An exclusive claim, visible to other processes as a locked file, that ends with the process however that ends.
/// The file tells the number of the process.
class LockFile
{
public:
    /// @throws std::system_error EADDRINUSE if somebody else holds the claim; others if the file cannot be made
    explicit LockFile(std::string lockPath);

    /// Removes the file, too.
    ~LockFile();
    LockFile(const LockFile&) = delete;
    LockFile& operator=(const LockFile&) = delete;

private:
    const std::string path;
    wire::FileDescriptor fd;
};

} // namespace vlogger
