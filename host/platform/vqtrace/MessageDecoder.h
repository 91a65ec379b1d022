#pragma once

#include <vqtrace/MessageBase.h>

#include <span>

namespace vqhost {

/// Builds the message that a serialised record stands for: CANExtTraceMessage (type 11), SystemMessage (128),
/// CANTransportTraceMessage (0x8014), and for any other type a MessageBase that carries the record in `byteArray`.
///
/// @param record  one whole record
/// @return the message; null if the bytes are not exactly one well-formed record
std::unique_ptr<MessageBase> decodeMessage(std::span<const uint8_t> record);

} // namespace vqhost
