#include <capture/CaptureReader.h>

#include <capture/CandumpCaptureReader.h>
#include <capture/ForeignFormat.h>
#include <capture/PcapngReader.h>

#include <istream>

namespace capture {

namespace {

constexpr std::string_view PCAPNG_MARK = "\x0A\x0D\x0D\x0A";
constexpr std::string_view UTF8_MARK = "\xEF\xBB\xBF";

/// The first bytes of a stream, which are to be read once more.
std::string beginningOf(std::istream& input)
{
    std::string bytes;
    while (bytes.size() < FORMAT_MARK_BYTES && input.peek() != std::istream::traits_type::eof()) {
        bytes.push_back(static_cast<char>(input.get()));
    }
    if (!input.bad()) {
        input.clear();
    }
    for (size_t i = 0; i < bytes.size(); ++i) {
        input.unget();
    }
    return bytes;
}

} // namespace

std::unique_ptr<CaptureReader> makeCaptureReader(std::istream& input)
{
    const std::string beginning = beginningOf(input);
    if (const std::string foreign = foreignFormat(beginning); !foreign.empty()) {
        throw CaptureError(foreign, false);
    }
    // A capture that is cut off within its mark is still no log: a carriage return never stands alone in one.
    if (beginning.size() > 1 &&
        PCAPNG_MARK.starts_with(std::string_view(beginning).substr(0, PCAPNG_MARK.size()))) {
        return std::make_unique<PcapngReader>(input);
    }
    if (beginning.starts_with(UTF8_MARK)) {
        input.ignore(static_cast<std::streamsize>(UTF8_MARK.size()));
    }
    return std::make_unique<CandumpCaptureReader>(input);
}

} // namespace capture
