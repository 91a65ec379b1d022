#pragma once

#include <stdexcept>
#include <string>

namespace capture {

/// A place of a capture that cannot be read; names the place and the reason.
class CaptureError : public std::runtime_error
{
public:
    CaptureError(const std::string& text, bool hasMore) : std::runtime_error(text), more(hasMore) {}

    /// True if only one frame is unreadable and the next call goes on behind it; false if the capture ends here.
    bool canContinue() const { return more; }

private:
    bool more;
};

} // namespace capture
