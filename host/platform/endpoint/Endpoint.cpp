#include "endpoint/Endpoint.h"

#include "endpoint/LoggerSocket.h"
#include "endpoint/ProcessEnd.h"
#include "vqutil/ErrorLine.h"

#include <logger/VirtualLogger.h>
#include <wire/DefaultSocket.h>

#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <system_error>
#include <utility>

namespace vqhost {

namespace {

constexpr char EMBEDDED[] = "embedded";

[[noreturn]] void fail(int errorNumber, const char* what)
{
    throw std::system_error(errorNumber, std::generic_category(), what);
}

/// Nobody is there, as opposed to a connection that failed for a passing reason.
bool isAbsent(int errorNumber)
{
    return errorNumber == ENOENT || errorNumber == ENOTDIR || errorNumber == ECONNREFUSED ||
           errorNumber == ENAMETOOLONG;
}

/// This process lacks something; whoever listens at the socket has no part in it.
bool isShortage(int errorNumber)
{
    return errorNumber == EMFILE || errorNumber == ENFILE || errorNumber == ENOMEM || errorNumber == ENOBUFS;
}

} // namespace

Endpoint& Endpoint::instance()
{
    static auto* const endpoint = new Endpoint;
    return *endpoint;
}

wire::FileDescriptor Endpoint::connect()
{
    std::unique_lock lock(mutex);
    if (kind == Kind::UNDECIDED) {
        if (wire::FileDescriptor connection = decide()) {
            return connection;
        }
    }
    if (kind == Kind::EMBEDDED) {
        return connectToEmbedded();
    }
    // Nothing that another thread could change is needed any more, and the virtual logger may be slow.
    lock.unlock();
    return connectToSocket();
}

bool Endpoint::isThere()
{
    const std::lock_guard lock(mutex);
    if (kind != Kind::UNDECIDED) {
        return true;
    }
    const char* const choice = std::getenv("VLOGGER");
    if (choice != nullptr && choice[0] != '\0') {
        return std::strcmp(choice, EMBEDDED) != 0;
    }
    std::string reason;
    return static_cast<bool>(tryDefaultSocket(reason));
}

vlogger::VirtualLogger* Endpoint::embedded()
{
    const std::lock_guard lock(mutex);
    if (kind == Kind::UNDECIDED) {
        decide();
    }
    return logger;
}

/// @return the connection if the decision needed one, else nothing
wire::FileDescriptor Endpoint::decide()
{
    const char* const choice = std::getenv("VLOGGER");
    if (choice == nullptr || choice[0] == '\0') {
        std::string reason;
        wire::FileDescriptor connection = tryDefaultSocket(reason);
        if (!connection) {
            startEmbedded(reason);
        }
        return connection;
    }
    if (std::strcmp(choice, EMBEDDED) == 0) {
        startEmbedded({});
        return {};
    }
    socketPath = choice;
    named = true;
    kind = Kind::SOCKET;
    return {};
}

/// @return the connection, which decides; or nothing, with the reason to go without it
wire::FileDescriptor Endpoint::tryDefaultSocket(std::string& reason)
{
    const std::string path = wire::defaultSocketPath();
    try {
        checkSocketDirectory(path);
        wire::FileDescriptor connection = connectToLogger(path);
        socketPath = path;
        kind = Kind::SOCKET;
        return connection;
    } catch (const std::system_error& error) {
        if (isAbsent(error.code().value())) {
            reason = "no virtual logger listens at " + path;
        } else if (error.code().value() == EACCES) {
            reason = error.what();
        } else {
            // Out of descriptors, for example: the next attempt decides.
            throw;
        }
    }
    return {};
}

void Endpoint::startEmbedded(const std::string& reason)
{
    if (processIsEnding()) {
        fail(ESHUTDOWN, "the process is ending");
    }
    logger = new vlogger::VirtualLogger(vlogger::Options{});
    loggerProcess = getpid();
    kind = Kind::EMBEDDED;
    if (!reason.empty()) {
        writeErrorLine("[INFO] virtual logger: " + reason + "; this process runs on one of its own");
    }
}

wire::FileDescriptor Endpoint::connectToSocket()
{
    try {
        return connectToLogger(socketPath);
    } catch (const std::system_error& error) {
        const int errorNumber = error.code().value();
        reportUnreachable(errorNumber);
        // "No such file" would read as a device that the board does not have.
        if (errorNumber == ENOENT || errorNumber == ENOTDIR || errorNumber == ENAMETOOLONG) {
            fail(ENXIO, "no virtual logger");
        }
        throw;
    }
}

wire::FileDescriptor Endpoint::connectToEmbedded()
{
    if (getpid() != loggerProcess) {
        fail(ENXIO, "the virtual logger stayed in the parent process");
    }
    return wire::FileDescriptor(logger->connect());
}

void Endpoint::reportUnreachable(int errorNumber)
{
    if (isShortage(errorNumber)) {
        return; // whoever asked for the connection says it, and there is no advice to give
    }
    {
        const std::lock_guard lock(mutex);
        if (std::exchange(unreachableReported, true)) {
            return;
        }
    }
    writeErrorLine("[ERROR] virtual logger: cannot reach the one at " + socketPath + ": " +
                   std::generic_category().message(errorNumber) + "; " + remedyFor(errorNumber));
}

std::string Endpoint::remedyFor(int errorNumber) const
{
    if (errorNumber == EACCES) {
        return named ? "name one of your own in VLOGGER, or unset it to run on one inside the process"
                     : "it is not this user's";
    }
    return named ? "start it with 'vlogger serve --socket " + socketPath +
                       "', or unset VLOGGER to run on one inside the process"
                 : "start it again with 'vlogger serve'";
}

} // namespace vqhost
