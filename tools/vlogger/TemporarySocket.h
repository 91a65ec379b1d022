#pragma once

#include <string>

namespace tool {

/// A place for a socket that nobody else knows, in a directory of its own that goes with this object. What
/// killed processes have left there before goes with the next one.
class TemporarySocket
{
public:
    /// @throws std::system_error if the directory cannot be made
    TemporarySocket();
    ~TemporarySocket();
    TemporarySocket(const TemporarySocket&) = delete;
    TemporarySocket& operator=(const TemporarySocket&) = delete;

    std::string path() const;

private:
    std::string directory;
};

} // namespace tool
