#include "CaptureInput.h"

#include <capture/CaptureError.h>

#include <cerrno>
#include <filesystem>
#include <iostream>
#include <stdexcept>
#include <system_error>

namespace tool {

namespace {

constexpr uint64_t COMPLAINTS_MAX = 10;

} // namespace

CaptureInput::CaptureInput(const std::string& path, StopSignal* stopSignal)
    : name(path), stop(stopSignal), stream(&file)
{
    if (path == "-") {
        name = "standard input";
        input.rdbuf(&standardInput.emplace(stop));
        stream = &input;
    } else {
        file.open(path, std::ios::binary);
        // A directory can be opened, which shows only when it is read.
        if (!file || std::filesystem::is_directory(path)) {
            throw std::system_error(file ? EISDIR : errno, std::generic_category(), path);
        }
        std::error_code unknown;
        const auto size = std::filesystem::file_size(path, unknown);
        sizeBytes = unknown ? 0 : static_cast<double>(size);
    }
    try {
        reader = capture::makeCaptureReader(*stream);
    } catch (const capture::CaptureError& error) {
        throw std::runtime_error(name + ": " + error.what());
    }
}

bool CaptureInput::next(capture::CaptureFrame& frame)
{
    while (true) {
        try {
            const bool isFrame = reader->next(frame) && !isStopped();
            hasFrames = hasFrames || isFrame;
            return isFrame;
        } catch (const capture::CaptureError& error) {
            // What the user has cut off is no mistake of the capture.
            if (isStopped()) {
                return false;
            }
            if (stream->bad()) {
                throw std::runtime_error(name + ": " + error.what());
            }
            complain(error.what());
            if (!error.canContinue()) {
                return false;
            }
        }
    }
}

bool CaptureInput::isStopped() const
{
    return stop != nullptr && stop->hasCome();
}

void CaptureInput::complain(const std::string& text)
{
    ++errors;
    if (errors <= COMPLAINTS_MAX) {
        std::cerr << "vlogger: " << name << ": " << text << std::endl;
    }
}

double CaptureInput::done()
{
    const auto position = stream->tellg();
    return sizeBytes > 0 && position >= 0 ? static_cast<double>(position) / sizeBytes : -1;
}

void CaptureInput::remark() const
{
    if (errors > COMPLAINTS_MAX) {
        std::cerr << "vlogger: " << name << ": " << errors << " places in all cannot be read" << std::endl;
    }
    if (errors != 0 && !hasFrames) {
        std::cerr << "vlogger: " << name
                  << ": no frame in it can be read; pcapng files, candump logs, and what candump shows can"
                  << std::endl;
    }
    if (errors == 0 && isUseless()) {
        std::cerr << "vlogger: " << name << ": no CAN frame is in it" << std::endl;
    }
    for (const std::string& text : reader->remarks()) {
        std::cerr << "vlogger: " << name << ": " << text << std::endl;
    }
}

} // namespace tool
