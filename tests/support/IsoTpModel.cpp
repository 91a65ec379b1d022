#include <support/IsoTpModel.h>

#include <algorithm>
#include <iterator>

IsoTpModel::Bytes IsoTpModel::built(std::initializer_list<uint8_t> controlBytes, std::span<const uint8_t> payload,
                                    bool alwaysFull) const
{
    Bytes frame;
    if (settings.extended) {
        frame.push_back(settings.address);
    }
    std::ranges::copy(controlBytes, std::back_inserter(frame));
    std::ranges::copy(payload, std::back_inserter(frame));
    if (alwaysFull || !settings.minimalDlc) {
        frame.resize(8);
    }
    return frame;
}

std::vector<IsoTpModel::Bytes> IsoTpModel::segmented(const Bytes& payload) const
{
    const size_t room = 7 - control();
    if (payload.size() <= room) {
        return {built({static_cast<uint8_t>(payload.size())}, payload, false)};
    }
    const std::span<const uint8_t> all(payload);
    std::vector<Bytes> frameList;
    frameList.push_back(
        built({static_cast<uint8_t>(0x10 + payload.size() / 256), static_cast<uint8_t>(payload.size() % 256)},
              all.first(room - 1), true));
    for (size_t begin = room - 1; begin < payload.size(); begin += room) {
        const size_t end = std::min(begin + room, payload.size());
        frameList.push_back(
            built({static_cast<uint8_t>(0x20 + frameList.size() % 16)}, all.subspan(begin, end - begin), false));
    }
    return frameList;
}

CanIsoTpHandler::expFrameType_t IsoTpModel::expectationIn(State state)
{
    switch (state) {
    case State::RECEIVING:
        return CanIsoTpHandler::EXPECT_CF;
    case State::WAITING_FOR_FLOW_CONTROL:
        return CanIsoTpHandler::EXPECT_FC;
    case State::SENDING:
        return CanIsoTpHandler::EXPECT_NONE;
    case State::IDLE:
        break;
    }
    return CanIsoTpHandler::EXPECT_SF_OR_FF;
}

void IsoTpModel::send(const Bytes& payload)
{
    if (payload.size() > 4095) {
        return;
    }
    if (payload.empty()) {
        abort(7, "error while processing data to send");
        return;
    }
    queue.push_back(segmented(payload));
    if (state == State::IDLE) {
        ++looks;
    } else {
        events.push_back(warningEvent("can't process send queue, wait for some frame"));
    }
}

void IsoTpModel::workerLooks()
{
    --looks;
    if (state == State::WAITING_FOR_FLOW_CONTROL) {
        events.push_back(warningEvent("can't process send queue, wait for FC frame"));
    } else if (state == State::SENDING) {
        sendBlock();
    } else if (state == State::IDLE && !queue.empty()) {
        sendNext();
    }
}

void IsoTpModel::workerCatchesUp()
{
    while (looks != 0) {
        workerLooks();
    }
}

void IsoTpModel::sendNext()
{
    frames.push_back(queue.front().front());
    if (queue.front().size() == 1) {
        completeMessage();
    } else {
        next = 0;
        state = State::WAITING_FOR_FLOW_CONTROL;
    }
}

void IsoTpModel::sendBlock()
{
    const std::vector<Bytes>& message = queue.front();
    // One step is made before every block: right after the first frame, one too many after a block.
    ++next;
    if (next >= message.size()) {
        abort(12, "this error should never happen, probably caused by a bug");
        return;
    }
    for (size_t count = 0; blockSize == 0 || count < blockSize; ++count) {
        frames.push_back(message[next++]);
        if (next == message.size()) {
            state = State::IDLE;
            completeMessage();
            return;
        }
    }
    state = State::WAITING_FOR_FLOW_CONTROL;
}

void IsoTpModel::completeMessage()
{
    queue.pop_front();
    if (!queue.empty() && looks == 0) {
        ++looks; // one that is on its way does it, too
    }
}

void IsoTpModel::abort(int code, const char* text)
{
    state = State::IDLE;
    queue.clear();
    received.clear();
    events.push_back(errorEvent(code, text));
}

void IsoTpModel::secondPasses()
{
    if (state == State::RECEIVING || state == State::WAITING_FOR_FLOW_CONTROL) {
        abort(2, "RX timeout error");
    }
}

void IsoTpModel::receive(const Bytes& frame)
{
    Bytes data = frame;
    data.resize(8);
    switch (data[control()] >> 4) {
    case 0:
        return receiveSingle(data, frame.size());
    case 1:
        return receiveFirst(data);
    case 2:
        return receiveConsecutive(data, frame.size());
    case 3:
        return receiveFlowControl(data, frame.size());
    default:
        return invalidFormat();
    }
}

void IsoTpModel::receiveSingle(const Bytes& data, size_t dlc)
{
    const size_t length = data[control()];
    if (state != State::IDLE) {
        return unexpected();
    }
    if (dlc != (settings.minimalDlc ? control() + 1 + length : 8)) {
        return wrongDlc();
    }
    if (length == 0 || length > 7 - control()) {
        return invalidFormat();
    }
    const auto begin = data.begin() + static_cast<std::ptrdiff_t>(control() + 1);
    events.push_back(messageEvent({begin, begin + static_cast<std::ptrdiff_t>(length)}));
    ++looks;
}

void IsoTpModel::receiveFirst(const Bytes& data)
{
    if (state != State::IDLE) {
        return unexpected();
    }
    announced = (data[control()] & 0x0FU) * 256 + data[control() + 1];
    if (announced <= 7 - control()) {
        return invalidFormat();
    }
    received.assign(data.begin() + static_cast<std::ptrdiff_t>(control() + 2), data.end());
    sequence = 0;
    state = State::RECEIVING;
    frames.push_back(built({0x30, 0, 0}, {}, false));
}

void IsoTpModel::receiveConsecutive(const Bytes& data, size_t dlc)
{
    if (state != State::RECEIVING) {
        return unexpected();
    }
    sequence = static_cast<uint8_t>((sequence + 1) % 16);
    if ((data[control()] & 0x0F) != sequence) {
        return abort(9, "CF sequence number is wrong");
    }
    const size_t room = 7 - control();
    const size_t missing = announced - received.size();
    if (missing < room && settings.minimalDlc && dlc != control() + 1 + missing) {
        return wrongDlc();
    }
    const auto begin = data.begin() + static_cast<std::ptrdiff_t>(control() + 1);
    received.insert(received.end(), begin, begin + static_cast<std::ptrdiff_t>(std::min(room, missing)));
    if (received.size() == announced) {
        events.push_back(messageEvent(received));
        received.clear();
        state = State::IDLE;
        ++looks;
    }
}

void IsoTpModel::receiveFlowControl(const Bytes& data, size_t dlc)
{
    if (state != State::WAITING_FOR_FLOW_CONTROL) {
        return unexpected();
    }
    if (dlc != (settings.minimalDlc ? control() + 3 : 8)) {
        return wrongDlc();
    }
    switch (data[control()] & 0x0F) {
    case 0:
        state = State::SENDING;
        blockSize = data[control() + 1];
        ++looks;
        return;
    case 1:
        events.push_back(warningEvent("receive FC with state = wait"));
        return;
    case 2:
        return abort(3, "other side report overflow error");
    default:
        return invalidFormat();
    }
}
