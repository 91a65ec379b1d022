#pragma once

#include <string>

namespace tool {

/// A place for a socket that nobody else knows, in a directory of its own that goes with this object.
class TemporarySocket
{
public:
    /// @throws std::system_error if the directory cannot be made
    TemporarySocket();
    ~TemporarySocket();
    TemporarySocket(const TemporarySocket&) = delete;
    TemporarySocket& operator=(const TemporarySocket&) = delete;

    std::string path() const { return directory + "/socket"; }

private:
    std::string directory;
};

} // namespace tool
