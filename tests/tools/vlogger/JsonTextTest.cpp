#include <vlogger/FrameText.h>
#include <vlogger/JsonText.h>

#include <gtest/gtest.h>

namespace tool {

TEST(JsonTextTest, EveryFieldStandsInTheObject)
{
    capture::CandumpFrame frame = parseFrame("1F334455#11A2");
    frame.timestampUs = 1700000000000250;
    frame.interfaceName = "can3";
    EXPECT_EQ(jsonOf(frame, true),
              R"({"time_us":1700000000000250,"channel":"can3","direction":"tx","id":523453525,)"
              R"("extended":true,"fd":false,"remote":false,"data":"11A2"})");
}

TEST(JsonTextTest, FrameWithoutBytesHasEmptyData)
{
    EXPECT_EQ(jsonOf(parseFrame("123#R"), false), R"({"time_us":0,"channel":"can0","direction":"rx","id":291,)"
                                                  R"("extended":false,"fd":false,"remote":true,"data":""})");
}

} // namespace tool
