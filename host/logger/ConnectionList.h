#pragma once

#include <logger/Connection.h>

#include <memory>
#include <unordered_map>

namespace vlogger {

/// Owns the connections.
class ConnectionList
{
public:
    explicit ConnectionList(EpollLoop& eventLoop) : loop(eventLoop) {}

    void add(std::shared_ptr<Connection> connection)
    {
        Connection* const key = connection.get();
        connections.emplace(key, std::move(connection));
    }

    /// Gives a connection up. It lives until the end of the round, so that it may do this to itself.
    void remove(Connection& connection)
    {
        const auto found = connections.find(&connection);
        if (found != connections.end()) {
            loop.defer([kept = std::move(found->second)] {});
            connections.erase(found);
        }
    }

private:
    EpollLoop& loop;
    std::unordered_map<Connection*, std::shared_ptr<Connection>> connections;
};

} // namespace vlogger
