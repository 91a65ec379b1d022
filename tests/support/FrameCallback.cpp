#include <support/FrameCallback.h>

#include <wire/TraceRecord.h>

#include <stdexcept>

ReceivedFrame ReceivedFrame::of(const uint8_t* data, size_t size)
{
    const std::optional<wire::CanRecord> record = wire::decodeCanRecord({data, size});
    if (!record) {
        throw std::invalid_argument("not a frame record");
    }
    return {.timestampUs = record->timestampUs,
            .channel = record->channel,
            .type = record->type,
            .id = record->id,
            .isExtended = (data[18] & 0x80U) != 0,
            .payload = {record->data().begin(), record->data().end()}};
}
