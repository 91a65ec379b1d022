#include "TemporarySocket.h"

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <system_error>

namespace tool {

TemporarySocket::TemporarySocket()
{
    // Not TMPDIR: the path of a socket may have 107 bytes only.
    std::string name = "/tmp/vlogger-run-XXXXXX";
    if (::mkdtemp(name.data()) == nullptr) {
        throw std::system_error(errno, std::generic_category(), name);
    }
    directory = name;
}

TemporarySocket::~TemporarySocket()
{
    std::error_code ignored;
    std::filesystem::remove_all(directory, ignored);
}

} // namespace tool
