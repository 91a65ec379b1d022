#include "SystemTest.h"

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <sstream>
#include <string_view>

SystemTest::SystemTest()
{
    ::setenv("VLOGGER", socketPath.c_str(), 1);
}

SystemTest::~SystemTest()
{
    dispatcher().setOffline();
    logger.reset();
}

vlogger::Options SystemTest::optionsFor(const wire::Board& board) const
{
    vlogger::Options options;
    options.board = board;
    options.socketPath = socketPath;
    options.stallLimit = std::chrono::minutes(1);
    return options;
}

void SystemTest::startLogger(const vlogger::Options& options)
{
    logger = std::make_unique<vlogger::VirtualLogger>(options);
}

void SystemTest::goOnline(const std::vector<TestInterface*>& interfaces)
{
    for (TestInterface* const interface : interfaces) {
        ASSERT_EQ(interface->configure(), 0);
    }
    dispatcher().setOnline();
    for (TestInterface* const interface : interfaces) {
        ASSERT_EQ(interface->callback.nextStatus(), 1);
    }
    for (TestInterface* const interface : interfaces) {
        ASSERT_EQ(interface->configure(), 0);
    }
}

void SystemTest::goOffline(const std::vector<TestInterface*>& interfaces)
{
    dispatcher().setOffline();
    for (TestInterface* const interface : interfaces) {
        ASSERT_EQ(interface->callback.nextStatus(), 2);
    }
}

Census SystemTest::settledCensus() const
{
    // Requests about the board have ended at our side; two turns of the loop later the logger has noticed it.
    for (int turn = 0; logger && turn < 2; ++turn) {
        static_cast<void>(logger->statistics());
    }
    return Census::take();
}

uint64_t systemTimeUs()
{
    timespec now{};
    ::clock_gettime(CLOCK_REALTIME, &now);
    return static_cast<uint64_t>(now.tv_sec) * 1'000'000 + static_cast<uint64_t>(now.tv_nsec) / 1000;
}

std::vector<std::string> withoutDescriptors(std::vector<std::string> lines)
{
    constexpr std::string_view MARK = ", fd=";
    for (std::string& line : lines) {
        const size_t at = line.rfind(MARK);
        if (at != std::string::npos &&
            line.find_first_not_of("0123456789", at + MARK.size()) == std::string::npos) {
            line.resize(at + MARK.size());
            line += 'N';
        }
    }
    return lines;
}

std::vector<std::string> linesOf(const std::string& text)
{
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line);
    }
    return lines;
}

size_t countOf(const std::vector<std::string>& lines, const std::string& line)
{
    return static_cast<size_t>(std::count(lines.begin(), lines.end(), line));
}
