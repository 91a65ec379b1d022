#pragma once

#include <vqio/PIE.h>

#include <cstdint>

/// The CAN devices of a board: their paths, and what the board says about them. Transmitter and dispatcher ask
/// here, so that both see the same board.
namespace candevices {

constexpr const char* MAIN = "/dev/vqlog-fpgab";
constexpr const char* EXTENSION = "/dev/vqlog-fpgac";
constexpr const char* COMBINED = "/dev/vqlog-fpgam";
constexpr const char* COMBINED_FD = "/dev/vqlog-fpgame";

/// Highest channel that is sent on the main device. Receiving starts one channel lower on the extension device.
constexpr uint8_t LAST_MAIN_TX_CHANNEL = 14;
/// Lowest channel that is received from the extension device.
constexpr uint8_t FIRST_EXTENSION_RX_CHANNEL = 14;

inline bool hasExtensionBoard(const PIE& pie)
{
    return pie.getDeviceCode() == PIE::DEVICE_EXTENSION_BOARD;
}

/// True for the boards whose channels are all received from one device.
inline bool hasCombinedDevice(const PIE& pie)
{
    return pie.getBoardType() == 16 || pie.getBoardType() == 112;
}

} // namespace candevices
