#pragma once

#include <stdexcept>

namespace tool {

/// The command line is wrong in a way that only its command can see.
class WrongUsage : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

} // namespace tool
