#include "vqtrace/RecordScanner.h"

#include <wire/TraceRecord.h>

#include <algorithm>
#include <array>
#include <vector>

namespace vqhost {

namespace {

/// Length of the whole record that stands at the beginning; 0 if none does.
size_t recordBytes(std::span<const uint8_t> bytes)
{
    return wire::checkRecord(bytes) == wire::RecordError::NONE ? wire::readHeader(bytes.data()).lengthBytes : 0;
}

/// True if the bytes begin like a CAN frame, as far as they go.
bool mayBeCanFrame(std::span<const uint8_t> bytes)
{
    std::array<uint8_t, wire::RECORD_HEADER_BYTES> header{0, wire::CAN_RECORD_MIN_BYTES, 0, wire::CAN_RECORD_TYPE};
    std::copy_n(bytes.begin(), std::min(bytes.size(), header.size()), header.begin());
    if (wire::readHeader(header.data()).type != wire::CAN_RECORD_TYPE) {
        return false;
    }
    const auto known = bytes.size() < header.size() ? std::span<const uint8_t>(header) : bytes;
    const wire::RecordError error = wire::checkRecord(known);
    return error == wire::RecordError::NONE || error == wire::RecordError::INCOMPLETE;
}

/// First CAN frame, also one that has only begun, else the end of the bytes.
size_t findCanFrame(std::span<const uint8_t> bytes)
{
    size_t offset = 0;
    while (offset < bytes.size() && !mayBeCanFrame(bytes.subspan(offset))) {
        ++offset;
    }
    return offset;
}

/// First offset from which whole records lead exactly to the end of the bytes, else the end.
size_t findChain(std::span<const uint8_t> bytes)
{
    size_t first = bytes.size();
    std::vector<bool> leadsToEnd(bytes.size() + 1, false);
    leadsToEnd[bytes.size()] = true;
    for (size_t offset = bytes.size(); offset-- > 0;) {
        const size_t length = recordBytes(bytes.subspan(offset));
        if (length > 0 && leadsToEnd[offset + length]) {
            leadsToEnd[offset] = true;
            first = offset;
        }
    }
    return first;
}

/// First offset at which a record may stand that is not whole yet, else the end.
size_t findBeginning(std::span<const uint8_t> bytes, size_t limitBytes)
{
    for (size_t offset = 0; offset < bytes.size(); ++offset) {
        const auto candidate = bytes.subspan(offset);
        if (wire::checkRecord(candidate) != wire::RecordError::INCOMPLETE) {
            continue;
        }
        if (candidate.size() < wire::RECORD_HEADER_BYTES ||
            wire::readHeader(candidate.data()).lengthBytes <= limitBytes) {
            return offset;
        }
    }
    return bytes.size();
}

} // namespace

ScanResult findRecord(std::span<const uint8_t> bytes, size_t limitBytes)
{
    const size_t canFrame = findCanFrame(bytes);
    const size_t chain = findChain(bytes.first(canFrame));
    if (chain < canFrame || recordBytes(bytes.subspan(canFrame)) > 0) {
        return {.offset = chain, .found = true};
    }
    return {.offset = findBeginning(bytes, limitBytes), .found = false};
}

} // namespace vqhost
