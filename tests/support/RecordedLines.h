#pragma once

#include <algorithm>
#include <condition_variable>
#include <iostream>
#include <mutex>
#include <ostream>
#include <streambuf>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <support/Recorder.h>

/// Takes over std::cout while it lives, keeps every line, and lets a test wait for one.
///
/// note() adds lines of the test's own, so that one list shows log lines, callbacks and calls of doubles in their
/// common order. Threads: any.
class RecordedLines : private std::streambuf
{
public:
    RecordedLines() : original(std::cout.rdbuf(this)) {}
    ~RecordedLines() override { std::cout.rdbuf(original); }
    RecordedLines(const RecordedLines&) = delete;
    RecordedLines& operator=(const RecordedLines&) = delete;

    void note(const std::string& line)
    {
        const std::lock_guard lock(mutex);
        recorded.push_back(line);
        changed.notify_all();
    }

    std::vector<std::string> all() const
    {
        const std::lock_guard lock(mutex);
        return recorded;
    }

    /// Gives what was recorded so far and starts anew.
    std::vector<std::string> take()
    {
        const std::lock_guard lock(mutex);
        return std::exchange(recorded, {});
    }

    /// How often a line, compared whole, is there.
    size_t count(std::string_view line) const
    {
        const std::lock_guard lock(mutex);
        return countLocked(line);
    }

    /// Waits until a line, compared whole, is there so many times.
    /// @return false when the limit passed first
    bool await(std::string_view line, size_t times = 1) const
    {
        std::unique_lock lock(mutex);
        return changed.wait_for(lock, Recorder<int>::LIMIT, [&] { return countLocked(line) >= times; });
    }

private:
    int_type overflow(int_type character) override
    {
        const char text = traits_type::to_char_type(character);
        add({&text, 1});
        return character;
    }

    std::streamsize xsputn(const char* text, std::streamsize size) override
    {
        add({text, static_cast<size_t>(size)});
        return size;
    }

    void add(std::string_view text)
    {
        const std::lock_guard lock(mutex);
        for (const char character : text) {
            if (character == '\n') {
                recorded.push_back(std::exchange(unfinished, {}));
            } else {
                unfinished += character;
            }
        }
        changed.notify_all();
    }

    size_t countLocked(std::string_view line) const
    {
        return static_cast<size_t>(std::count(recorded.begin(), recorded.end(), line));
    }

    std::streambuf* const original;
    mutable std::mutex mutex;
    mutable std::condition_variable changed;
    std::vector<std::string> recorded;
    std::string unfinished;
};
