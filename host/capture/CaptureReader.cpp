#include <capture/CaptureReader.h>

#include <capture/CandumpCaptureReader.h>
#include <capture/PcapngFormat.h>
#include <capture/PcapngReader.h>

#include <istream>

namespace capture {

std::unique_ptr<CaptureReader> makeCaptureReader(std::istream& input)
{
    // A log may begin with blank lines, but none of them is a line feed followed by a carriage return; so the first
    // two bytes tell the formats apart.
    if (input.peek() == (pcapng::SECTION_HEADER & 0xFF)) {
        input.get();
        const bool isPcapng = input.peek() == (pcapng::SECTION_HEADER >> 8 & 0xFF);
        input.clear();
        input.unget();
        if (isPcapng) {
            return std::make_unique<PcapngReader>(input);
        }
    }
    return std::make_unique<CandumpCaptureReader>(input);
}

} // namespace capture
