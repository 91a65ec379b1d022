#pragma once

#include "Usage.h"

#include <capture/CaptureFile.h>

#include <CLI/CLI.hpp>

#include <string>

namespace tool {

/// Adds --format to a command that writes a capture.
inline void addFormatOption(CLI::App& command, std::string& format)
{
    command.add_option("--format", format, "Format of the file: log or pcapng; otherwise its name decides")
        ->check(CLI::IsMember({"log", "pcapng"}))
        ->type_name("FORMAT");
}

/// @throws WrongUsage if neither the option nor the name says it
inline capture::Format chosenFormat(const std::string& format, const std::string& path)
{
    if (!format.empty()) {
        return format == "pcapng" ? capture::Format::PCAPNG : capture::Format::CANDUMP;
    }
    const auto named = capture::formatOfName(path);
    if (!named) {
        throw WrongUsage("\"" + path + "\": this format is not written; name it .log or .pcapng, or give --format");
    }
    return *named;
}

} // namespace tool
