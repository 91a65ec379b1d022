#include <CaptureRoundTrip.h>

#include <capture/CandumpCaptureReader.h>
#include <capture/CandumpEncoder.h>

#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    readAndWriteBack<capture::CandumpCaptureReader>(std::string(data, data + size), capture::CandumpEncoder(),
                                                    [](capture::CaptureFrame frame) {
                                                        // Read, but not written.
                                                        frame.nanoseconds = 0;
                                                        frame.direction = capture::Direction::UNKNOWN;
                                                        return frame;
                                                    });
    return 0;
}
