#pragma once

#include <config/ConfigurationKey.h>

#include <span>
#include <string_view>

/// The one list of everything that a configuration file may hold: read, shown, explained and checked from here.
namespace config {

std::span<const Key<wire::Board>> boardKeys();
std::span<const Key<Wiring>> wiringKeys();
std::span<const Key<Queues>> queueKeys();
std::span<const Key<Addresses>> addressKeys();
std::span<const Key<Node>> nodeKeys();
std::span<const Key<Answer>> answerKeys();
std::span<const Key<CyclicFrame>> cyclicKeys();
std::span<const Key<Peer>> peerKeys();
std::span<const Key<Faults>> faultKeys();
std::span<const Key<FaultEvent>> faultEventKeys();

/// Names of the tables in a file.
constexpr std::string_view BOARD = "board";
constexpr std::string_view WIRING = "wiring";
constexpr std::string_view QUEUES = "queues";
constexpr std::string_view ADDRESSES = "addresses";
constexpr std::string_view NODE = "node";
constexpr std::string_view ANSWER = "answer";
constexpr std::string_view CYCLIC = "cyclic";
constexpr std::string_view PEER = "peer";
constexpr std::string_view FAULTS = "faults";
constexpr std::string_view EVENT = "event";

/// Calls `take(path, isRepeated, keys)` for each table of a file: "node.answer" is repeated as [[node.answer]].
template <typename Take>
void forEachTable(Take take)
{
    take("board", false, boardKeys());
    take("wiring", false, wiringKeys());
    take("queues", false, queueKeys());
    take("addresses", false, addressKeys());
    take("node", true, nodeKeys());
    take("node.answer", true, answerKeys());
    take("node.cyclic", true, cyclicKeys());
    take("peer", true, peerKeys());
    take("faults", false, faultKeys());
    take("faults.event", true, faultEventKeys());
}

} // namespace config
