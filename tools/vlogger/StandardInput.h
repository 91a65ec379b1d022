#pragma once

#include "StopSignal.h"

#include <array>
#include <streambuf>

namespace tool {

/// Standard input that ends when the user stops the command, also while nothing comes.
class StandardInput : public std::streambuf
{
public:
    /// @param stopSignal  outlives this
    explicit StandardInput(StopSignal& stopSignal) : stop(stopSignal) {}

protected:
    int_type underflow() override;

private:
    StopSignal& stop;
    std::array<char, 65536> buffer;
};

} // namespace tool
