#include <logger/Diagnostics.h>

#include <wire/WholeWrite.h>

#include <iostream>
#include <string>

namespace vlogger::diagnostics {

namespace {

void write(std::string_view tag, std::string_view text)
{
    std::string line(tag);
    line.append("VirtualLogger: ").append(text).append("\n");
    wire::writeWhole(std::cerr, line);
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
