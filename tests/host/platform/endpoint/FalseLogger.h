#pragma once

#include <wire/Protocol.h>

#include <gtest/gtest.h>
#include <support/LoggerClient.h>

#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

/// Something at the place of a virtual logger that is none: it does to each connection what it is told.
class FalseLogger
{
public:
    enum class Manner
    {
        SILENT,
        CLOSES,   ///< without taking the request
        HANGS_UP, ///< once it has the request
        ANSWERS_RUBBISH,
        ANSWERS_AND_CLOSES,            ///< refuses with EMFILE, before the request comes
        ANSWERS_AND_CLOSES_ON_REQUEST, ///< refuses with EMFILE and leaves the request unread
        ACCEPTS_NOBODY,
    };

    FalseLogger(const std::string& path, Manner manner) : fd(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0))
    {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::strncpy(address.sun_path, path.c_str(), sizeof(address.sun_path) - 1);
        EXPECT_EQ(bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0);
        EXPECT_EQ(listen(fd, 0), 0);
        chmod(path.c_str(), 0777);
        if (manner == Manner::ACCEPTS_NOBODY) {
            // The only place in the queue is taken.
            waiting = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
            EXPECT_EQ(connect(waiting, reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0);
        } else {
            server = std::thread([this, manner] { serve(manner); });
        }
    }

    ~FalseLogger()
    {
        shutdown(fd, SHUT_RDWR); // ends accept()
        if (server.joinable()) {
            server.join();
        }
        for (const int kept : connections) {
            close(kept);
        }
        close(fd);
        if (waiting >= 0) {
            close(waiting);
        }
    }

private:
    void serve(Manner manner)
    {
        while (true) {
            const int connection = accept(fd, nullptr, nullptr);
            if (connection < 0) {
                return;
            }
            if (manner == Manner::ANSWERS_RUBBISH) {
                send(connection, "rubbish", 7, MSG_NOSIGNAL);
            }
            if (manner == Manner::CLOSES) {
                close(connection);
            } else if (manner == Manner::ANSWERS_AND_CLOSES) {
                refuse(connection);
            } else if (manner == Manner::ANSWERS_AND_CLOSES_ON_REQUEST) {
                loggerclient::waitFor(connection, POLLIN);
                refuse(connection);
            } else if (manner == Manner::HANGS_UP) {
                char request[512];
                static_cast<void>(recv(connection, request, sizeof(request), 0));
                close(connection);
            } else {
                connections.push_back(connection);
            }
        }
    }

    static void refuse(int connection)
    {
        const std::vector<uint8_t> reply = wire::encodeReply({.errorNumber = EMFILE, .body = {}});
        send(connection, reply.data(), reply.size(), MSG_NOSIGNAL);
        close(connection);
    }

    int fd;
    int waiting = -1;
    std::vector<int> connections;
    std::thread server;
};
