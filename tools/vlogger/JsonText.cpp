#include "JsonText.h"

#include <cstdio>

namespace tool {

std::string jsonOf(const capture::CandumpFrame& frame, bool isSent)
{
    const auto word = [](bool value) { return value ? "true" : "false"; };
    std::string text = R"({"time_us":)" + std::to_string(frame.timestampUs);
    text.append(R"(,"channel":")").append(frame.interfaceName);
    text.append(R"(","direction":")").append(isSent ? "tx" : "rx");
    text.append(R"(","id":)").append(std::to_string(frame.id));
    text.append(R"(,"extended":)").append(word(frame.isExtended)).append(R"(,"fd":)").append(word(frame.isFd));
    text.append(R"(,"remote":)").append(word(frame.kind == capture::FrameKind::REMOTE)).append(R"(,"data":")");
    for (const uint8_t byte : frame.data()) {
        char digits[3];
        std::snprintf(digits, sizeof digits, "%02X", unsigned{byte});
        text += digits;
    }
    return text + "\"}";
}

} // namespace tool
