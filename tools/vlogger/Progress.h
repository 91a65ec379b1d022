#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace tool {

/// Shows on a terminal how far long work has come: frames, rate, remaining time. Says nothing if standard error is
/// none.
class Progress
{
public:
    explicit Progress(std::string whatIsDone);
    /// Takes the line away again.
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    /// Cheap enough for every frame.
    /// @param done   called only if it is shown, since it may ask the system: 0 to 1; negative: nobody knows how much
    ///               there is
    template <typename Done>
    void update(uint64_t frames, Done done)
    {
        if (isShown && (frames & LOOK_MASK) == 0) {
            show(frames, done());
        }
    }
    /// The same for work that comes slowly.
    void show(uint64_t frames, double done);

private:
    using Clock = std::chrono::steady_clock;

    static constexpr uint64_t LOOK_MASK = 0x3FF;

    const bool isShown;
    const std::string what;
    const Clock::time_point start;
    Clock::time_point nextShow;
    bool isDirty = false;
};

/// What update() shows, without the way it is brought to the terminal.
std::string progressText(const std::string& what, uint64_t frames, double elapsedSeconds, double done);

} // namespace tool
