#pragma once

#include <MsgRxHandler.h>

#include <support/PrivateMember.h>
#include <vqtrace/TraceMessageBuffer.h>
#include <wire/BigEndian.h>
#include <wire/TraceRecord.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <deque>
#include <span>
#include <string>
#include <vector>

REVEAL_MEMBER(MainOffset, MsgRxHandler, fpgabOffset);
REVEAL_MEMBER(ExtensionOffset, MsgRxHandler, fpgacOffset);

/// Lets the dispatcher read the stream that another reader has read, and compares what it hands to a receiver with
/// the records that the other one found: those of two identifiers, on every channel, with the device's offset added
/// to their time.
class DispatchCheck
{
public:
    /// @param onExtension  the stream is the extension device's
    DispatchCheck(int fd, bool onExtension)
        : buffer(fd, 0x10000, nullptr), offset(onExtension ? EXTENSION_OFFSET : MAIN_OFFSET)
    {
        buffer.name = onExtension ? "/dev/vqlog-fpgac" : "/dev/vqlog-fpgab";
        receiver().current = this;
        dispatcher.*reveal(MainOffset{}) = MAIN_OFFSET;
        dispatcher.*reveal(ExtensionOffset{}) = EXTENSION_OFFSET;
    }
    ~DispatchCheck() { receiver().current = nullptr; }
    DispatchCheck(const DispatchCheck&) = delete;
    DispatchCheck& operator=(const DispatchCheck&) = delete;

    /// The other reader has found a record.
    void expect(std::span<const uint8_t> found)
    {
        if (wire::getBigEndian<uint16_t>(&found[2]) != wire::CAN_RECORD_TYPE) {
            return;
        }
        // Two bits of the identifier word mean nothing.
        const uint32_t key = wire::getBigEndian<uint32_t>(&found[18]) & ~(uint32_t{3} << 29);
        if (key != STANDARD_ID && key != (EXTENDED_ID | wire::EXTENDED_ID_FLAG)) {
            return;
        }
        std::vector<uint8_t>& record = expected.emplace_back(found.begin(), found.end());
        wire::putBigEndian(&record[6], wire::getBigEndian<uint64_t>(&record[6]) + offset);
    }

    /// Takes everything that has arrived; all of it has been expected.
    /// @param complaints  so often the other reader has complained; a complaint ends a turn of the dispatcher
    void drain(size_t complaints)
    {
        while (buffer.read() > 0) {
            for (size_t turn = 0; turn <= complaints; ++turn) {
                dispatcher.processMessages(buffer);
            }
        }
        if (!expected.empty()) {
            std::abort();
        }
    }

private:
    static constexpr uint32_t STANDARD_ID = 0x123;
    static constexpr uint32_t EXTENDED_ID = 0x1ABCDEF0;
    static constexpr uint64_t MAIN_OFFSET = 0x0102030405060708;
    static constexpr uint64_t EXTENSION_OFFSET = UINT64_MAX; // one less, with every carry

    /// Registers once, because that takes longer than a stream, and hands everything to the check of the moment.
    class Receiver : public MsgRxHandlerCb
    {
    public:
        Receiver()
        {
            for (unsigned channel = 0; channel <= UINT8_MAX; ++channel) {
                registerFor(static_cast<uint8_t>(channel), STANDARD_ID, CAN_STANDARD);
                registerFor(static_cast<uint8_t>(channel), EXTENDED_ID, CAN_FD_EXTENDED);
            }
        }

        void onStateChanged(handlerState_t /*state*/, const std::string& /*text*/) override { std::abort(); }
        void onRawReceived(const uint8_t* data, size_t size) override { current->compare({data, size}); }

        DispatchCheck* current = nullptr;

    private:
        void registerFor(uint8_t channel, uint32_t id, cantype_t type)
        {
            MsgRxHandler::getInstance()->registerCanMessage(channel, id, type, this);
        }
    };

    static Receiver& receiver()
    {
        static auto* const instance = new Receiver; // the dispatcher knows it to the end
        return *instance;
    }

    void compare(std::span<const uint8_t> delivered)
    {
        if (expected.empty() || !std::ranges::equal(expected.front(), delivered)) {
            std::abort();
        }
        expected.pop_front();
    }

    MsgRxHandler& dispatcher = *MsgRxHandler::getInstance();
    TraceMessageBuffer buffer;
    const uint64_t offset;
    std::deque<std::vector<uint8_t>> expected;
};
