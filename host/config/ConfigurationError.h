#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

namespace config {

/// One thing that is wrong in a configuration.
struct Mistake
{
    uint32_t line = 0; ///< from 1; 0: the configuration does not come from a file
    uint32_t column = 0;
    std::string text;

    bool operator==(const Mistake&) const = default;
};

/// A configuration that cannot be used; what() is one line per mistake, "name:line:column: text".
class ConfigurationError : public std::runtime_error
{
public:
    /// @param name  what the lines begin with: a file name
    ConfigurationError(const std::string& name, std::vector<Mistake> found);

    const std::vector<Mistake>& mistakes() const { return all; }

private:
    std::vector<Mistake> all;
};

} // namespace config
