#pragma once

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

inline capture::Format chosenFormat(const std::string& format, const std::string& path)
{
    if (format.empty()) {
        return capture::formatOfName(path);
    }
    return format == "pcapng" ? capture::Format::PCAPNG : capture::Format::CANDUMP;
}

} // namespace tool
