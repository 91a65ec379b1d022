#pragma once

#include <LogLine.h>

#include <iostream>
#include <locale>
#include <sstream>

/// Diagnostic lines that carry their whole prefix in the text: written without the log lock, errors to standard
/// error. Each is built first and written by one call, so that lines of several threads do not mix. Numbers look
/// the same whatever locale the application has set.
namespace directline {

template <typename... Parts>
void write(std::ostream& stream, const Parts&... parts)
{
    std::ostringstream line;
    line.imbue(std::locale::classic());
    (line << ... << parts);
    line << '\n';
    logline::writeOut(stream, line.str());
}

/// Writes one line to standard output; `parts` are whatever operator<< prints.
template <typename... Parts>
void toOutput(const Parts&... parts)
{
    write(std::cout, parts...);
}

/// Writes one line to standard error.
template <typename... Parts>
void toError(const Parts&... parts)
{
    write(std::cerr, parts...);
}

} // namespace directline
