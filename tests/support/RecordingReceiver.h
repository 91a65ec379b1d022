#pragma once

#include <MsgRxHandlerCb.h>
#include <support/Recorder.h>

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

/// A receiver of the dispatcher that keeps what it is told.
class RecordingReceiver : public MsgRxHandlerCb
{
public:
    using Frame = std::vector<uint8_t>;
    using State = std::pair<handlerState_t, std::string>;

    void onStateChanged(handlerState_t state, const std::string& text) override { states.add({state, text}); }
    void onRawReceived(const uint8_t* data, size_t size) override { frames.add(Frame(data, data + size)); }

    Recorder<State> states;
    Recorder<Frame> frames;
};
