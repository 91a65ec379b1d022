#include <CaptureRoundTrip.h>

#include <capture/PcapngEncoder.h>
#include <capture/PcapngReader.h>

#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    readAndWriteBack<capture::PcapngReader>(std::string(data, data + size), capture::PcapngEncoder("fuzz"),
                                            [](const capture::CaptureFrame& frame) { return frame; });
    return 0;
}
