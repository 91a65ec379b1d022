#pragma once

#include <vqutil/Mutex.h>

#include <netinet/in.h>

#include <atomic>
#include <condition_variable>

namespace ethernet {

/// One socket to the server while it is published, and who is using it at the moment.
///
/// A descriptor that is closed while another thread waits on it or sends through it stays alive in the kernel until
/// that call returns (so its port stays taken and the server hears nothing), and its number may meanwhile stand for
/// another file. So whoever closes first withdraws the socket: that lets nobody enter any more, wakes those who are
/// inside, and returns when they have left. Users share the ownership of this object, so that it outlives the last
/// one.
///
/// Threads: any.
class OpenSocket
{
public:
    /// Takes note of a socket; does not own the descriptor.
    OpenSocket(int socketDescriptor, bool stream, const sockaddr_in& serverAddress, bool brokenPipeKills);
    OpenSocket(const OpenSocket&) = delete;
    OpenSocket& operator=(const OpenSocket&) = delete;

    const int fd;
    const bool isStream; ///< TCP, else UDP
    const sockaddr_in server;
    const bool brokenPipeIsFatal; ///< SIGPIPE had its default action when the socket was opened

    /// The right to use the descriptor, held for the length of a scope. Hold none across a callback.
    class Use
    {
    public:
        explicit Use(OpenSocket* used) : socket(used != nullptr && used->enter() ? used : nullptr) {}
        ~Use() { release(); }
        Use(const Use&) = delete;
        Use& operator=(const Use&) = delete;

        /// False if there is no socket or it has been withdrawn: there is nothing to use then.
        explicit operator bool() const { return socket != nullptr; }

        /// Gives the right back before the end of the scope.
        void release();

    private:
        OpenSocket* socket;
    };

    /// True once somebody is closing the socket. What a user inside then sees on it may be the waking alone.
    bool isWithdrawn() const { return withdrawn; }

    /// Keeps new users out, wakes those inside and waits until they have left. Called once, by the one who closes.
    void withdraw();

private:
    bool enter();
    void leave();

    // A user counts itself and then looks whether the socket is withdrawn; withdraw() marks it and then looks for
    // users. In one total order of these four steps at least one of the two sees the other.
    std::atomic<unsigned> users{0};
    std::atomic<bool> withdrawn{false};
    Mutex mutex;
    std::condition_variable_any left;
};

} // namespace ethernet
