#pragma once

#include <string>

/// Lets std::cout, where the library writes its diagnostic lines, end in a file. For good: the library still writes
/// while the process exits. What the program itself has to say it writes to a stream over the old buffer.
/// @throws std::runtime_error if the file cannot be written
void moveLibraryLines(const std::string& file);
