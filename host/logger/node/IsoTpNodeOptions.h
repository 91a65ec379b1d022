#pragma once

#include <logger/node/Answer.h>

#include <chrono>
#include <cstdint>
#include <vector>

namespace vlogger {

/// What a node does wrong, on purpose.
enum class IsoTpFault : uint8_t
{
    NONE,
    DROP_CONSECUTIVE, ///< leaves out one consecutive frame of every answer
    WRONG_SEQUENCE,   ///< gives one consecutive frame of every answer the number of the next one
    NO_FLOW_CONTROL,  ///< does not answer first frames; single frames it does
    REPORT_OVERFLOW,  ///< answers first frames with flow control "overflow"
    SILENT,           ///< receives and sends nothing
};

/// How frames of a node look.
struct IsoTpFormat
{
    bool extendedAddressing = false; ///< a byte in front of the control information names the receiver
    uint8_t ownAddress = 0;          ///< with extended addressing: frames for another one are not for this node
    uint8_t peerAddress = 0;         ///< with extended addressing: the receiver of what this node sends
    bool minimalDlc = false;         ///< frames are as short as their content, not padded to 8 bytes with 0x00
};

/// A node that speaks ISO 15765-2 on classic frames.
struct IsoTpNodeOptions
{
    uint8_t channel = 1; ///< it sits on the bus of this channel
    uint32_t requestId = 0x7E0;
    uint32_t responseId = 0x7E8;
    bool extended = false; ///< both identifiers have 29 bits
    IsoTpFormat format = {};
    uint8_t blockSize = 0; ///< frames that a sender may send between two flow-control frames; 0: all
    /// Least time between two consecutive frames of a sender: 100 to 900 µs in steps of 100, or whole milliseconds
    /// up to 127. What lies between is told to the sender as the next longer one.
    std::chrono::microseconds separationTime{0};
    uint8_t waitFrames = 0;                      ///< flow-control frames "wait" before each "continue to send"
    std::chrono::milliseconds waitInterval{100}; ///< from one flow-control frame to the next while it lets wait
    std::chrono::milliseconds delay{0};          ///< between the last frame of a request and its answer
    IsoTpFault fault = IsoTpFault::NONE;
    uint32_t faultFrame = 1; ///< the consecutive frame that a fault is about, counted from 1 in each answer
    std::vector<Answer> answers = {};
};

} // namespace vlogger
