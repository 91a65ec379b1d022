#pragma once

#include <csignal>

namespace ethernet {

/// True if SIGPIPE has its default action, which is to end the process.
bool brokenPipeIsFatal();

/// Keeps the SIGPIPE of one write on the calling thread from ending the process, and changes nothing for anybody
/// else: the signal is blocked for this thread only, and what the write raised is taken away before the old mask
/// returns. A SIGPIPE that was waiting before is left to the application.
///
/// Keeps errno.
class BrokenPipeGuard
{
public:
    /// @param active  false: do nothing at all
    explicit BrokenPipeGuard(bool active);
    ~BrokenPipeGuard();
    BrokenPipeGuard(const BrokenPipeGuard&) = delete;
    BrokenPipeGuard& operator=(const BrokenPipeGuard&) = delete;

    /// The guarded write failed with EPIPE, and so has raised the signal.
    void writeBrokePipe() { raised = true; }

private:
    bool active;
    bool raised = false;
    bool waitingBefore = false;
    sigset_t maskBefore;
};

} // namespace ethernet
