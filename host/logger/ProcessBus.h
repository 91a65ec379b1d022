#pragma once

#include <logger/Bus.h>
#include <logger/BusMember.h>
#include <logger/ConnectionList.h>
#include <logger/Registration.h>
#include <logger/VirtualLogger.h>
#include <wire/BusProtocol.h>
#include <wire/TraceRecord.h>

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <unordered_map>
#include <vector>

namespace vlogger {

/// Where named processes exchange messages. The virtual logger takes part under the name "TraceLogger": processes
/// register there for CAN frames.
class ProcessBus
{
public:
    ProcessBus(EpollLoop& eventLoop, ConnectionList& owner, const Options& options, Statistics& counters);

    /// Takes a connection in. Its BUS request is answered.
    void addMember(wire::FileDescriptor connection, std::string name);

    void join(BusMember& member) { members.push_back(&member); }
    /// Forgets a connection and its registrations.
    void leave(BusMember& member);

    /// Delivers a message of a member to every connection of the name that it is sent to.
    /// @return false if it has to wait: nobody got it, and the member is resumed
    bool route(const wire::BusMessage& message, BusMember& from);

    /// Whether a frame may cross its bus now, as far as processes that registered for it are concerned; if not, the
    /// sender is resumed once it may.
    bool mayForward(const wire::CanRecord& frame, std::optional<uint8_t> origin, const Bus& bus, Sender& sender);

    /// Sends the frame that mayForward() was just asked about.
    void forward(const wire::CanRecord& frame);

    size_t memberCount() const { return members.size(); }

    /// Room for the longest packet.
    std::span<uint8_t> packetBuffer() { return buffer; }

private:
    /// A registration belongs to the connection that sent it.
    struct Entry
    {
        BusMember* owner;
        std::string name;
    };
    /// Who gets a frame, under which name, and from which channel.
    struct Target
    {
        BusMember* member;
        std::string name; ///< a copy: asking for room may end a connection and its registrations
        uint8_t channel;
    };

    void takeRegistration(const wire::BusMessage& message, BusMember& from);
    void addTargets(const std::vector<Entry>& entries, uint8_t channel);
    void addTarget(BusMember& member, const std::string& name, uint8_t channel);

    EpollLoop& loop;
    ConnectionList& list;
    const Options& settings;
    Statistics& statistics;
    std::vector<BusMember*> members;
    std::unordered_map<uint64_t, std::vector<Entry>> registrations; ///< by channel and identifier word
    std::vector<Target> targets;                                    ///< of the frame that is being offered
    std::vector<uint8_t> buffer;
};

} // namespace vlogger
