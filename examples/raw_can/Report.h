#pragma once

#include "Traffic.h"

#include <chrono>
#include <cstdint>
#include <map>
#include <ostream>

/// What one run counted.
struct Outcome
{
    std::map<RowKey, uint64_t> sent;
    std::map<RowKey, uint64_t> received;
    uint64_t refused = 0; ///< frames that the transmitter did not take
    std::chrono::duration<double> duration{0};
};

/// Prints the table, the totals and what was skipped.
/// @return number of frames that were sent and did not arrive
uint64_t printReport(std::ostream& stream, const Traffic& traffic, const Outcome& outcome);
