#pragma once

#include <support/Recorder.h>

#include <CanIsoTpHandlerCallback.h>

#include <functional>
#include <ostream>
#include <string>
#include <vector>

/// A message or a status, as a CanIsoTpHandler reported it.
struct IsoTpEvent
{
    std::vector<uint8_t> message; ///< empty for a status
    uint32_t type = 0;            ///< of a status
    int code = 0;                 ///< of a status
    std::string text;             ///< of a status

    bool operator==(const IsoTpEvent&) const = default;
};

inline IsoTpEvent messageEvent(std::vector<uint8_t> payload)
{
    return {std::move(payload), 0, 0, {}};
}

inline IsoTpEvent infoEvent(const std::string& text)
{
    return {{}, CanIsoTpHandlerCallback::STATUS_INFO, 0, text};
}

inline IsoTpEvent warningEvent(const std::string& text)
{
    return {{}, CanIsoTpHandlerCallback::STATUS_WARNING, 0, text};
}

inline IsoTpEvent errorEvent(int code, const std::string& text)
{
    return {{}, CanIsoTpHandlerCallback::STATUS_ERROR, code, text};
}

inline std::ostream& operator<<(std::ostream& stream, const IsoTpEvent& event)
{
    if (!event.text.empty()) {
        return stream << "status " << event.type << ", " << event.code << ", " << event.text;
    }
    return stream << "message of " << event.message.size() << " bytes";
}

/// Collects what a CanIsoTpHandler reports. `onMessage` and `onStatus` run inside the callback, after the event was
/// kept.
class RecordingIsoTpCallback : public CanIsoTpHandlerCallback
{
public:
    Recorder<IsoTpEvent> events;
    Recorder<CANTransportTraceMessage> messages;
    std::function<void(const CANTransportTraceMessage&)> onMessage;
    std::function<void(const IsoTpEvent&)> onStatus;

    void canIsoTpHandlerCb(const CANTransportTraceMessage* msg) override
    {
        messages.add(*msg);
        events.add(messageEvent(msg->data));
        if (onMessage) {
            onMessage(*msg);
        }
    }

    void canIsoTpHandlerStatusCb(StatusCBType_t type, int code, const std::string& text) override
    {
        const IsoTpEvent event{{}, type, code, text};
        events.add(event);
        if (onStatus) {
            onStatus(event);
        }
    }
};
