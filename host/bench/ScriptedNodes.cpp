#include <bench/ScriptedNodes.h>

#include <logger/node/CyclicNode.h>
#include <logger/node/FrameNode.h>
#include <logger/node/IsoTpNode.h>

#include <algorithm>
#include <chrono>

namespace vlogger {

namespace {

using std::chrono::milliseconds;

std::shared_ptr<Node> answeringNode(const config::Node& node)
{
    if (node.protocol == config::Protocol::FRAME) {
        return std::make_shared<FrameNode>(FrameNodeOptions{.channel = node.channel,
                                                            .requestId = node.requestId,
                                                            .responseId = node.responseId,
                                                            .extended = node.extended,
                                                            .delay = milliseconds(node.delayMs),
                                                            .answers = node.answers});
    }
    return std::make_shared<IsoTpNode>(
        IsoTpNodeOptions{.channel = node.channel,
                         .requestId = node.requestId,
                         .responseId = node.responseId,
                         .extended = node.extended,
                         .format = {.extendedAddressing = node.addressing == config::Addressing::EXTENDED,
                                    .ownAddress = node.address,
                                    .peerAddress = node.peerAddress,
                                    .minimalDlc = node.minimalDlc},
                         .blockSize = node.blockSize,
                         .separationTime = std::chrono::microseconds(node.separationTimeUs),
                         .waitFrames = node.waitFrames,
                         .waitInterval = milliseconds(node.waitIntervalMs),
                         .delay = milliseconds(node.delayMs),
                         .fault = node.fault,
                         .faultFrame = node.faultFrame,
                         .answers = node.answers});
}

std::shared_ptr<Node> cyclicNode(uint8_t channel, const config::CyclicFrame& frame)
{
    wire::CanRecord record{.channel = channel,
                           .type = static_cast<uint8_t>((frame.extended ? 1 : 0) | (frame.fd ? 2 : 0)),
                           .id = frame.id,
                           .lengthBytes = static_cast<uint8_t>(frame.payload.size())};
    std::ranges::copy(frame.payload, record.payload.begin());
    return std::make_shared<CyclicNode>(record, milliseconds(frame.periodMs));
}

} // namespace

std::vector<std::shared_ptr<Node>> scriptedNodes(const std::vector<config::Node>& configured)
{
    std::vector<std::shared_ptr<Node>> nodes;
    for (const config::Node& node : configured) {
        if (!node.answers.empty()) {
            nodes.push_back(answeringNode(node));
        }
        for (const config::CyclicFrame& frame : node.cyclic) {
            nodes.push_back(cyclicNode(node.channel, frame));
        }
    }
    return nodes;
}

} // namespace vlogger
