#pragma once

#include <memory>

namespace vlogger {

/// Somebody whose frame or message had to wait because a queue was full. Keeps it until resume().
class Sender : public std::enable_shared_from_this<Sender>
{
public:
    virtual ~Sender() = default;

    /// The queue has room again, or does not hold anybody back any more: offer what waits once more.
    virtual void resume() = 0;
};

} // namespace vlogger
