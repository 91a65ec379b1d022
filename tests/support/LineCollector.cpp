#include <support/LineCollector.h>

#include <algorithm>
#include <array>
#include <cerrno>

#include <unistd.h>

LineCollector::LineCollector(int readFd) : fd(readFd), thread([this] { run(); }) {}

LineCollector::~LineCollector()
{
    if (thread.joinable()) {
        thread.join();
    }
}

size_t LineCollector::count(std::string_view line)
{
    const std::lock_guard lock(mutex);
    return static_cast<size_t>(std::count(lines.begin(), lines.end(), line));
}

bool LineCollector::awaitLine(std::string_view line, std::chrono::milliseconds limit)
{
    std::unique_lock lock(mutex);
    return changed.wait_for(lock, limit,
                            [this, line] { return std::find(lines.begin(), lines.end(), line) != lines.end(); });
}

std::vector<std::string> LineCollector::allLines()
{
    if (thread.joinable()) {
        thread.join();
    }
    const std::lock_guard lock(mutex);
    std::vector<std::string> all = lines;
    if (!unfinished.empty()) {
        all.push_back(unfinished);
    }
    return all;
}

void LineCollector::run()
{
    std::array<char, 4096> bytes{};
    for (;;) {
        const ssize_t count = ::read(fd, bytes.data(), bytes.size());
        if (count > 0) {
            take({bytes.data(), static_cast<size_t>(count)});
        } else if (count == 0 || errno != EINTR) {
            break;
        }
    }
    ::close(fd);
}

void LineCollector::take(std::string_view bytes)
{
    const std::lock_guard lock(mutex);
    for (const char byte : bytes) {
        if (byte == '\n') {
            lines.push_back(std::move(unfinished));
            unfinished.clear();
        } else {
            unfinished += byte;
        }
    }
    changed.notify_all();
}
