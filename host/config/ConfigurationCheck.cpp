#include <config/ConfigurationCheck.h>

#include <config/ConfigurationTable.h>
#include <config/ErrorName.h>
#include <config/MissingChannel.h>
#include <config/NearestName.h>
#include <logger/BoardKind.h>
#include <wire/FdLength.h>

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <bitset>
#include <netinet/in.h>
#include <utility>

namespace config {

namespace {

constexpr uint32_t STANDARD_ID_MAX = 0x7FF;
constexpr size_t MESSAGE_MAX_BYTES = 4095;
constexpr size_t CLASSIC_MAX_BYTES = 8;
constexpr uint32_t US_PER_MS = 1000;
constexpr uint32_t FINE_STEP_US = 100;
constexpr uint32_t FINE_MAX_US = 900;
constexpr std::string_view ALL_ADDRESSES = "0.0.0.0";
constexpr std::array<std::string_view, 2> CLOCKS{"fpgab", "fpgac"};

bool isIpv4(const std::string& text)
{
    in_addr address{};
    return ::inet_pton(AF_INET, text.c_str(), &address) == 1;
}

std::string quoted(std::string_view text)
{
    return '"' + std::string(text) + '"';
}

void checkId(std::vector<WrongField>& wrong, std::string_view key, uint32_t id, bool extended)
{
    if (!extended && id > STANDARD_ID_MAX) {
        wrong.push_back({key, "an identifier above 0x7FF needs extended = true"});
    }
}

bool isDeviceFault(FaultKind kind)
{
    return kind <= FaultKind::RECORD_MALFORMED;
}

bool isClockFault(FaultKind kind)
{
    return kind == FaultKind::CLOCK_LOST || kind == FaultKind::CLOCK_FOUND;
}

bool hasDevice(const wire::Board& board, FaultKind kind, std::string_view path)
{
    const bool reads = kind == FaultKind::STREAM_CUT || kind == FaultKind::RECORD_MALFORMED;
    const bool writes = kind == FaultKind::WRITE_FAILS;
    return (!writes && vlogger::board::canRead(board, path)) || (!reads && vlogger::board::canWrite(board, path));
}

/// TCP and UDP have ports of their own; all addresses include each.
bool isSameServer(const Peer& one, const Peer& other)
{
    const bool isSameAddress =
        one.address == other.address || one.address == ALL_ADDRESSES || other.address == ALL_ADDRESSES;
    return one.transport == other.transport && isSameAddress && one.port == other.port;
}

/// Complains about a setting of an ISO-TP node that a node of another kind has, too, if it is not the default.
template <typename Field>
void checkIsoTpOnly(std::vector<WrongField>& wrong, const Node& node, std::string_view key, Field Node::*field)
{
    static const Node DEFAULTS;
    if (node.protocol != Protocol::ISO_TP && node.*field != DEFAULTS.*field) {
        wrong.push_back({key, quoted(key) + " is for protocol = \"iso_tp\" only"});
    }
}

/// Complains about an address of a node that is found by its identifier alone.
void checkAddress(std::vector<WrongField>& wrong, const Node& node, std::string_view key, uint8_t address)
{
    if (node.addressing == Addressing::NORMAL && address != 0) {
        wrong.push_back({key, quoted(key) + " needs addressing = \"extended\""});
    }
}

/// True if `earlier` fits every request that `later` fits.
bool covers(const Answer& earlier, const Answer& later)
{
    const auto maskOf = [](const Answer& answer, size_t place) {
        return place < answer.mask.size() ? answer.mask[place] : uint8_t{0xFF};
    };
    // An empty request is reported itself.
    if (earlier.request.empty() || earlier.request.size() > later.request.size()) {
        return false;
    }
    for (size_t i = 0; i < earlier.request.size(); ++i) {
        const uint8_t mask = maskOf(earlier, i);
        const bool isFree = (mask & ~maskOf(later, i)) != 0;
        if (isFree || ((earlier.request[i] ^ later.request[i]) & mask) != 0) {
            return false;
        }
    }
    return true;
}

void addSentences(std::vector<std::string>& sentences, const std::string& table,
                  const std::vector<WrongField>& wrongFields)
{
    for (const WrongField& wrong : wrongFields) {
        sentences.push_back(table + "." + std::string(wrong.key) + ": " + wrong.text);
    }
}

std::string numbered(std::string_view table, size_t index)
{
    return std::string(table) + "[" + std::to_string(index) + "]";
}

} // namespace

std::vector<WrongField> check(const Wiring& wiring, const wire::Board& board)
{
    std::bitset<256> seen;
    for (const std::vector<uint8_t>& bus : wiring.buses) {
        if (bus.empty()) {
            return {{"buses", "a bus has at least one channel; [[0]] leaves every channel alone"}};
        }
        for (const uint8_t channel : bus) {
            if (auto missing = missingChannel(board, channel)) {
                return {{"buses", std::move(*missing)}};
            }
            if (seen.test(channel)) {
                return {{"buses", "channel " + std::to_string(channel) + " is wired twice"}};
            }
            seen.set(channel);
        }
    }
    return {};
}

std::vector<WrongField> check(const Addresses& addresses)
{
    std::vector<WrongField> wrong;
    for (const std::string& address : addresses.taken) {
        if (!isIpv4(address)) {
            wrong.push_back({"taken", quoted(address) + " is no IPv4 address"});
        }
    }
    return wrong;
}

std::vector<WrongField> check(const Node& node, const wire::Board& board, std::span<const Node> earlier)
{
    std::vector<WrongField> wrong;
    if (node.name.empty()) {
        wrong.push_back({"name", "a node needs a name"});
    } else if (std::ranges::find(earlier, node.name, &Node::name) != earlier.end()) {
        // A message that names the node would leave open which of the two.
        wrong.push_back({"name", "there is a node " + quoted(node.name) + " already"});
    }
    if (auto missing = missingChannel(board, node.channel)) {
        wrong.push_back({"channel", std::move(*missing)});
    }
    checkId(wrong, "request_id", node.requestId, node.extended);
    checkId(wrong, "response_id", node.responseId, node.extended);
    if (node.requestId == node.responseId) {
        wrong.push_back({"response_id", "a node that sends with the identifier it listens to answers itself"});
    }
    checkIsoTpOnly(wrong, node, "addressing", &Node::addressing);
    checkAddress(wrong, node, "address", node.address);
    checkAddress(wrong, node, "peer_address", node.peerAddress);
    checkIsoTpOnly(wrong, node, "minimal_dlc", &Node::minimalDlc);
    checkIsoTpOnly(wrong, node, "block_size", &Node::blockSize);
    checkIsoTpOnly(wrong, node, "separation_time_us", &Node::separationTimeUs);
    checkIsoTpOnly(wrong, node, "wait_frames", &Node::waitFrames);
    checkIsoTpOnly(wrong, node, "fault", &Node::fault);
    const bool isFine = node.separationTimeUs <= FINE_MAX_US && node.separationTimeUs % FINE_STEP_US == 0;
    if (!isFine && node.separationTimeUs % US_PER_MS != 0) {
        wrong.push_back({"separation_time_us", std::to_string(node.separationTimeUs) +
                                                   " cannot be told to a sender; there are 100 to 900 in steps of "
                                                   "100 and whole milliseconds"});
    }
    return wrong;
}

std::vector<WrongField> check(const Answer& answer, const Node& owner, std::span<const Answer> earlier)
{
    const size_t most = owner.protocol == Protocol::FRAME ? CLASSIC_MAX_BYTES : MESSAGE_MAX_BYTES;
    std::vector<WrongField> wrong;
    if (answer.request.empty()) {
        wrong.push_back({"request", "a request has at least one byte"});
    } else if (answer.request.size() > most) {
        wrong.push_back({"request", "a request of " + std::to_string(answer.request.size()) +
                                        " bytes never arrives; it has at most " + std::to_string(most)});
    } else if (std::ranges::any_of(earlier, [&](const Answer& one) { return covers(one, answer); })) {
        wrong.push_back({"request", "this answer is never given: one above it fits the same requests"});
    }
    if (!answer.mask.empty() && answer.mask.size() != answer.request.size()) {
        wrong.push_back({"mask", "the mask has " + std::to_string(answer.mask.size()) + " bytes, the request " +
                                     std::to_string(answer.request.size())});
    }
    const size_t bytes = answer.response.size();
    if (answer.echo && bytes != 0) {
        wrong.push_back({"response", "an answer that echoes the request has no response of its own"});
    } else if (!answer.echo && (bytes == 0 || bytes > most)) {
        wrong.push_back(
            {"response", "a response has 1 to " + std::to_string(most) + " bytes, not " + std::to_string(bytes)});
    }
    return wrong;
}

std::vector<WrongField> check(const CyclicFrame& frame)
{
    std::vector<WrongField> wrong;
    checkId(wrong, "id", frame.id, frame.extended);
    const size_t bytes = frame.payload.size();
    if (bytes > CLASSIC_MAX_BYTES && !frame.fd) {
        wrong.push_back(
            {"payload", std::to_string(bytes) + " bytes need fd = true; a classic frame has at most 8"});
    } else if (!wire::isFdLength(bytes)) {
        wrong.push_back({"payload", wire::noFdLength(bytes)});
    }
    return wrong;
}

std::vector<WrongField> check(const Peer& peer, std::span<const Peer> earlier)
{
    std::vector<WrongField> wrong;
    if (peer.name.empty()) {
        wrong.push_back({"name", "a peer needs a name"});
    } else if (std::ranges::find(earlier, peer.name, &Peer::name) != earlier.end()) {
        // A fault would reach one of the two only.
        wrong.push_back({"name", "there is a peer " + quoted(peer.name) + " already"});
    }
    if (!isIpv4(peer.address)) {
        wrong.push_back({"address", quoted(peer.address) + " is no IPv4 address"});
    }
    if (peer.port == 0) {
        wrong.push_back({"port", "a peer needs a port"});
    } else if (const auto other =
                   std::ranges::find_if(earlier, [&](const Peer& one) { return isSameServer(one, peer); });
               other != earlier.end()) {
        wrong.push_back({"port", "the peer " + quoted(other->name) + " has this address and port already"});
    }
    return wrong;
}

std::vector<WrongField> check(const FaultEvent& event, const Configuration& whole)
{
    std::vector<WrongField> wrong;
    if (isDeviceFault(event.kind)) {
        if (!hasDevice(whole.board, event.kind, event.target)) {
            wrong.push_back(
                {"target", "this board has no device " + quoted(event.target) + " to which that can happen"});
        }
    } else if (isClockFault(event.kind)) {
        if (std::ranges::find(CLOCKS, event.target) == CLOCKS.end()) {
            wrong.push_back({"target", quoted(event.target) + " is no clock; there are fpgab and fpgac"});
        }
    } else if (std::ranges::find(whole.peers, event.target, &Peer::name) == whole.peers.end()) {
        wrong.push_back({"target", "there is no peer " + quoted(event.target)});
    }
    if (event.kind != FaultKind::WRITE_FAILS) {
        static const FaultEvent DEFAULTS;
        for (const auto& [key, isGiven] : {std::pair("count", event.count != DEFAULTS.count),
                                           std::pair("error", event.error != DEFAULTS.error)}) {
            if (isGiven) {
                wrong.push_back({key, quoted(key) + " is for kind = \"write_fails\" only"});
            }
        }
    } else if (!errorNumberOf(event.error)) {
        wrong.push_back({"error", "unknown error " + quoted(event.error) + "; the nearest known name is " +
                                      quoted(nearestName(event.error, errorNames()))});
    }
    return wrong;
}

std::vector<std::string> check(const Configuration& configuration)
{
    std::vector<std::string> sentences;
    addSentences(sentences, std::string(WIRING), check(configuration.wiring, configuration.board));
    addSentences(sentences, std::string(ADDRESSES), check(configuration.addresses));
    for (size_t i = 0; i < configuration.nodes.size(); ++i) {
        const Node& node = configuration.nodes[i];
        const std::string table = numbered(NODE, i);
        addSentences(sentences, table, check(node, configuration.board, std::span(configuration.nodes).first(i)));
        for (size_t j = 0; j < node.answers.size(); ++j) {
            addSentences(sentences, table + "." + numbered(ANSWER, j),
                         check(node.answers[j], node, std::span(node.answers).first(j)));
        }
        for (size_t j = 0; j < node.cyclic.size(); ++j) {
            addSentences(sentences, table + "." + numbered(CYCLIC, j), check(node.cyclic[j]));
        }
    }
    for (size_t i = 0; i < configuration.peers.size(); ++i) {
        addSentences(sentences, numbered(PEER, i),
                     check(configuration.peers[i], std::span(configuration.peers).first(i)));
    }
    for (size_t i = 0; i < configuration.faults.events.size(); ++i) {
        addSentences(sentences, std::string(FAULTS) + "." + numbered(EVENT, i),
                     check(configuration.faults.events[i], configuration));
    }
    return sentences;
}

} // namespace config
