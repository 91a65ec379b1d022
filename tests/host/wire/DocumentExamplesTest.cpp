#include "WireBytes.h"

#include <wire/BusProtocol.h>
#include <wire/MessageRecord.h>
#include <wire/MonitorProtocol.h>
#include <wire/Protocol.h>
#include <wire/StageStatistics.h>
#include <wire/TraceRecord.h>

#include <gtest/gtest.h>

#include <array>
#include <cerrno>
#include <fstream>
#include <string>
#include <vector>

// The examples of the documents are what the encoders write.

using namespace wirebytes;

namespace {

/// The fenced blocks of a document that begin with bytes, one entry per block, its lines joined.
std::vector<Bytes> examplesIn(const std::string& document)
{
    std::ifstream file(DOCS_DIRECTORY "/" + document);
    EXPECT_TRUE(file) << document;
    std::vector<Bytes> examples;
    bool inside = false;
    for (std::string line; std::getline(file, line);) {
        if (line.starts_with("```")) {
            inside = !inside;
            if (inside) {
                examples.emplace_back();
            }
        } else if (inside) {
            const Bytes bytes = hex(line);
            examples.back().insert(examples.back().end(), bytes.begin(), bytes.end());
        }
    }
    std::erase(examples, Bytes());
    return examples;
}

Bytes encoded(const wire::CanRecord& record)
{
    std::array<uint8_t, wire::CAN_RECORD_MAX_BYTES> out;
    return bytesOf(std::span(out).first(wire::encode(record, out)));
}

Bytes monitored(const wire::CanRecord& record, bool isSent)
{
    std::array<uint8_t, wire::CAN_RECORD_MAX_BYTES> out;
    return bytesOf(std::span(out).first(wire::encodeMonitorFrame(record, isSent, out)));
}

Bytes registration()
{
    Bytes record;
    wire::encodeSystemRecord(wire::SYSTEM_RECORD_TYPE, 0, 19, "1 2 1 2024 diag", record, 0);
    return record;
}

Bytes request(wire::Kind kind, const std::string& text)
{
    return wire::encodeRequest({.kind = kind, .text = text});
}

Bytes reply(int errorNumber)
{
    return wire::encodeReply({.errorNumber = errorNumber, .body = {}});
}

} // namespace

TEST(DocumentExamplesTest, RecordsAreWhatTheEncoderWrites)
{
    wire::CanRecord received{.timestampUs = 1'000'000, .channel = 3, .id = 0x123, .lengthBytes = 3};
    received.payload[0] = 0x02;
    received.payload[1] = 0x3E;
    const wire::CanRecord sent{.channel = 2, .frameKind = 2, .type = 3, .id = 0x18DA00F1};

    EXPECT_EQ(examplesIn("records.md"), (std::vector<Bytes>{encoded(received), encoded(sent), registration()}));
}

TEST(DocumentExamplesTest, PacketsOfTheWireAreWhatTheEncoderWrites)
{
    const wire::CanRecord watched{.channel = 2, .frameKind = 2, .id = 0x7FF};
    const wire::StageReport report{.uptimeUs = 1'000'000,
                                   .stages = {{.stage = wire::Stage::BUS, .name = "can0 can1", .in = 1, .out = 1}}};

    EXPECT_EQ(examplesIn("wire.md"),
              (std::vector<Bytes>{
                  joined({request(wire::Kind::OPEN_READ, "/dev/vqlog-fpgab"), reply(ENOENT)}),
                  wire::encodeFault(EIO),
                  joined({monitored(watched, true), bytesOf(wire::encodeMonitorDropped(3))}),
                  joined({wire::encodeFinish(), reply(0)}),
                  wire::encodeStageReport(report),
                  joined({request(wire::Kind::ADDRESS, "192.168.1.7"), reply(EADDRINUSE)}),
              }));
}

TEST(DocumentExamplesTest, PacketsOfTheProcessBusAreWhatTheEncoderWrites)
{
    Bytes packet;
    const Bytes record = registration();
    ASSERT_TRUE(wire::appendBusMessage(packet, {.source = "diag", .destination = "TraceLogger", .record = record}));

    EXPECT_EQ(examplesIn("process-bus.md"), std::vector<Bytes>{packet});
}
