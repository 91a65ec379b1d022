#pragma once

#include <cstddef>
#include <cstdint>

/// The fields of a trace record that the dispatcher touches, big-endian at fixed offsets.
///
/// | offset | size | field |
/// |---|---|---|
/// | 2 | 2 | record type |
/// | 6 | 8 | time stamp |
/// | 14 | 1 | CAN channel |
/// | 18 | 4 | identifier word: bit 31 marks a 29-bit identifier, bits 29 and 30 mean nothing |
///
/// Records lie at any address in the read buffer, so every field is put together from bytes.
namespace canrecord {

/// The shortest record that holds every field.
constexpr size_t MIN_BYTES = 22;
constexpr uint16_t CAN_FRAME_TYPE = 11;
constexpr uint32_t EXTENDED_KEY_FLAG = 0x80000000;
constexpr uint32_t KEY_MASK = 0x9FFFFFFF;

inline uint16_t typeOf(const unsigned char* record)
{
    return static_cast<uint16_t>(record[2] << 8 | record[3]);
}

inline uint64_t timeOf(const unsigned char* record)
{
    uint64_t time = 0;
    for (size_t i = 6; i < 14; ++i) {
        time = time << 8 | record[i];
    }
    return time;
}

inline void setTime(unsigned char* record, uint64_t time)
{
    for (size_t i = 14; i > 6; --i) {
        record[i - 1] = static_cast<unsigned char>(time);
        time >>= 8;
    }
}

inline uint8_t channelOf(const unsigned char* record)
{
    return record[14];
}

/// The key under which the frame's receivers are registered.
inline uint32_t keyOf(const unsigned char* record)
{
    const uint32_t word =
        uint32_t{record[18]} << 24 | uint32_t{record[19]} << 16 | uint32_t{record[20]} << 8 | uint32_t{record[21]};
    return word & KEY_MASK;
}

} // namespace canrecord
