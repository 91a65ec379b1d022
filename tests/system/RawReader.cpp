#include "RawReader.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

namespace {

constexpr int POLL_LIMIT_MS = 30'000;

} // namespace

RawReader::RawReader(const char* path) : fd(::open(path, O_RDONLY)), buffer(fd, 65536, nullptr)
{
    EXPECT_GE(fd, 0) << path;
}

RawReader::~RawReader()
{
    ::close(fd);
}

ReceivedFrame RawReader::nextFrame()
{
    unsigned char* begin = nullptr;
    unsigned char* end = nullptr;
    while (!buffer.getNextMessage(begin, end)) {
        pollfd ready{.fd = fd, .events = POLLIN, .revents = 0};
        if (::poll(&ready, 1, POLL_LIMIT_MS) != 1 || buffer.read() <= 0) {
            ReceivedFrame none;
            none.id = 0xFFFFFFFF;
            return none;
        }
    }
    return ReceivedFrame::of(begin, static_cast<size_t>(end - begin));
}
