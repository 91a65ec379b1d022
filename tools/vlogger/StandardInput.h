#pragma once

#include "StopSignal.h"

#include <array>
#include <cstddef>
#include <streambuf>

namespace tool {

/// Standard input that ends when the user stops the command, also while nothing comes. However small the pieces in which
/// it comes, the last PUT_BACK_BYTES can be put back.
class StandardInput : public std::streambuf
{
public:
    /// @param stopSignal  outlives this; nullptr: nothing ends it early
    explicit StandardInput(StopSignal* stopSignal) : stop(stopSignal) {}

    static constexpr size_t PUT_BACK_BYTES = 8;

protected:
    int_type underflow() override;

private:
    StopSignal* stop;
    std::array<char, PUT_BACK_BYTES + 65536> buffer;
};

} // namespace tool
