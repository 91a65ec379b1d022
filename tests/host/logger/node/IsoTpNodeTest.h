#pragma once

#include "NodeDriver.h"

#include <logger/node/IsoTpNode.h>

#include <array>
#include <memory>
#include <numeric>

/// A node with a tester that speaks to it frame by frame. It answers every request with what it got, unless the
/// options of the test say otherwise.
class IsoTpNodeTest : public testing::Test
{
protected:
    using Data = std::vector<uint8_t>;
    using Frames = std::vector<Data>;

    static vlogger::IsoTpNodeOptions echo()
    {
        vlogger::IsoTpNodeOptions options;
        options.answers = {{.request = {}, .mask = {}, .response = {}, .echo = true}};
        return options;
    }

    static vlogger::IsoTpNodeOptions answering(const Data& request, const Data& response)
    {
        vlogger::IsoTpNodeOptions options;
        options.answers = {{.request = request, .mask = {}, .response = response}};
        return options;
    }

    void build(const vlogger::IsoTpNodeOptions& options)
    {
        node = std::make_unique<vlogger::IsoTpNode>(options);
        bus = std::make_unique<NodeDriver>(*node);
        requestId = options.requestId;
        requestType = options.extended ? 1 : 0;
    }

    void tester(const Data& data) { bus->deliver(loggerclient::frame(1, requestId, data, requestType)); }

    /// 1, 2, 3, …
    static Data counting(size_t count, uint8_t first = 1)
    {
        Data data(count);
        std::iota(data.begin(), data.end(), first);
        return data;
    }

    std::unique_ptr<vlogger::IsoTpNode> node;
    std::unique_ptr<NodeDriver> bus;
    uint32_t requestId = 0;
    uint8_t requestType = 0;
};

constexpr std::chrono::milliseconds BEFORE_THE_TIMEOUT{999};
constexpr std::chrono::milliseconds THE_TIMEOUT{1000};
