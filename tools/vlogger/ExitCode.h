#pragma once

/// How the program ends. docs/vlogger.md lists them; they do not change.
namespace tool {

constexpr int SUCCESS = 0;
constexpr int FAILURE = 1;     ///< something could not be done; standard error says what
constexpr int WRONG_USAGE = 2; ///< the command line, or a text in it, cannot be
constexpr int LOSS = 3;        ///< done, but frames were lost or could not be read; standard error says how many

// Of `run` alone, which otherwise ends like its program.
constexpr int CANNOT_SERVE = 125;
constexpr int CANNOT_EXECUTE = 126;
constexpr int NOT_FOUND = 127;
constexpr int KILLED_BY_SIGNAL = 128; ///< plus the number of the signal

} // namespace tool
