#pragma once

#include <cstdint>

/// The board without a logger: link the source, and PIE answers as told.
namespace fakeboard {

struct Answers
{
    uint32_t boardType = 1;
    uint32_t deviceCode = 0;
    bool canFdDevice = false;
};

/// What every PIE built from now on answers. At first a plain board.
void answer(Answers answers);

} // namespace fakeboard
