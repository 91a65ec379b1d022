#pragma once

#include <iostream>
#include <sstream>
#include <string>

/// Diagnostic lines that carry their whole prefix in the text: written without the log lock, errors to standard
/// error. Each is built first and written by one call, so that lines of several threads do not mix.
namespace directline {

template <typename... Parts>
void write(std::ostream& stream, const Parts&... parts)
{
    std::ostringstream line;
    (line << ... << parts);
    line << '\n';
    const std::string text = line.str();
    stream.write(text.data(), static_cast<std::streamsize>(text.size())).flush();
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
