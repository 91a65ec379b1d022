#pragma once

#include <support/LineCollector.h>

#include <memory>
#include <string>
#include <string_view>
#include <vector>

/// Takes over standard output or standard error of this process, from construction to release(), and lets the test
/// wait for a line. Where nothing is to be waited for, CapturedOutput is the simpler tool.
///
/// A failing test shows what was written.
class WatchedStream
{
public:
    /// @param fd  STDOUT_FILENO or STDERR_FILENO
    explicit WatchedStream(int fd);
    ~WatchedStream();
    WatchedStream(const WatchedStream&) = delete;
    WatchedStream& operator=(const WatchedStream&) = delete;

    /// Waits until this line, compared whole, has been written.
    bool awaitLine(std::string_view line);

    /// Gives the stream back.
    /// @return every line that was written meanwhile
    std::vector<std::string> release();

private:
    void restore();

    const int fd;
    int original = -1;
    std::unique_ptr<LineCollector> collector;
};
