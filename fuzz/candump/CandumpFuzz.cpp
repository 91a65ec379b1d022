#include <CaptureRoundTrip.h>

#include <capture/CandumpCaptureReader.h>
#include <capture/CandumpEncoder.h>

#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    readAndWriteBack<capture::CandumpCaptureReader>(std::string(data, data + size), capture::CandumpEncoder(),
                                                    [](const capture::CaptureFrame& frame) { return frame; });
    return 0;
}
