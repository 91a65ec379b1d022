#pragma once

#include <vqpbus/VQPBusProxyCallback.h>

#include <support/Recorder.h>
#include <support/TextOf.h>

#include <functional>
#include <string>

/// A process-bus callback that notes every call as a line: a message as "source>destination text", a status as
/// "status type code text".
class RecordingBusCallback : public VQPBusProxyCallback
{
public:
    void vqpBusProxyCb(const MessageBase* message, const std::string& source,
                       const std::string& destination) override
    {
        lines.add(source + ">" + destination + " " + textOf(*message));
        if (onMessage) {
            onMessage();
        }
    }

    void vqpBusProxyStatusCb(StatusCBType_t type, int code, const std::string& text) override
    {
        lines.add("status " + std::to_string(type) + " " + std::to_string(code) + " " + text);
        if (onStatus) {
            onStatus();
        }
    }

    bool waitFor(const std::string& line) const
    {
        return lines.waitUntil([&](const std::vector<std::string>& all) {
            return std::find(all.begin(), all.end(), line) != all.end();
        });
    }

    Recorder<std::string> lines;
    std::function<void()> onMessage; ///< set before the callback is added
    std::function<void()> onStatus;
};
