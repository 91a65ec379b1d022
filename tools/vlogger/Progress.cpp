#include "Progress.h"

#include "Terminal.h"

#include <capture/Counted.h>

#include <cmath>
#include <cstdio>
#include <iostream>
#include <unistd.h>

namespace tool {

namespace {

constexpr std::chrono::milliseconds STEP{200};

std::string duration(double seconds)
{
    char text[32];
    const long long whole = std::llround(seconds);
    std::snprintf(text, sizeof text, "%lld:%02lld", whole / 60, whole % 60);
    return text;
}

} // namespace

std::string progressText(const std::string& what, uint64_t frames, double elapsedSeconds, double done)
{
    std::string text = what + " " + capture::countedFrames(frames);
    if (elapsedSeconds > 0) {
        text += ", " + std::to_string(static_cast<uint64_t>(static_cast<double>(frames) / elapsedSeconds)) + "/s";
    }
    if (done > 0 && done <= 1) {
        text += ", " + std::to_string(static_cast<int>(done * 100)) + " %, " +
                duration(elapsedSeconds / done * (1 - done)) + " left";
    }
    return text;
}

Progress::Progress(std::string whatIsDone)
    : isShown(::isatty(STDERR_FILENO) == 1), what(std::move(whatIsDone)), start(Clock::now()),
      nextShow(start + STEP)
{
}

Progress::~Progress()
{
    if (isDirty) {
        std::cerr << "\r\033[K" << std::flush;
    }
}

void Progress::show(uint64_t frames, double done)
{
    const Clock::time_point now = Clock::now();
    if (!isShown || now < nextShow) {
        return;
    }
    nextShow = now + STEP;
    isDirty = true;
    const std::string text = progressText(what, frames, std::chrono::duration<double>(now - start).count(), done);
    // A line that wraps could not be drawn over.
    const size_t columns = terminalAt(STDERR_FILENO).value_or(Terminal()).columns;
    std::cerr << "\r\033[K" << text.substr(0, columns - 1) << std::flush;
}

} // namespace tool
