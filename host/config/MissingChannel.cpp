#include <config/MissingChannel.h>

#include <logger/BoardKind.h>

namespace config {

std::optional<std::string> missingChannel(const wire::Board& board, uint8_t channel)
{
    if (!vlogger::board::traceDeviceOf(board, channel).empty()) {
        return std::nullopt;
    }
    return "this board has no channel " + std::to_string(channel) + "; the channels from " +
           std::to_string(vlogger::board::FIRST_EXTENSION_CHANNEL) +
           " on need [board] device_code = " + std::to_string(vlogger::board::EXTENSION_BOARD_CODE);
}

} // namespace config
