#pragma once

#include <config/Configuration.h>
#include <config/ConfigurationError.h>

#include <string>
#include <string_view>

namespace config {

/// Reads a configuration in TOML. Everything that the text leaves out keeps its default.
///
/// @param text  the configuration
/// @param name  stands in front of every mistake: a file name
/// @throws ConfigurationError with every mistake, in the order of the text; a text that is no TOML has one
Configuration readConfiguration(std::string_view text, const std::string& name);

/// Reads a file.
/// @throws ConfigurationError as above; std::system_error if the file cannot be read
Configuration readConfigurationFile(const std::string& path);

} // namespace config
