#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

/// A CAN frame record of a trace stream, as the devices lay it out, built byte by byte.
struct FrameRecord
{
    uint16_t type = 11;
    uint64_t time = 0;
    uint8_t channel = 0;
    uint32_t idWord = 0;
    std::vector<uint8_t> payload{};

    std::vector<unsigned char> bytes() const
    {
        std::vector<unsigned char> record;
        append(record, 2, 23 + payload.size());
        append(record, 2, type);
        append(record, 2, 0);
        append(record, 8, time);
        append(record, 1, channel);
        append(record, 3, 0);
        append(record, 4, idWord);
        append(record, 1, payload.size());
        for (const uint8_t byte : payload) {
            record.push_back(byte);
        }
        return record;
    }

private:
    static void append(std::vector<unsigned char>& record, size_t size, uint64_t value)
    {
        for (size_t i = size; i > 0; --i) {
            record.push_back(static_cast<unsigned char>(value >> (8 * (i - 1))));
        }
    }
};
