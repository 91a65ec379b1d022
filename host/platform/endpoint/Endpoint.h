#pragma once

#include <wire/FileDescriptor.h>

#include <sys/types.h>

#include <mutex>
#include <string>

namespace vlogger {
class VirtualLogger;
}

namespace vqhost {

/// The virtual logger that this process talks to.
///
/// Decided when it is first needed, for the life of the process:
/// - VLOGGER=embedded: one inside the process;
/// - VLOGGER=PATH: the one that listens there, whether it does so already or not;
/// - otherwise the one at the user's default socket (wire/DefaultSocket.h) if one listens there and both the
///   directory and the process behind it belong to this user alone;
/// - otherwise one inside the process with the default board, said in one line on standard error.
///
/// The embedded one is never destroyed, so that it serves destructors of static objects too. None is started once
/// the process is ending, and a forked child does not reach that of its parent.
///
/// Threads: any.
class Endpoint
{
public:
    /// The one object of the process, never destroyed.
    static Endpoint& instance();

    /// A new connection.
    ///
    /// @throws std::system_error if there is none: ENXIO nobody listens at the socket, ECONNREFUSED nobody listens
    ///         there any more, EACCES somebody else's process listens there, ETIMEDOUT the virtual logger does not
    ///         take the connection, ESHUTDOWN the process is ending, or what the system says. That a named socket
    ///         leads nowhere is also said on standard error, once.
    wire::FileDescriptor connect();

    /// False if connect() would first have to start a virtual logger inside the process. For questions that such a
    /// one, which nobody has set up, has no answer to.
    /// @throws std::system_error as connect()
    bool isThere();

    /// The virtual logger inside the process, started if that is where the endpoint leads; null if it leads
    /// elsewhere. For tests and programs that switch on faults.
    vlogger::VirtualLogger* embedded();

private:
    enum class Kind
    {
        UNDECIDED,
        SOCKET,
        EMBEDDED,
    };

    Endpoint() = default;

    wire::FileDescriptor decide();
    wire::FileDescriptor tryDefaultSocket(std::string& reason);
    void startEmbedded(const std::string& reason);
    wire::FileDescriptor connectToSocket();
    wire::FileDescriptor connectToEmbedded();
    void reportUnreachable(int errorNumber);
    std::string remedyFor(int errorNumber) const;

    std::mutex mutex; ///< guards everything below; the socket is fixed once decided
    Kind kind = Kind::UNDECIDED;
    std::string socketPath;
    bool named = false; ///< the socket comes from VLOGGER
    bool unreachableReported = false;
    vlogger::VirtualLogger* logger = nullptr;
    pid_t loggerProcess = 0; ///< a fork has the object but not its thread
};

} // namespace vqhost
