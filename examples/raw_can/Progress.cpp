#include "Progress.h"

#include <unistd.h>

#include <cstdio>

namespace {

constexpr std::chrono::milliseconds INTERVAL{200};
/// How many frames pass between two looks at the clock.
constexpr uint64_t STRIDE = 256;

} // namespace

Progress::Progress(uint64_t totalFrames)
    : total(totalFrames), visible(isatty(STDERR_FILENO) != 0), next(std::chrono::steady_clock::now() + INTERVAL)
{
}

Progress::~Progress()
{
    if (shown) {
        std::fputs("\r\033[K", stderr);
    }
}

void Progress::sent(uint64_t frames)
{
    if (!visible || frames % STRIDE != 0) {
        return;
    }
    const auto now = std::chrono::steady_clock::now();
    if (now < next) {
        return;
    }
    next = now + INTERVAL;
    shown = true;
    std::fprintf(stderr, "\r%llu of %llu frames sent (%llu %%)", static_cast<unsigned long long>(frames),
                 static_cast<unsigned long long>(total), static_cast<unsigned long long>(100 * frames / total));
}
