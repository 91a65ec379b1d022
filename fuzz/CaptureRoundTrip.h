#pragma once

#include <capture/CaptureEncoder.h>
#include <capture/CaptureReader.h>

#include <cstdlib>
#include <sstream>
#include <string>
#include <vector>

/// Reads every frame of a capture, over everything unreadable. Whatever is read must come back unchanged from what
/// `encoder` makes of it, as far as `comparable` keeps what that format can hold.
template <typename Reader, typename Encoder, typename Comparable>
void readAndWriteBack(const std::string& bytes, Encoder encoder, Comparable comparable)
{
    std::istringstream input(bytes);
    Reader reader(input);
    std::vector<capture::CaptureFrame> frames;
    std::vector<uint8_t> written;
    encoder.begin(written);
    for (bool more = true; more;) {
        capture::CaptureFrame frame;
        try {
            more = reader.next(frame);
            if (more) {
                encoder.encode(frame, written);
                frames.push_back(comparable(frame));
            }
        } catch (const capture::CaptureError& error) {
            more = error.canContinue();
        }
    }
    encoder.finish(written);
    (void)reader.remarks();

    std::istringstream again(std::string(written.begin(), written.end()));
    Reader second(again);
    capture::CaptureFrame frame;
    for (const capture::CaptureFrame& expected : frames) {
        if (!second.next(frame) || !(comparable(frame) == expected)) {
            std::abort();
        }
    }
    if (second.next(frame)) {
        std::abort();
    }
}
