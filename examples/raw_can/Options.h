#pragma once

#include <optional>
#include <string>

/// What the command line asks for.
struct Options
{
    std::string logFile;   ///< candump log to replay
    std::string linesFile; ///< where the library's own lines go; empty: standard output
};

/// Reads the command line; prints help and complaints itself.
/// @return nothing if the program is to end at once, with `exitCode`
std::optional<Options> parseOptions(int argc, char** argv, int& exitCode);
