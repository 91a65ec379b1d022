#include <vlogger/StatTable.h>

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

namespace tool {

namespace {

wire::StageReport reportAt(uint64_t uptimeUs, std::vector<wire::StageCounts> stages)
{
    return {.uptimeUs = uptimeUs, .stages = std::move(stages)};
}

std::vector<std::string> linesOf(const std::string& text)
{
    std::istringstream stream(text);
    std::vector<std::string> lines;
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line);
    }
    return lines;
}

/// The one bus of two reports that are a second apart.
std::string busLine(uint64_t framesPerSecond, uint64_t dropped = 0, bool isColoured = false)
{
    const wire::StageReport before = reportAt(0, {{.name = "can0"}});
    const wire::StageReport report =
        reportAt(1000000, {{.name = "can0", .in = framesPerSecond, .dropped = dropped}});
    return linesOf(statTable(report, &before, isColoured)).at(1);
}

std::string barOf(uint64_t framesPerSecond)
{
    const std::string line = busLine(framesPerSecond);
    const size_t begin = line.find('|');
    return line.substr(begin, line.rfind('|') + 1 - begin);
}

} // namespace

TEST(StatTableTest, TotalsStandInTheOrderOfThePath)
{
    const wire::StageReport report =
        reportAt(1, {{wire::Stage::BUS, "can0 can1", 1, 2, 3, 4}, {wire::Stage::STREAM, "opener 1", 5, 6, 7, 8}});
    EXPECT_EQ(statTable(report, nullptr, false),
              "stage         name                              in         out     waiting     dropped\n"
              "bus           can0 can1                          1           2           3           4\n"
              "stream        opener 1                           5           6           7           8\n");
}

TEST(StatTableTest, WithoutAStageThereIsTheHeadAlone)
{
    EXPECT_EQ(linesOf(statTable(reportAt(1, {}), nullptr, false)).size(), 1U);
}

TEST(StatTableTest, RateIsThatSinceTheReportBefore)
{
    const wire::StageReport before = reportAt(1000000, {{.name = "can0", .in = 100}});
    const wire::StageReport report = reportAt(3000000, {{.name = "can0", .in = 2100}});
    EXPECT_NE(statTable(report, &before, false).find("        1000  |"), std::string::npos);
}

TEST(StatTableTest, StageThatIsNewOrBeganAgainCountsFromZero)
{
    const wire::StageReport before = reportAt(0, {{.name = "can0", .in = 100}});
    const wire::StageReport report = reportAt(1000000, {{.name = "can2", .in = 7}, {.name = "can0", .in = 30}});
    const std::vector<std::string> lines = linesOf(statTable(report, &before, false));
    EXPECT_NE(lines.at(1).find("           7  |"), std::string::npos) << lines[1];
    EXPECT_NE(lines.at(2).find("           0  |"), std::string::npos) << lines[2];
}

TEST(StatTableTest, TwoReportsOfOneMomentHaveNoRate)
{
    const wire::StageReport report = reportAt(5, {{.name = "can0", .in = 100}});
    EXPECT_NE(statTable(report, &report, false).find("           0  |"), std::string::npos);
}

TEST(StatTableTest, BarGrowsByTheFactor)
{
    EXPECT_EQ(barOf(0), "|                    |");
    EXPECT_EQ(barOf(1), "|#                   |");
    EXPECT_EQ(barOf(10000), "|##########          |");
    EXPECT_EQ(barOf(1000000), "|####################|");
    EXPECT_EQ(barOf(100000000), "|####################|");
}

TEST(StatTableTest, StageThatLosesFramesIsMarked)
{
    EXPECT_EQ(busLine(1, 0).find("LOSS"), std::string::npos);
    EXPECT_TRUE(busLine(1, 1).ends_with("  LOSS"));
    EXPECT_EQ(busLine(1, 1).find('\033'), std::string::npos);
    EXPECT_NE(busLine(1, 1, true).find("\033[31m           1\033[0m"), std::string::npos);
}

TEST(StatTableTest, LossOfLongAgoIsNotMarked)
{
    const wire::StageReport before = reportAt(0, {{.name = "can0", .dropped = 5}});
    const wire::StageReport report = reportAt(1000000, {{.name = "can0", .dropped = 5}});
    EXPECT_EQ(statTable(report, &before, true).find("LOSS"), std::string::npos);
}

TEST(StatTableTest, LinesFitTheTerminalFromEightyColumnsOn)
{
    const wire::StageReport before = reportAt(0, {});
    const wire::StageReport report = reportAt(1000000, {{.stage = wire::Stage::DEVICE_QUEUE,
                                                         .name = "can0 can1 can2 can3 can4 can5",
                                                         .in = 123456789,
                                                         .out = 123456789,
                                                         .waiting = 123456789,
                                                         .dropped = 123456789}});
    for (const size_t columns : {80U, 90U, 95U, 96U, 97U, 110U, 200U}) {
        for (const std::string& line : linesOf(statTable(report, &before, false, layoutFor(columns)))) {
            EXPECT_LE(line.size(), columns) << line;
        }
        for (const std::string& line : linesOf(statTable(report, nullptr, false, layoutFor(columns)))) {
            EXPECT_LE(line.size(), columns) << line;
        }
    }
}

TEST(StatTableTest, NarrowTerminalHasTheRateInPlaceOfTheTotals)
{
    const wire::StageReport before = reportAt(0, {});
    const wire::StageReport report = reportAt(1000000, {{.name = "can0 can1", .in = 10000, .out = 20000}});
    EXPECT_EQ(statTable(report, &before, false, layoutFor(80)),
              "stage         name                waiting   dropped  frames/s\n"
              "bus           can0 can1                 0         0     10000  |####     |\n");
    EXPECT_EQ(statTable(report, nullptr, false, layoutFor(80)),
              "stage         name                     in       out   waiting   dropped\n"
              "bus           can0 can1             10000     20000         0         0\n");
}

TEST(StatTableTest, NumberThatIsTooLongForItsColumnKeepsABlankBeforeIt)
{
    const wire::StageReport report = reportAt(1, {{.name = "can0", .in = 12345678901, .out = 12345678901}});
    EXPECT_NE(statTable(report, nullptr, false, layoutFor(80)).find(" 12345678901 12345678901 "),
              std::string::npos);
}

TEST(StatTableTest, JsonHasEveryNumber)
{
    EXPECT_EQ(
        statJson(reportAt(9, {{wire::Stage::BUS, "a\"b", 1, 2, 3, 4}, {wire::Stage::READER, "", 5, 6, 7, 8}})),
        R"({"uptime_us":9,"stages":[{"stage":"bus","name":"a\"b","in":1,"out":2,"waiting":3,"dropped":4},)"
        R"({"stage":"reader","name":"","in":5,"out":6,"waiting":7,"dropped":8}]})");
}

} // namespace tool
