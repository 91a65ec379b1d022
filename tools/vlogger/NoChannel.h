#pragma once

#include <stdexcept>

namespace tool {

/// The frames of an interface in a capture cannot be sent on any channel.
class NoChannel : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

} // namespace tool
