#include <logger/ProcessBus.h>

#include <logger/Diagnostics.h>
#include <wire/MessageRecord.h>

#include <algorithm>
#include <array>
#include <memory>
#include <string>
#include <utility>

namespace vlogger {

namespace {

constexpr uint16_t REGISTER_COMMAND = 19;
constexpr size_t QUOTED_BYTES = 200;

constexpr bool hasLongId(const wire::CanRecord& frame)
{
    return frame.type == 1 || frame.type == 3;
}

uint64_t keyOf(uint8_t channel, uint32_t idWord)
{
    return uint64_t{channel} << 32 | idWord;
}

/// A text of a client, fit to stand in a line.
std::string quoted(std::string_view text)
{
    std::string line(text.substr(0, QUOTED_BYTES));
    std::ranges::replace_if(
        line, [](char c) { return c < ' ' || c > '~'; }, '?');
    return "\"" + line + (text.size() > QUOTED_BYTES ? "...\"" : "\"");
}

} // namespace

ProcessBus::ProcessBus(EpollLoop& eventLoop, ConnectionList& owner, const Options& options, Statistics& counters)
    : loop(eventLoop), list(owner), settings(options), statistics(counters), buffer(wire::BUS_PACKET_MAX_BYTES)
{
}

void ProcessBus::addMember(wire::FileDescriptor connection, std::string name)
{
    list.add(std::make_shared<BusMember>(loop, list, std::move(connection), std::move(name), *this, settings,
                                         statistics));
}

void ProcessBus::leave(BusMember& member)
{
    std::erase(members, &member);
    for (auto& [key, entries] : registrations) {
        std::erase_if(entries, [&](const Entry& entry) { return entry.owner == &member; });
    }
    std::erase_if(registrations, [](const auto& registration) { return registration.second.empty(); });
}

bool ProcessBus::route(const wire::BusMessage& message, BusMember& from)
{
    if (message.destination == wire::TRACE_LOGGER_NAME) {
        takeRegistration(message, from);
        return true;
    }
    // First everybody is asked, then everybody is served. Asking may end a connection and take it off the list.
    const std::vector<BusMember*> present = members;
    for (BusMember* const member : present) {
        if (member->name() == message.destination && member->admit() == Admission::HOLD) {
            member->wait(from);
            return false;
        }
    }
    ++statistics.busMessagesIn;
    const wire::BusMessage signedMessage{
        .source = from.name(), .destination = message.destination, .record = message.record};
    for (BusMember* const member : present) {
        if (member->name() == message.destination) {
            member->append(signedMessage);
        }
    }
    return true;
}

void ProcessBus::takeRegistration(const wire::BusMessage& message, BusMember& from)
{
    ++statistics.busMessagesIn;
    const auto command = wire::decodeSystemRecord(message.record);
    if (!command || command->command != REGISTER_COMMAND) {
        diagnostics::warn("a message of " + quoted(from.name()) +
                          " to \"TraceLogger\" is no registration; ignored");
        return;
    }
    ParsedRegistration parsed = parseRegistration(command->text);
    if (!parsed.problem.empty()) {
        diagnostics::error("a registration of " + quoted(from.name()) +
                           " cannot be read: " + quoted(command->text) + ": " + std::string(parsed.problem));
        return;
    }
    const Registration& wanted = parsed.registration;
    if (board::traceDeviceOf(settings.board, wanted.channel).empty()) {
        diagnostics::warn(quoted(from.name()) + " has registered for channel " + std::to_string(wanted.channel) +
                          ", which this board does not receive");
    }
    std::vector<Entry>& entries = registrations[keyOf(wanted.channel, wanted.idWord)];
    const bool isKnown = std::ranges::any_of(
        entries, [&](const Entry& entry) { return entry.owner == &from && entry.name == wanted.name; });
    if (!isKnown) {
        entries.push_back({&from, std::move(parsed.registration.name)});
    }
}

bool ProcessBus::mayForward(const wire::CanRecord& frame, std::optional<uint8_t> origin, const Bus& bus,
                            Sender& sender)
{
    targets.clear();
    if (registrations.empty()) {
        return true;
    }
    const uint32_t idWord = frame.id | (hasLongId(frame) ? wire::EXTENDED_ID_FLAG : 0U);
    for (const Bus::Port& port : bus.members()) {
        if (port.channel == origin || port.device == nullptr) {
            continue;
        }
        const auto found = registrations.find(keyOf(port.channel, idWord));
        if (found != registrations.end()) {
            addTargets(found->second, port.channel);
        }
    }
    for (const Target& target : targets) {
        if (target.member->admit() == Admission::HOLD) {
            target.member->wait(sender);
            return false;
        }
    }
    return true;
}

void ProcessBus::addTargets(const std::vector<Entry>& entries, uint8_t channel)
{
    for (const Entry& entry : entries) {
        if (entry.owner->name() == entry.name) {
            addTarget(*entry.owner, entry.name, channel);
            continue;
        }
        for (BusMember* const member : members) {
            if (member->name() == entry.name) {
                addTarget(*member, entry.name, channel);
            }
        }
    }
}

/// Each connection gets a frame once, however many registrations lead to it.
void ProcessBus::addTarget(BusMember& member, const std::string& name, uint8_t channel)
{
    if (std::ranges::find(targets, &member, &Target::member) == targets.end()) {
        targets.push_back({&member, name, channel});
    }
}

void ProcessBus::forward(const wire::CanRecord& frame)
{
    wire::CanRecord received = frame;
    std::array<uint8_t, wire::CAN_RECORD_MAX_BYTES> bytes;
    for (const Target& target : targets) {
        received.channel = target.channel;
        const std::span record = std::span(bytes).first(wire::encode(received, bytes));
        target.member->append({.source = wire::TRACE_LOGGER_NAME, .destination = target.name, .record = record});
    }
}

} // namespace vlogger
