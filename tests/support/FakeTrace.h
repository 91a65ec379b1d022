#pragma once

#include <string>
#include <variant>
#include <vector>

/// Trace streams without framing: link the source, and TraceMessageBuffer gives the records it is told to, also
/// such as no well-formed stream holds. Notes the effects "buffer FD SIZE" with " log lock" behind it if it got the
/// log mutex, "buffer FD gone" and "read FD".
namespace faketrace {

using Record = std::vector<unsigned char>;

/// getNextMessage() throws VQException with this text.
struct Failure
{
    std::string text;
};

using Step = std::variant<Record, Failure>;

/// One end of a socket pair for a device's descriptor; the other end stays here.
class Feed
{
public:
    Feed();
    ~Feed();
    Feed(const Feed&) = delete;
    Feed& operator=(const Feed&) = delete;

    /// The device's end. Its owner closes it.
    int deviceEnd() const { return ends[0]; }

    /// Makes the descriptor readable. The next read() of the buffer over it, under whatever number, finds `steps`.
    void arrives(std::vector<Step> steps);

private:
    int ends[2] = {-1, -1};
};

/// Every buffer's read() fails with -1 from now on, as long as nothing is fed.
void failReads(bool fail);

} // namespace faketrace
