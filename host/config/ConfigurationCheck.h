#pragma once

#include <config/Configuration.h>

#include <span>
#include <string>
#include <string_view>
#include <vector>

/// What a value alone does not show: fields that do not go together. Ranges of single fields are in the table.
namespace config {

/// A field that is wrong, by the name of its key, and why.
struct WrongField
{
    std::string_view key;
    std::string text;
};

std::vector<WrongField> check(const Wiring& wiring);
std::vector<WrongField> check(const Addresses& addresses);
std::vector<WrongField> check(const Node& node);
/// @param owner  tells what answers are made of
std::vector<WrongField> check(const Answer& answer, const Node& owner);
std::vector<WrongField> check(const CyclicFrame& frame);
/// @param earlier  the peers before it, which have taken their names and ports
std::vector<WrongField> check(const Peer& peer, std::span<const Peer> earlier);

/// @param whole  for the board and the names of its peers
std::vector<WrongField> check(const FaultEvent& event, const Configuration& whole);

/// Nothing to check beyond the single fields.
inline std::vector<WrongField> check(const wire::Board&)
{
    return {};
}
inline std::vector<WrongField> check(const Queues&)
{
    return {};
}
inline std::vector<WrongField> check(const Faults&)
{
    return {};
}

/// Everything at once, for a configuration that a program has made.
/// @return one sentence per mistake, with the table it stands in; empty if there is none
std::vector<std::string> check(const Configuration& configuration);

} // namespace config
