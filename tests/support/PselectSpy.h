#pragma once

#include <cstdint>
#include <vector>

/// Watches pselect(), which goes to the system unless it is to fail. Link the source with WRAP pselect.
namespace pselectspy {

struct Call
{
    int descriptors = 0;         ///< first argument
    std::vector<int> watched{};  ///< members of the read set
    bool readOnly = false;       ///< neither write nor error set
    bool withSignalMask = false; ///< a signal mask was given
    int64_t timeoutNs = -1;      ///< -1: none
};

/// The next `count` calls fail at once with `errorNumber`.
void failNext(int errorNumber, unsigned count = 1);

/// Number of calls so far.
unsigned calls();

/// Waits, with a generous limit, until there were `total` calls since the start.
bool waitForTotal(unsigned total);

/// The same for `more` calls from now on.
bool waitForMore(unsigned more);

/// The latest call.
Call last();

} // namespace pselectspy
