// Talks to a server process on this machine, first by TCP, then by UDP: what an application sends, hears and is told
// when the server goes away and comes back.

#include "Events.h"
#include "ServerProcess.h"

#include <EthernetInterface.h>

#include <exception>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>

namespace {

/// In one piece, because the library's receive thread writes to the same stream.
void say(const std::string& line)
{
    std::cout << line + "\n" << std::flush;
}

/// Prints the next event, which has to be the expected one.
void expect(Events& events, const std::string& expected, size_t wanted = 1)
{
    const std::string line = events.next(wanted);
    say(line);
    if (line != expected) {
        throw std::runtime_error("expected instead: " + expected);
    }
}

void send(EthernetInterface& ethernet, const std::string& text)
{
    const int result = ethernet.send(reinterpret_cast<const uint8_t*>(text.data()), text.size());
    if (result != 0) {
        throw std::runtime_error("send() returned " + std::to_string(result));
    }
}

void expectEcho(Events& events, const std::string& text)
{
    expect(events, "received: " + text, text.size());
}

void connect(EthernetInterface& ethernet, const std::string& serverIp, uint16_t port, bool useTcp)
{
    if (ethernet.configure({"lo", serverIp, "127.0.0.1", "255.0.0.0", "127.0.0.254", port, useTcp}) != 1) {
        throw std::runtime_error("not connected");
    }
}

/// Keeps the server busy until a bus-load interval is over: only receptions close one.
void showActivity(EthernetInterface& ethernet, Events& events)
{
    while (!events.takeFigure()) {
        send(ethernet, "tick");
        if (const std::string line = events.next(4); line != "received: tick") {
            throw std::runtime_error("instead of an echo: " + line);
        }
    }
    say("activity: " + std::to_string(ethernet.getLastBusLoad()) + " receptions in the last interval");
}

void talkByTcp(EthernetInterface& ethernet, Events& events)
{
    say("-- TCP");
    auto server = std::make_unique<ServerProcess>("tcp");
    const uint16_t port = server->port();
    connect(ethernet, "127.0.0.1", port, true);
    expect(events, "state: connected");
    send(ethernet, "hello");
    expectEcho(events, "hello");
    showActivity(ethernet, events); // the first reception closes an interval at once
    showActivity(ethernet, events);

    say("the server ends; after ten empty receptions, one a second, the interface gives it up");
    server.reset();
    expect(events, "state: disconnected");

    say("the server is back; the next send connects again");
    server = std::make_unique<ServerProcess>("tcp", port);
    send(ethernet, "hello again");
    expect(events, "state: connected");
    expectEcho(events, "hello again");
    ethernet.disconnect();
    expect(events, "state: disconnected");
}

void talkByUdp(EthernetInterface& ethernet, Events& events)
{
    say("-- UDP");
    auto server = std::make_unique<ServerProcess>("udp");
    const uint16_t port = server->port();
    connect(ethernet, "127.0.0.2", port, false);
    expect(events, "state: connected");
    send(ethernet, "hello");
    expectEcho(events, "hello");
    events.takeFigure(); // may be of the connection before
    showActivity(ethernet, events);

    say("the server ends; datagrams go out all the same, and nobody is told");
    server.reset();
    send(ethernet, "is anybody there?");

    say("the server is back");
    server = std::make_unique<ServerProcess>("udp", port);
    send(ethernet, "hello again");
    expectEcho(events, "hello again");
    ethernet.disconnect();
    expect(events, "state: disconnected");
}

} // namespace

int main()
try {
    Events events; // before the interface: it has to outlive it
    EthernetInterface ethernet;
    ethernet.callbacks.insert(&events);
    talkByTcp(ethernet, events);
    talkByUdp(ethernet, events);
    say("-- done");
} catch (const std::exception& error) {
    std::cerr << "ethernet: " << error.what() << '\n';
    return 1;
}
