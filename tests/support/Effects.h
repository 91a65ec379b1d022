#pragma once

#include <string>
#include <vector>

/// What the doubles of the platform and the system are asked to do. Each effect can also be written to standard
/// output as a line "{effect}", so that one capture shows effects and log lines in their common order.
namespace effects {

/// From now on effects are written to standard output.
void show();

/// Notes an effect. For doubles.
void note(const std::string& effect);

/// Every effect so far.
std::vector<std::string> all();

/// Number of effects so far that begin with `start`.
size_t count(const std::string& start);

} // namespace effects
