#pragma once

#include <chrono>
#include <cstdint>

/// One line on standard error that grows while a long replay runs; silent where nobody looks at a terminal.
class Progress
{
public:
    explicit Progress(uint64_t totalFrames);
    /// Takes the line away.
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    void sent(uint64_t frames);

private:
    const uint64_t total;
    const bool visible;
    bool shown = false;
    std::chrono::steady_clock::time_point next;
};
