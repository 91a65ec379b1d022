#pragma once

#include <config/Configuration.h>

#include <string>

namespace config {

/// Writes a configuration in TOML: every table with every key, defaults included; of a list of tables that is empty
/// one table as a comment. What readConfiguration() makes of
/// it equals `configuration`.
std::string writeConfiguration(const Configuration& configuration);

/// The same as JSON, with the same names.
std::string writeConfigurationJson(const Configuration& configuration);

} // namespace config
