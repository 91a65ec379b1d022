#include <bench/Bench.h>

#include <config/ConfigurationReader.h>
#include <support/LoggerClient.h>

#include <gtest/gtest.h>

#include <memory>
#include <string>

namespace {

using loggerclient::frame;
using Data = std::vector<uint8_t>;

/// A bench by a configuration, and a tester on the bus of channel 0 and 1.
class ScriptedNodesTest : public testing::Test
{
protected:
    void start(const std::string& configuration)
    {
        bench = std::make_unique<vlogger::Bench>(config::readConfiguration(configuration, "bench.toml"), "");
        stream = std::make_unique<loggerclient::Reader>(bench->logger().connect(), vlogger::board::MAIN_DEVICE);
    }

    void tester(uint32_t id, const Data& data, uint8_t type = 0)
    {
        bench->logger().sendFromNode(frame(1, id, data, type));
    }

    /// The next frame with this identifier, as channel 0 receives it.
    wire::CanRecord next(uint32_t id)
    {
        while (true) {
            const wire::CanRecord record = stream->next().value();
            if (record.id == id && record.channel == 0) {
                return record;
            }
        }
    }
    Data nextData(uint32_t id)
    {
        const wire::CanRecord record = next(id);
        return {record.data().begin(), record.data().end()};
    }

    std::unique_ptr<vlogger::Bench> bench;
    std::unique_ptr<loggerclient::Reader> stream;
};

} // namespace

TEST_F(ScriptedNodesTest, IsoTpNodeAnswersAsItsKeysSay)
{
    start(R"([[node]]
name = "engine"
request_id = 0x18DA10F1
response_id = 0x18DAF110
extended = true
addressing = "extended"
address = 0x10
peer_address = 0xF1
minimal_dlc = true
block_size = 1
separation_time_us = 300
wait_frames = 1
wait_interval_ms = 1
delay_ms = 1
fault = "wrong_sequence"
fault_frame = 2

[[node.answer]]
request = "22 F0"
mask = "FF F0"
response = "01 02 03 04 05 06 07 08 09 0A 0B 0C 0D 0E"
)");
    tester(0x18DA10F1, {0x10, 0x10, 0x07, 0x22, 0xF7, 0, 0, 0}, 1);
    EXPECT_EQ(nextData(0x18DAF110), (Data{0xF1, 0x31, 0x01, 0xF3}));
    EXPECT_EQ(nextData(0x18DAF110), (Data{0xF1, 0x30, 0x01, 0xF3}));
    tester(0x18DA10F1, {0x10, 0x21, 0, 0}, 1);
    EXPECT_EQ(nextData(0x18DAF110), (Data{0xF1, 0x10, 0x0E, 1, 2, 3, 4, 5}));
    tester(0x18DA10F1, {0x10, 0x30, 0, 0}, 1);
    EXPECT_EQ(nextData(0x18DAF110), (Data{0xF1, 0x21, 6, 7, 8, 9, 10, 11}));
    const wire::CanRecord faulty = next(0x18DAF110);
    EXPECT_EQ(faulty.type, 1);
    EXPECT_EQ(Data(faulty.data().begin(), faulty.data().end()), (Data{0xF1, 0x23, 12, 13, 14}));
}

TEST_F(ScriptedNodesTest, EchoIsServed)
{
    start("[[node]]\nname = \"a\"\n[[node.answer]]\nrequest = \"BA\"\necho = true\n");
    tester(0x7E0, {0x03, 0xBA, 1, 2});
    EXPECT_EQ(nextData(0x7E8), (Data{0x03, 0xBA, 1, 2, 0, 0, 0, 0}));
}

TEST_F(ScriptedNodesTest, FrameNodeAnswersPlainFrames)
{
    start("[[node]]\nname = \"a\"\nprotocol = \"frame\"\nrequest_id = 0x100\nresponse_id = 0x101\n"
          "[[node.answer]]\nrequest = \"11\"\nresponse = \"22 33\"\n");
    tester(0x100, {0x11, 0x44});
    EXPECT_EQ(nextData(0x101), (Data{0x22, 0x33}));
}

TEST_F(ScriptedNodesTest, CyclicFrameComesAgainAndAgain)
{
    start("[[node]]\nname = \"a\"\n[[node.cyclic]]\nid = 0x123\nextended = true\nfd = true\n"
          "payload = \"01 02 03 04 05 06 07 08 09 0A 0B 0C\"\nperiod_ms = 1\n");
    for (int i = 0; i < 3; ++i) {
        const wire::CanRecord record = next(0x123);
        EXPECT_EQ(record.type, 3);
        EXPECT_EQ(Data(record.data().begin(), record.data().end()), (Data{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12}));
    }
}

TEST_F(ScriptedNodesTest, NodeWithoutAnswersListensToNobody)
{
    start("[[node]]\nname = \"a\"\n[[node.cyclic]]\nid = 0x123\nperiod_ms = 1\n");
    tester(0x7E0, {0x10, 8, 1, 2, 3, 4, 5, 6});
    EXPECT_EQ(next(0x7E0).lengthBytes, 8);
    for (int i = 0; i < 9; ++i) {
        EXPECT_NE(stream->next().value().id, 0x7E8U);
    }
}
