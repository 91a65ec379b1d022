#pragma once

#include <string>
#include <system_error>

namespace tool {

/// Takes the numbers 0 to 2 if the caller has closed them, so that no socket and no file gets one of them and is
/// written to by mistake. Reading and writing there fails as before.
void occupyStandardStreams();

/// @throws std::runtime_error if standard output has never been open for writing, for a command that would otherwise
///         find out only with its first frame
void requireStandardOutput();

/// True if standard output is a pipe and whoever read it has gone.
bool hasReaderGone();

/// Brings out what stands in standard output.
/// @return false if something could not be written, other than because the reader has gone: `head` has seen enough
bool flushStandardOutput();

/// True if a capture could not be written because whoever reads standard output has seen enough.
/// @param path  where the capture goes, "-": standard output
bool isReaderGone(const std::string& path, const std::system_error& error);

} // namespace tool
