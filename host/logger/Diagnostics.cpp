#include <logger/Diagnostics.h>

#include <iostream>
#include <string>

namespace vlogger::diagnostics {

namespace {

void write(std::string_view tag, std::string_view text)
{
    std::string line(tag);
    line.append("VirtualLogger: ").append(text).append("\n");
    std::cerr.write(line.data(), static_cast<std::streamsize>(line.size())).flush();
}

} // namespace

void warn(std::string_view text)
{
    write("[WARNING] ", text);
}

void error(std::string_view text)
{
    write("[ERROR] ", text);
}

} // namespace vlogger::diagnostics
