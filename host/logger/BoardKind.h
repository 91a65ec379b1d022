#pragma once

#include <wire/Protocol.h>

#include <cstdint>
#include <string_view>

/// Which devices a board has and which channels they serve.
namespace vlogger::board {

constexpr std::string_view MAIN_DEVICE = "/dev/vqlog-fpgab";
constexpr std::string_view EXTENSION_DEVICE = "/dev/vqlog-fpgac";
constexpr std::string_view COMBINED_DEVICE = "/dev/vqlog-fpgam";
constexpr std::string_view COMBINED_FD_DEVICE = "/dev/vqlog-fpgame";

constexpr uint32_t EXTENSION_BOARD_CODE = 4;
/// First channel that the extension device serves.
constexpr uint8_t FIRST_EXTENSION_CHANNEL = 14;

constexpr wire::Board PLAIN{.boardType = 1, .deviceCode = 0, .canFdDevice = false};
constexpr wire::Board WITH_EXTENSION{.boardType = 1, .deviceCode = EXTENSION_BOARD_CODE, .canFdDevice = false};
constexpr wire::Board COMBINED_16{.boardType = 16, .deviceCode = 0, .canFdDevice = false};
constexpr wire::Board COMBINED_16_FD{.boardType = 16, .deviceCode = 0, .canFdDevice = true};
constexpr wire::Board COMBINED_112{.boardType = 112, .deviceCode = 0, .canFdDevice = false};
constexpr wire::Board COMBINED_112_FD{.boardType = 112, .deviceCode = 0, .canFdDevice = true};

/// True for the boards whose channels all sit on one device.
constexpr bool isCombined(const wire::Board& board)
{
    return board.boardType == 16 || board.boardType == 112;
}

constexpr bool hasExtension(const wire::Board& board)
{
    return board.deviceCode == EXTENSION_BOARD_CODE;
}

/// The device whose trace stream carries what `channel` receives; empty if the board has none for it.
constexpr std::string_view traceDeviceOf(const wire::Board& board, uint8_t channel)
{
    if (isCombined(board)) {
        return board.canFdDevice ? COMBINED_FD_DEVICE : COMBINED_DEVICE;
    }
    if (channel < FIRST_EXTENSION_CHANNEL) {
        return MAIN_DEVICE;
    }
    return hasExtension(board) ? EXTENSION_DEVICE : std::string_view{};
}

/// True if the board has the device for reading.
constexpr bool canRead(const wire::Board& board, std::string_view path)
{
    return path == traceDeviceOf(board, 0) || (path == EXTENSION_DEVICE && hasExtension(board));
}

/// True if the board has the device for writing. The main path is there on every board: the transmitter writes to
/// it also where the channels sit on a combined device.
constexpr bool canWrite(const wire::Board& board, std::string_view path)
{
    return path == MAIN_DEVICE || canRead(board, path);
}

} // namespace vlogger::board
