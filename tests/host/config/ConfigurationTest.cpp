#include <config/ConfigurationCheck.h>
#include <config/ConfigurationReader.h>
#include <config/ConfigurationReference.h>
#include <config/ConfigurationWriter.h>
#include <config/ErrorName.h>
#include <config/HexBytes.h>
#include <config/NearestName.h>

#include <support/TemporaryDirectory.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cerrno>
#include <fstream>
#include <iterator>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

namespace config {

namespace {

/// Every kind of table, with no key at its default.
constexpr const char* EVERYTHING = R"([board]
type = 112
device_code = 4
can_fd_device = true

[wiring]
buses = [[0, 1, 2], [14, 255]]

[queues]
stream_bytes = 65536
stall_limit_ms = 50

[addresses]
taken = ["192.168.1.7", "10.0.0.1"]

[[node]]
name = "engine"
channel = 3
protocol = "iso_tp"
request_id = 0x18DA10F1
response_id = 0x18DAF110
extended = true
addressing = "extended"
address = 0x10
peer_address = 0xF1
minimal_dlc = true
block_size = 8
separation_time_us = 5000
wait_frames = 2
wait_interval_ms = 50
delay_ms = 10
fault = "wrong_sequence"
fault_frame = 3

[[node.answer]]
request = "22 F1 90"
mask = "FF FF F0"
response = "62 F1 90 57"
echo = false

[[node.answer]]
request = "3E"
mask = ""
response = ""
echo = true

[[node.cyclic]]
id = 0x123
extended = true
fd = true
payload = "00 11 22 33 44 55 66 77 88 99 AA BB"
period_ms = 20

[[node]]
name = "brakes \"left\""
channel = 5
protocol = "frame"
request_id = 0x7E1
response_id = 0x7E9
extended = false
addressing = "normal"
address = 0x0
peer_address = 0x0
minimal_dlc = false
block_size = 0
separation_time_us = 0
wait_frames = 0
wait_interval_ms = 100
delay_ms = 0
fault = "none"
fault_frame = 1

[[peer]]
name = "server"
transport = "udp"
address = "127.0.0.2"
port = 5000
behaviour = "silent"

[faults]
seed = 7

[[faults.event]]
kind = "write_fails"
target = "/dev/vqlog-fpgab"
at_ms = 100
spread_ms = 50
every_ms = 1000
count = 3
error = "ENOSPC"

[[faults.event]]
kind = "peer_silent"
target = "server"
at_ms = 1
spread_ms = 0
every_ms = 0
count = 1
error = "EIO"
)";

/// What is wrong with a configuration, line by line.
std::string mistakesIn(const std::string& text)
{
    try {
        readConfiguration(text, "bench.toml");
    } catch (const ConfigurationError& error) {
        return error.what();
    }
    return "";
}

} // namespace

TEST(ConfigurationTest, EmptyTextGivesEveryDefault)
{
    EXPECT_EQ(writeConfiguration(readConfiguration("", "bench.toml")), writeConfiguration(Configuration()));
}

TEST(ConfigurationTest, EveryKeyIsReadAndWrittenBack)
{
    const Configuration read = readConfiguration(EVERYTHING, "bench.toml");
    EXPECT_EQ(writeConfiguration(read), EVERYTHING);
    EXPECT_EQ(read.board, (wire::Board{.boardType = 112, .deviceCode = 4, .canFdDevice = true}));
    EXPECT_EQ(read.wiring.buses, (std::vector<std::vector<uint8_t>>{{0, 1, 2}, {14, 255}}));
    ASSERT_EQ(read.nodes.size(), 2U);
    EXPECT_EQ(read.nodes[0].requestId, 0x18DA10F1U);
    EXPECT_EQ(read.nodes[0].answers[0].mask, (Bytes{0xFF, 0xFF, 0xF0}));
    EXPECT_EQ(read.nodes[0].addressing, Addressing::EXTENDED);
    EXPECT_EQ(read.nodes[0].fault, NodeFault::WRONG_SEQUENCE);
    EXPECT_TRUE(read.nodes[0].answers[1].echo);
    EXPECT_EQ(read.nodes[1].protocol, Protocol::FRAME);
    EXPECT_EQ(read.nodes[1].name, "brakes \"left\"");
    EXPECT_EQ(read.peers[0].transport, Transport::UDP);
    EXPECT_EQ(read.peers[0].behaviour, Behaviour::SILENT);
    EXPECT_EQ(read.faults.events[1].kind, FaultKind::PEER_SILENT);
}

TEST(ConfigurationTest, DefaultsAreShownWithEveryKey)
{
    EXPECT_EQ(writeConfiguration(Configuration()), R"([board]
type = 1
device_code = 0
can_fd_device = false

[wiring]
buses = []

[queues]
stream_bytes = 1048576
stall_limit_ms = 1000

[addresses]
taken = []

# [[node]]
# name = ""  # required
# channel = 1
# protocol = "iso_tp"
# request_id = 0x7E0
# response_id = 0x7E8
# extended = false
# addressing = "normal"
# address = 0x0
# peer_address = 0x0
# minimal_dlc = false
# block_size = 0
# separation_time_us = 0
# wait_frames = 0
# wait_interval_ms = 100
# delay_ms = 0
# fault = "none"
# fault_frame = 1

# [[node.answer]]
# request = ""  # required
# mask = ""
# response = ""
# echo = false

# [[node.cyclic]]
# id = 0x0  # required
# extended = false
# fd = false
# payload = ""
# period_ms = 100

# [[peer]]
# name = ""  # required
# transport = "tcp"
# address = "127.0.0.1"
# port = 0  # required
# behaviour = "echo"

[faults]
seed = 1

# [[faults.event]]
# kind = "write_fails"  # required
# target = ""  # required
# at_ms = 0
# spread_ms = 0
# every_ms = 0
# count = 1
# error = "EIO"
)");
}

TEST(ConfigurationTest, JsonHasTheSameNames)
{
    EXPECT_EQ(writeConfigurationJson(Configuration()),
              R"({"board":{"type":1,"device_code":0,"can_fd_device":false},"wiring":{"buses":[]},)"
              R"("queues":{"stream_bytes":1048576,"stall_limit_ms":1000},"addresses":{"taken":[]},)"
              R"("node":[],"peer":[],"faults":{"seed":1,"event":[]}})");
    const std::string everything = writeConfigurationJson(readConfiguration(EVERYTHING, ""));
    EXPECT_NE(everything.find(R"("request_id":416944369)"), std::string::npos) << everything;
    EXPECT_NE(everything.find(R"("name":"brakes \"left\"")"), std::string::npos) << everything;
}

TEST(ConfigurationTest, UnknownKeyIsNamedWithLineColumnAndNearestName)
{
    EXPECT_EQ(mistakesIn("[board]\n  devic_code = 4\n"),
              "bench.toml:2:3: unknown key \"devic_code\" in [board]; the nearest known name is \"device_code\"");
    EXPECT_EQ(mistakesIn("[bord]\n"), "bench.toml:1:2: unknown key \"bord\"; the nearest known name is \"board\"");
    EXPECT_EQ(mistakesIn("[[node]]\nname = \"a\"\nblocksize = 1\n"),
              "bench.toml:3:1: unknown key \"blocksize\" in [node]; the nearest known name is \"block_size\"");
    EXPECT_EQ(mistakesIn("[[node]]\nname = \"a\"\n[[node.anser]]\n"),
              "bench.toml:3:8: unknown key \"anser\" in [node]; the nearest known name is \"answer\"");
}

TEST(ConfigurationTest, EveryMistakeIsReportedInTheOrderOfTheText)
{
    EXPECT_EQ(mistakesIn("[queues]\nstream_bytes = 1\nstall = 2\n[board]\ntype = -1\n"),
              "bench.toml:2:16: \"stream_bytes\" is a whole number from 4096 to 1073741824\n"
              "bench.toml:3:1: unknown key \"stall\" in [queues]; the nearest known name is \"stall_limit_ms\"\n"
              "bench.toml:5:8: \"type\" is a whole number from 0 to 4294967295");
}

TEST(ConfigurationTest, EveryWrongValueIsNamedWithWhatItShouldBe)
{
    const std::string node = "[[node]]\nname = \"a\"\n";
    const std::string lists = "\"buses\" is a list of lists of channels 0 to 255, for example [[0, 1], [2, 3]]";
    const std::vector<std::pair<std::string, std::string>> cases{
        {"[board]\ncan_fd_device = 1\n", "bench.toml:2:17: \"can_fd_device\" is true or false"},
        {"[board]\ntype = 4294967296\n", "bench.toml:2:8: \"type\" is a whole number from 0 to 4294967295"},
        {"[board]\ntype = 1.0\n", "bench.toml:2:8: \"type\" is a whole number from 0 to 4294967295"},
        {"board = 1\n", "bench.toml:1:9: \"board\" is a table: [board]"},
        {"node = 1\n", "bench.toml:1:8: \"node\" is a list of tables: [[node]]"},
        {"node = [1]\n", "bench.toml:1:8: \"node\" is a list of tables: [[node]]"},
        {"[wiring]\nbuses = 1\n", "bench.toml:2:9: " + lists},
        {"[wiring]\nbuses = [0, 1]\n", "bench.toml:2:9: " + lists},
        {"[wiring]\nbuses = [[0, 256]]\n", "bench.toml:2:9: " + lists},
        {"[wiring]\nbuses = [[0, -1]]\n", "bench.toml:2:9: " + lists},
        {"[wiring]\nbuses = [[0, 1], [1, 2]]\n", "bench.toml:2:9: channel 1 is wired twice"},
        {"[addresses]\ntaken = \"1.2.3.4\"\n", "bench.toml:2:9: \"taken\" is a list of texts"},
        {"[addresses]\ntaken = [1]\n", "bench.toml:2:9: \"taken\" is a list of texts"},
        {"[addresses]\ntaken = [\"1.2.3\"]\n", "bench.toml:2:9: \"1.2.3\" is no IPv4 address"},
        {"[[node]]\n", "bench.toml:1:1: [node] lacks \"name\""},
        {"[[node]]\nname = 1\n", "bench.toml:2:8: \"name\" is a text in quotes"},
        {"[[node]]\nname = \"\"\n", "bench.toml:2:8: a node needs a name"},
        {node + "channel = 256\n", "bench.toml:3:11: \"channel\" is a whole number from 0 to 255"},
        {node + "request_id = 0x800\n", "bench.toml:3:14: an identifier above 0x7FF needs extended = true"},
        {node + "response_id = 0x7E0\n",
         "bench.toml:3:15: a node that sends with the identifier it listens to answers itself"},
        {node + "request_id = 0x7E8\n",
         "bench.toml:1:1: a node that sends with the identifier it listens to answers itself"},
        {node + "protocol = \"isotp\"\n",
         "bench.toml:3:12: \"protocol\" is one of \"iso_tp\", \"frame\"; the nearest is \"iso_tp\""},
        {node + "addressing = \"mixed\"\n",
         "bench.toml:3:14: \"addressing\" is one of \"normal\", \"extended\"; the nearest is \"normal\""},
        {node + "address = 256\n", "bench.toml:3:11: \"address\" is a whole number from 0 to 255"},
        {node + "fault = \"silence\"\n",
         "bench.toml:3:9: \"fault\" is one of \"none\", \"drop_consecutive\", \"wrong_sequence\", "
         "\"no_flow_control\", \"overflow\", \"silent\"; the nearest is \"silent\""},
        {node + "fault_frame = 0\n", "bench.toml:3:15: \"fault_frame\" is a whole number from 1 to 682"},
        {node + "separation_time_us = 950\n",
         "bench.toml:3:22: 950 cannot be told to a sender; there are 100 to 900 in steps of 100 and whole "
         "milliseconds"},
        {node + "separation_time_us = 127001\n",
         "bench.toml:3:22: \"separation_time_us\" is a whole number from 0 to 127000"},
        {node + "[[node.answer]]\nrequest = \"2\"\nresponse = \"00\"\n",
         "bench.toml:4:11: \"request\" is a text of hex bytes, for example \"22 F1 90\""},
        {node + "[[node.answer]]\nrequest = \"\"\nresponse = \"00\"\n",
         "bench.toml:4:11: a request has at least one byte"},
        {node + "[[node.answer]]\nrequest = \"22\"\nmask = \"FF FF\"\nresponse = \"00\"\n",
         "bench.toml:5:8: the mask has 2 bytes, the request 1"},
        {node + "[[node.answer]]\nrequest = \"22\"\nresponse = \"\"\n",
         "bench.toml:5:12: a response has 1 to 4095 bytes, not 0"},
        {node + "[[node.answer]]\nrequest = \"22\"\n", "bench.toml:3:1: a response has 1 to 4095 bytes, not 0"},
        {node + "[[node.answer]]\nrequest = \"22\"\necho = true\nresponse = \"00\"\n",
         "bench.toml:6:12: an answer that echoes the request has no response of its own"},
        {node + "protocol = \"frame\"\n[[node.answer]]\nrequest = \"22\"\nresponse = \"001122334455667788\"\n",
         "bench.toml:6:12: a response has 1 to 8 bytes, not 9"},
        {node + "[[node.cyclic]]\nid = 0x800\n", "bench.toml:4:6: an identifier above 0x7FF needs extended = true"},
        {node + "[[node.cyclic]]\nid = 1\npayload = \"001122334455667788\"\n",
         "bench.toml:5:11: 9 bytes need fd = true; a classic frame has at most 8"},
        {node + "[[node.cyclic]]\nid = 1\nfd = true\npayload = \"001122334455667788\"\n",
         "bench.toml:6:11: a CAN FD frame has 0 to 8, 12, 16, 20, 24, 32, 48 or 64 bytes, not 9"},
        {node + "[[node.cyclic]]\nid = 1\nperiod_ms = 0\n",
         "bench.toml:5:13: \"period_ms\" is a whole number from 1 to 3600000"},
        {"[[peer]]\nname = \"p\"\nport = 0\n", "bench.toml:3:8: \"port\" is a whole number from 1 to 65535"},
        {"[[peer]]\nname = \"p\"\nport = 1\naddress = \"host\"\n", "bench.toml:4:11: \"host\" is no IPv4 address"},
        {"[[peer]]\nname = \"p\"\nport = 1\nbehaviour = \"ecco\"\n",
         "bench.toml:4:13: \"behaviour\" is one of \"echo\", \"sink\", \"silent\"; the nearest is \"echo\""},
        {"[[peer]]\nname = \"p\"\nport = 1\nbehaviour = 1\n",
         "bench.toml:4:13: \"behaviour\" is one of \"echo\", \"sink\", \"silent\""},
        {"[[faults.event]]\nkind = \"write_fails\"\ntarget = \"/dev/vqlog-fpgac\"\n",
         "bench.toml:3:10: this board has no device \"/dev/vqlog-fpgac\" to which that can happen"},
        {"[board]\ntype = 16\n[[faults.event]]\nkind = \"stream_cut\"\ntarget = \"/dev/vqlog-fpgab\"\n",
         "bench.toml:5:10: this board has no device \"/dev/vqlog-fpgab\" to which that can happen"},
        {"[[faults.event]]\nkind = \"clock_lost\"\ntarget = \"fpga\"\n",
         "bench.toml:3:10: \"fpga\" is no clock; there are fpgab and fpgac"},
        {"[[faults.event]]\nkind = \"peer_silent\"\ntarget = \"x\"\n", "bench.toml:3:10: there is no peer \"x\""},
        {"[[faults.event]]\nkind = \"write_fails\"\ntarget = \"/dev/vqlog-fpgab\"\nerror = \"EIOO\"\n",
         "bench.toml:4:9: unknown error \"EIOO\"; the nearest known name is \"EIO\""},
    };
    for (const auto& [text, mistake] : cases) {
        EXPECT_EQ(mistakesIn(text), mistake) << text;
    }
}

TEST(ConfigurationTest, HeaderThatNoKeyCanBeginIsNamedWithItsPlace)
{
    for (const char* text : {"[!]\n", "[\x01\n", "[=]\n", "[[#]]\n", "[\u00e4]\n"}) {
        EXPECT_EQ(mistakesIn(text).substr(0, 13), "bench.toml:1:") << text;
    }
}

TEST(ConfigurationTest, TextThatIsNoTomlIsNamedWithItsPlace)
{
    const std::string mistake = mistakesIn("[board]\ntype = = 1\n");
    EXPECT_EQ(mistake.substr(0, 17), "bench.toml:2:8: E") << mistake;
    EXPECT_EQ(mistake.find('\n'), std::string::npos) << mistake;
}

TEST(ConfigurationTest, LettersBeyondAsciiWhereTomlHasNoPlaceForThemAreNamedWithTheirPlace)
{
    const std::vector<std::pair<std::string, std::string>> cases{
        {"[board]\ntype = 1\u00e4\n", "bench.toml:2:"},
        {"[board]\ntype = 7\"T\u00fcr\"\n", "bench.toml:2:"},
        {"[wiring]\nbuses = [[1\u20ac]]\n", "bench.toml:2:"},
        {"[[node]]\nname = \"\"\"a\\\u00e4\"\"\"\n", "bench.toml:2:"},
        {"\u00e4 = 1\n", "bench.toml:1:1: "},
    };
    for (const auto& [text, place] : cases) {
        const std::string mistake = mistakesIn(text);
        EXPECT_THAT(mistake, testing::StartsWith(place)) << text;
        EXPECT_EQ(mistake.find('\n'), std::string::npos) << mistake;
    }
}

TEST(ConfigurationTest, LettersBeyondAsciiInAStringAreKept)
{
    const Configuration read =
        readConfiguration("\xEF\xBB\xBF[[node]] # f\u00fcr\nname = \"T\u00fcr\"\n", "bench.toml");
    EXPECT_EQ(read.nodes.front().name, "T\u00fcr");
}

TEST(ConfigurationTest, FaultOnTheTransmitPathOfACombinedBoardIsAccepted)
{
    EXPECT_EQ(mistakesIn("[board]\ntype = 16\n[[faults.event]]\nkind = \"write_fails\"\n"
                         "target = \"/dev/vqlog-fpgab\"\n"),
              "");
}

TEST(ConfigurationTest, SecondPeerOfAnAddressAndPortIsRefusedAtItsLine)
{
    const std::string first = "[[peer]]\nname = \"a\"\ntransport = \"tcp\"\nport = 5000\n";
    const std::string second = "[[peer]]\nname = \"b\"\n";
    EXPECT_EQ(mistakesIn(first + second + "transport = \"tcp\"\nport = 5000\n"),
              "bench.toml:8:8: the peer \"a\" has this address and port already");
    EXPECT_EQ(mistakesIn(first + second + "transport = \"udp\"\nport = 5000\n"), "");
    EXPECT_EQ(mistakesIn(first + second + "transport = \"tcp\"\nport = 5001\n"), "");
    EXPECT_EQ(mistakesIn(first + second + "transport = \"tcp\"\nport = 5000\naddress = \"127.0.0.2\"\n"), "");
}

TEST(ConfigurationTest, SecondPeerOfANameIsRefusedAtItsLine)
{
    EXPECT_EQ(mistakesIn("[[peer]]\nname = \"a\"\nport = 5000\n[[peer]]\nname = \"a\"\nport = 5001\n"),
              "bench.toml:5:8: there is a peer \"a\" already");
}

TEST(ConfigurationTest, PeerAtAllAddressesHasThePortOfEach)
{
    EXPECT_EQ(mistakesIn("[[peer]]\nname = \"a\"\nport = 5000\n"
                         "[[peer]]\nname = \"b\"\naddress = \"0.0.0.0\"\nport = 5000\n"),
              "bench.toml:7:8: the peer \"a\" has this address and port already");
}

// On one machine, server and client share an address, and the client's is to be refused.
TEST(ConfigurationTest, PeerAtATakenAddressIsAccepted)
{
    EXPECT_EQ(mistakesIn("[[peer]]\nname = \"a\"\naddress = \"127.0.0.2\"\nport = 5000\n"
                         "[addresses]\ntaken = [\"127.0.0.2\"]\n"),
              "");
}

TEST(ConfigurationTest, BusWithoutAChannelIsRefused)
{
    const std::string refusal = "bench.toml:2:9: a bus has at least one channel; [[0]] leaves every channel alone";
    EXPECT_EQ(mistakesIn("[wiring]\nbuses = [[]]\n"), refusal);
    EXPECT_EQ(mistakesIn("[wiring]\nbuses = [[0, 1], []]\n"), refusal);
    EXPECT_EQ(mistakesIn("[wiring]\nbuses = [[0]]\n"), "");
}

TEST(ConfigurationTest, ChannelThatTheBoardLacksIsRefusedWhereverTheBoardStands)
{
    const std::string refusal =
        "this board has no channel 14; the channels from 14 on need [board] device_code = 4";
    EXPECT_EQ(mistakesIn("[wiring]\nbuses = [[13, 14]]\n"), "bench.toml:2:9: " + refusal);
    EXPECT_EQ(mistakesIn("[[node]]\nname = \"a\"\nchannel = 14\n"), "bench.toml:3:11: " + refusal);
    for (const char* board : {"[board]\ndevice_code = 4\n", "[board]\ntype = 16\n"}) {
        EXPECT_EQ(mistakesIn(std::string("[wiring]\nbuses = [[13, 14]]\n") + board), "") << board;
    }
}

TEST(ConfigurationTest, SecondNodeOfANameIsRefusedAtItsLine)
{
    EXPECT_EQ(mistakesIn("[[node]]\nname = \"a\"\n[[node]]\nname = \"b\"\n[[node]]\nname = \"a\"\n"),
              "bench.toml:6:8: there is a node \"a\" already");
}

TEST(ConfigurationTest, IsoTpSettingOfAFrameNodeIsRefused)
{
    const std::string node = "[[node]]\nname = \"a\"\nprotocol = \"frame\"\n";
    for (const std::string setting : {"minimal_dlc = true", "block_size = 1", "separation_time_us = 100",
                                      "wait_frames = 1", "fault = \"silent\"", "addressing = \"extended\""}) {
        const std::string key = setting.substr(0, setting.find(' '));
        EXPECT_EQ(mistakesIn(node + setting + "\n"), "bench.toml:4:" + std::to_string(key.size() + 4) + ": \"" +
                                                         key + "\" is for protocol = \"iso_tp\" only");
    }
}

TEST(ConfigurationTest, AddressWithoutExtendedAddressingIsRefused)
{
    for (const std::string key : {"address", "peer_address"}) {
        const std::string text = "[[node]]\nname = \"a\"\n" + key + " = 0x10\n";
        EXPECT_EQ(mistakesIn(text), "bench.toml:3:" + std::to_string(key.size() + 4) + ": \"" + key +
                                        "\" needs addressing = \"extended\"");
        EXPECT_EQ(mistakesIn(text + "addressing = \"extended\"\n"), "");
    }
}

TEST(ConfigurationTest, RequestLongerThanAnythingThatArrivesIsRefused)
{
    EXPECT_EQ(mistakesIn("[[node]]\nname = \"a\"\nprotocol = \"frame\"\n"
                         "[[node.answer]]\nrequest = \"001122334455667788\"\nresponse = \"00\"\n"),
              "bench.toml:5:11: a request of 9 bytes never arrives; it has at most 8");
}

TEST(ConfigurationTest, AnswerBehindOneThatFitsTheSameRequestsIsRefused)
{
    const auto mistakesOf = [](const std::string& first, const std::string& second) {
        return mistakesIn("[[node]]\nname = \"a\"\n[[node.answer]]\n" + first + "\necho = true\n[[node.answer]]\n" +
                          second + "\necho = true\n");
    };
    const std::string refusal = ": this answer is never given: one above it fits the same requests";
    EXPECT_EQ(mistakesOf("request = \"22\"", "request = \"22 F1\""), "bench.toml:7:11" + refusal);
    EXPECT_EQ(mistakesOf("request = \"22\"", "request = \"22\""), "bench.toml:7:11" + refusal);
    EXPECT_EQ(mistakesOf("request = \"22 00\"\nmask = \"FF 00\"", "request = \"22 F1\""),
              "bench.toml:8:11" + refusal);
    EXPECT_EQ(mistakesOf("request = \"22 F1\"", "request = \"22\""), "");
    EXPECT_EQ(mistakesOf("request = \"22 F1\"", "request = \"22 00\"\nmask = \"FF 00\""), "");
    EXPECT_EQ(mistakesOf("request = \"22\"", "request = \"3E\""), "");
    EXPECT_EQ(mistakesOf("request = \"\"", "request = \"3E\""), "bench.toml:4:11: a request has at least one byte");
}

TEST(ConfigurationTest, SettingOfAFailingWriteAtAnotherFaultIsRefused)
{
    const std::string event = "[[faults.event]]\nkind = \"clock_lost\"\ntarget = \"fpgab\"\n";
    EXPECT_EQ(mistakesIn(event + "count = 2\n"), "bench.toml:4:9: \"count\" is for kind = \"write_fails\" only");
    EXPECT_EQ(mistakesIn(event + "error = \"ENOSPC\"\n"),
              "bench.toml:4:9: \"error\" is for kind = \"write_fails\" only");
}

TEST(ConfigurationTest, WaitBeyondAnHourIsRefused)
{
    const std::string node = "[[node]]\nname = \"a\"\n";
    const std::string range = " is a whole number from 0 to 3600000";
    EXPECT_EQ(mistakesIn(node + "delay_ms = 3600000\n"), "");
    EXPECT_EQ(mistakesIn(node + "delay_ms = 3600001\n"), "bench.toml:3:12: \"delay_ms\"" + range);
    EXPECT_EQ(mistakesIn(node + "wait_interval_ms = 4294967295\n"),
              "bench.toml:3:20: \"wait_interval_ms\"" + range);
    EXPECT_EQ(mistakesIn("[queues]\nstall_limit_ms = 4294967295\n"), "bench.toml:2:18: \"stall_limit_ms\"" + range);
}

TEST(ConfigurationTest, SecondPeerOfAProgramIsRefused)
{
    Configuration made;
    made.peers.assign(2, {.name = "a", .port = 5000});
    EXPECT_EQ(check(made), (std::vector<std::string>{"peer[1].name: there is a peer \"a\" already",
                                                     "peer[1].port: the peer \"a\" has this address and port "
                                                     "already"}));
}

TEST(ConfigurationTest, RecordOfAProgramIsCheckedWithTheSameSentences)
{
    Configuration made;
    EXPECT_TRUE(check(made).empty());
    made.wiring.buses = {{1, 1}};
    made.nodes.push_back({});
    made.nodes[0].answers.push_back({});
    made.faults.events.push_back({});
    EXPECT_EQ(check(made), (std::vector<std::string>{
                               "wiring.buses: channel 1 is wired twice", "node[0].name: a node needs a name",
                               "node[0].answer[0].request: a request has at least one byte",
                               "node[0].answer[0].response: a response has 1 to 4095 bytes, not 0",
                               "faults.event[0].target: this board has no device \"\" to which that can happen"}));
}

TEST(ConfigurationTest, FileIsReadAndAMissingOneReported)
{
    const TemporaryDirectory directory;
    EXPECT_EQ(readConfigurationFile(directory.write("a.toml", "[board]\ntype = 16\n")).board.boardType, 16U);
    try {
        readConfigurationFile(directory.path("none.toml"));
        FAIL() << "a missing file was read";
    } catch (const std::system_error& error) {
        EXPECT_EQ(error.code().value(), ENOENT);
        EXPECT_EQ(error.what(), directory.path("none.toml") + ": No such file or directory");
    }
    try {
        readConfigurationFile(directory.path(""));
        FAIL() << "a directory was read";
    } catch (const std::system_error& error) {
        EXPECT_EQ(error.code().value(), EISDIR);
        EXPECT_EQ(std::string(error.what()).rfind(directory.path(""), 0), 0U) << error.what();
    }
}

TEST(ConfigurationTest, ReferenceInTheDocumentsIsThatOfTheCode)
{
    std::ifstream file(CONFIGURATION_REFERENCE);
    const std::string document{std::istreambuf_iterator<char>(file), {}};
    const std::string begin = "<!-- keys: begin -->\n";
    const std::string end = "<!-- keys: end -->";
    const size_t from = document.find(begin);
    ASSERT_NE(from, std::string::npos) << "docs/configuration.md has no place for the keys";
    const size_t first = from + begin.size();
    EXPECT_EQ(document.substr(first, document.find(end) - first), markdownReference());
}

TEST(ConfigurationTest, ReferenceAsJsonHasEveryKeyOfATable)
{
    const std::string reference = jsonReference();
    const std::string faults =
        R"({"table":"faults","repeated":false,"keys":[{"key":"seed","type":"number","least":0,"most":4294967295,)"
        R"("default":1,"meaning":"draws the times; the same seed gives the same times"}]})";
    EXPECT_NE(reference.find("," + faults + ","), std::string::npos) << reference;
    EXPECT_TRUE(reference.starts_with(R"({"tables":[{"table":"board",)")) << reference;
    EXPECT_TRUE(reference.ends_with("]}]}")) << reference;
}

TEST(NearestNameTest, FewestTypingErrorsWin)
{
    const std::array<std::string_view, 3> names{"type", "device_code", "can_fd_device"};
    EXPECT_EQ(nearestName("tpye", names), "type");
    EXPECT_EQ(nearestName("device", names), "device_code");
    EXPECT_EQ(nearestName("", names), "type");
    EXPECT_EQ(nearestName(std::string(100000, 'x'), names), "type");
    EXPECT_EQ(nearestName("x", {}), "");
}

TEST(HexBytesTest, PairsWithAndWithoutSeparatorsAreRead)
{
    EXPECT_EQ(parseHexBytes("22F190"), (Bytes{0x22, 0xF1, 0x90}));
    EXPECT_EQ(parseHexBytes("22 f1.90 "), (Bytes{0x22, 0xF1, 0x90}));
    EXPECT_EQ(parseHexBytes(""), Bytes());
    EXPECT_EQ(formatHexBytes(Bytes{0x22, 0x0F}), "22 0F");
    for (const char* text : {"2", "2 2", "0x22", "GG", "-1", "22,33"}) {
        EXPECT_FALSE(parseHexBytes(text)) << text;
    }
}

TEST(ErrorNameTest, NamesAreThoseOfTheSystem)
{
    EXPECT_EQ(errorNumberOf("EIO"), EIO);
    EXPECT_EQ(errorNumberOf("ENOSPC"), ENOSPC);
    EXPECT_EQ(errorNumberOf("ETIMEDOUT"), ETIMEDOUT);
    EXPECT_FALSE(errorNumberOf("eio"));
    for (const std::string_view name : errorNames()) {
        EXPECT_TRUE(errorNumberOf(name)) << name;
    }
}

} // namespace config
