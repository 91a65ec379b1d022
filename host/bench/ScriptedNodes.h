#pragma once

#include <config/Configuration.h>
#include <logger/node/Node.h>

#include <memory>
#include <vector>

namespace vlogger {

/// The nodes that a configuration describes: one per cyclic frame, and one for the answers of each control unit.
/// A control unit without answers listens to nobody.
std::vector<std::shared_ptr<Node>> scriptedNodes(const std::vector<config::Node>& configured);

} // namespace vlogger
