#include <ethernet/EthernetTest.h>
#include <support/FailingCalls.h>

#include <array>
#include <thread>

namespace {

/// In which order the callbacks of a set hear of an event, and on which thread.
class EthernetInterfaceCallbackTest : public EthernetTest
{
protected:
    /// Stands for a reception in place of a status.
    static constexpr int RECEPTION = 0;

    EthernetInterfaceCallbackTest()
    {
        failing::skipPauses();
        sut->logLevel = 0;
        for (Listener& one : listeners) {
            one.heard = &heard;
            sut->callbacks.insert(&one);
        }
    }
    ~EthernetInterfaceCallbackTest() override { destroy(); }

    /// Expects that an event came to every callback, in ascending order, on this thread or on another.
    void expectHeard(int event, bool onThisThread) const
    {
        std::vector<const InterfaceBaseCb*> order;
        ASSERT_TRUE(heard.waitUntil([&](const std::vector<call_t>& calls) {
            order.clear();
            for (const call_t& call : calls) {
                if (call.event == event) {
                    order.push_back(call.callback);
                }
            }
            return order.size() >= listeners.size();
        }));
        EXPECT_THAT(order, testing::ElementsAre(&listeners[0], &listeners[1], &listeners[2]));
        for (const call_t& call : heard.all()) {
            if (call.event == event) {
                EXPECT_EQ(call.thread == std::this_thread::get_id(), onThisThread);
            }
        }
    }

    const Bytes three = {1, 2, 3};

private:
    struct call_t
    {
        int event;
        const InterfaceBaseCb* callback;
        std::thread::id thread;
    };

    struct Listener : InterfaceBaseCb
    {
        void onDataReceived(const uint8_t*, size_t) override { hear(RECEPTION); }
        void onInterfaceState(int status) override { hear(status); }
        void hear(int event) { heard->add({event, this, std::this_thread::get_id()}); }

        Recorder<call_t>* heard = nullptr;
    };

    Recorder<call_t> heard;
    std::array<Listener, 3> listeners;
};

TEST_F(EthernetInterfaceCallbackTest, ConnectingThreadRaisesConnected)
{
    const ScriptedUdpServer server(Script::SINK);
    connectTo(udp(server.port()));
    expectHeard(1, true);
}

TEST_F(EthernetInterfaceCallbackTest, DisconnectingThreadRaisesDisconnected)
{
    const ScriptedUdpServer server(Script::SINK);
    connectTo(udp(server.port()));
    ASSERT_TRUE(sut->disconnect());
    expectHeard(2, true);
}

TEST_F(EthernetInterfaceCallbackTest, ReceiveThreadThatLosesTheServerRaisesDisconnected)
{
    ScriptedTcpServer server(Script::SINK);
    connectTo(tcp(server.port()));
    ASSERT_TRUE(server.accepted.waitForCount(1));
    server.closeClient();
    expectHeard(2, false);
}

TEST_F(EthernetInterfaceCallbackTest, SendingThreadRaisesDataLoss)
{
    const ScriptedUdpServer server(Script::SINK);
    connectTo(udp(server.port()));
    failing::sendtoCall.fail(EIO);
    EXPECT_EQ(sut->send(three.data(), three.size()), -3);
    expectHeard(3, true);
}

TEST_F(EthernetInterfaceCallbackTest, ReceiveThreadDeliversAndRaisesTheBusLoad)
{
    const ScriptedUdpServer server(Script::SINK);
    connectTo(udp(server.port()));
    server.send(three);
    expectHeard(RECEPTION, false);
    expectHeard(5, false);
}

} // namespace
