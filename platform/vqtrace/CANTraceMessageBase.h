#pragma once

#include <vqtrace/MessageBase.h>
#include <vqtrace/cantype.h>

#include <algorithm>
#include <cstddef>
#include <cstring>

/// What a CAN frame message stands for.
enum canframe_t : uint32_t
{
    CAN_FRAME_DATA = 0,   ///< a data frame
    CAN_FRAME_REMOTE = 1, ///< a frame without payload
    CAN_FRAME_TX = 2,     ///< a data frame that an application sends
};

/// Error or state code of a CAN frame, 8 bits; 0 for sent frames.
enum canstaterr_t : uint8_t
{
    CAN_STATE_OK = 0, ///< a frame without error
};

/// Base of the messages that carry one CAN frame.
class VQ_API CANTraceMessageBase : public MessageBase
{
public:
    /// Bytes that `data` holds: the largest payload of a CAN FD frame.
    static constexpr size_t MAX_DATA_BYTES = 64;

    /// @param messageId    kind of the message, 11 for CAN frames
    /// @param messageTime  time value in microseconds
    /// @param canChannel   CAN channel number, 0 to 255
    /// @param frameKind    frame kind; with 1 the message has no payload, whatever the next arguments say
    /// @param stateError   error or state code
    /// @param frameType    identifier width and format
    /// @param dataLength   payload length in bytes; above 64 it counts as 64
    /// @param id           identifier; bits that `frameType` cannot carry are dropped
    /// @param payload      `dataLength` bytes, copied; null: nothing is copied, the payload is zeros
    CANTraceMessageBase(msgid_t messageId, unsigned long messageTime, unsigned char canChannel,
                        canframe_t frameKind, canstaterr_t stateError, cantype_t frameType,
                        unsigned char dataLength, unsigned int id, const unsigned char* payload)
        : MessageBase(messageId, messageTime), channel(canChannel), frame(frameKind), stateErr(stateError),
          type(frameType), length(0), canId(maskedCanId(id, frameType)), data{}
    {
        if (frame != CAN_FRAME_REMOTE) {
            length = std::min<uint8_t>(dataLength, MAX_DATA_BYTES);
        }
        if (length != 0 && payload != nullptr) {
            std::memcpy(data, payload, length);
        }
    }
    ~CANTraceMessageBase() override;

    std::unique_ptr<MessageBase> clone() const override;
    void print(std::ostream& stream) const override;

    /// Copies the payload.
    ///
    /// @param destination  room for `sizeBytes` bytes
    /// @return number of bytes copied: `length`
    /// @throws BufferMismatchException "CANTraceMessageBase too long" if `length` exceeds `sizeBytes`; nothing is
    ///         copied then
    size_t copyData(uint8_t* destination, size_t sizeBytes) const;

    uint8_t channel;              ///< CAN channel number
    canframe_t frame;             ///< frame kind
    canstaterr_t stateErr;        ///< error or state code
    cantype_t type;               ///< identifier width and format
    uint8_t length;               ///< payload bytes, 0 to 64
    uint32_t canId;               ///< identifier, without a flag for its width
    uint8_t data[MAX_DATA_BYTES]; ///< payload; bytes from `length` on are not part of the frame

protected:
    CANTraceMessageBase(const CANTraceMessageBase&) = default;
    CANTraceMessageBase& operator=(const CANTraceMessageBase&) = default;

private:
    void encode(std::vector<uint8_t>& out, size_t offset) const override;
};
