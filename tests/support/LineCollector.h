#pragma once

#include <support/Waiting.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

/// Reads a pipe to its end in a thread of its own and keeps the lines, so that the writer never blocks and the test
/// can wait for a line.
///
/// Threads: any.
class LineCollector
{
public:
    /// @param fd  descriptor open for reading; closed at the end of the input
    explicit LineCollector(int fd);

    /// Waits for the end of the input.
    ~LineCollector();
    LineCollector(const LineCollector&) = delete;
    LineCollector& operator=(const LineCollector&) = delete;

    /// Waits until this line, compared whole, has been written.
    bool awaitLine(std::string_view line, std::chrono::milliseconds limit = LIMIT);

    /// How often this line, compared whole, has been written so far.
    size_t count(std::string_view line);

    /// Waits for the end of the input and gives every line, the last one also if it has no line end.
    std::vector<std::string> allLines();

private:
    void run();
    void take(std::string_view bytes);

    const int fd;
    std::mutex mutex;
    std::condition_variable changed;
    std::vector<std::string> lines;
    std::string unfinished;
    std::thread thread;
};
