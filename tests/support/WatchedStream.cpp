#include <support/WatchedStream.h>

#include <gtest/gtest.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <iostream>
#include <system_error>

#include <fcntl.h>
#include <unistd.h>

WatchedStream::WatchedStream(int watchedFd) : fd(watchedFd)
{
    std::fflush(nullptr);
    std::array<int, 2> ends{};
    original = ::fcntl(fd, F_DUPFD_CLOEXEC, 3);
    if (original < 0 || ::pipe2(ends.data(), O_CLOEXEC) != 0) {
        throw std::system_error(errno, std::generic_category(), "pipe2");
    }
    ::dup2(ends[1], fd);
    ::close(ends[1]);
    collector = std::make_unique<LineCollector>(ends[0]);
}

WatchedStream::~WatchedStream()
{
    restore();
    if (testing::Test::HasFailure()) {
        for (const std::string& line : collector->allLines()) {
            std::cerr << (fd == STDOUT_FILENO ? "stdout: " : "stderr: ") << line << '\n';
        }
    }
}

bool WatchedStream::awaitLine(std::string_view line)
{
    return collector->awaitLine(line);
}

std::vector<std::string> WatchedStream::release()
{
    restore();
    return collector->allLines();
}

void WatchedStream::restore()
{
    if (original < 0) {
        return;
    }
    std::cout.flush();
    std::fflush(nullptr);
    ::dup2(original, fd);
    ::close(original);
    original = -1;
}
