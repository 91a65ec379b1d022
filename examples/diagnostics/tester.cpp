// A diagnostic tester: sends requests of 2, 20, 3 and 4095 bytes to an ECU and compares the answers. It finds the
// logger as every program does: by VLOGGER, else where the user's own virtual logger listens.

#include "AnswerBox.h"

#include <CanTP_ISO_Interface.h>
#include <LibraryLines.h>

#include <CLI/CLI.hpp>

#include <exception>
#include <iomanip>
#include <iostream>
#include <numeric>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

namespace {

using Bytes = std::vector<uint8_t>;

constexpr unsigned REQUEST_ID = 0x7E0;
constexpr unsigned ANSWER_ID = 0x7E8;
/// Far above what an ECU needs that is there.
constexpr std::chrono::seconds PATIENCE{10};

struct Exchange
{
    std::string_view name;
    Bytes request;
    Bytes answer; ///< the right one
};

Bytes joined(Bytes bytes, std::string_view text)
{
    bytes.insert(bytes.end(), text.begin(), text.end());
    return bytes;
}

std::vector<Exchange> exchanges()
{
    constexpr std::string_view VIN = "TESTVEH1C1E000042";
    constexpr size_t LONGEST_BYTES = 4095;
    Bytes longest(LONGEST_BYTES);
    std::iota(longest.begin(), longest.end(), uint8_t{0xBA});
    return {{"tester present", {0x3E, 0x00}, {0x7E, 0x00}},
            {"write VIN", joined({0x2E, 0xF1, 0x90}, VIN), {0x6E, 0xF1, 0x90}},
            {"read VIN", {0x22, 0xF1, 0x90}, joined({0x62, 0xF1, 0x90}, VIN)},
            {"echo", longest, longest}};
}

/// The bytes in hex; of many the first.
std::string textOf(const Bytes& bytes)
{
    constexpr size_t SHOWN = 4;
    std::ostringstream text;
    text << std::hex << std::uppercase << std::setfill('0');
    for (size_t i = 0; i < bytes.size() && i < SHOWN; ++i) {
        text << (i == 0 ? "" : " ") << std::setw(2) << static_cast<unsigned>(bytes[i]);
    }
    if (bytes.size() > SHOWN) {
        text << std::dec << " ... (" << bytes.size() << " bytes)";
    }
    return text.str();
}

/// @return true if the right answer came
bool perform(const Exchange& exchange, CanTP_ISO_Interface& ecu, AnswerBox& answers, std::ostream& report)
{
    constexpr int NAME_WIDTH = 16;
    constexpr int BYTES_WIDTH = 28;
    report << std::left << std::setw(NAME_WIDTH) << exchange.name << std::setw(BYTES_WIDTH)
           << textOf(exchange.request) << "  " << std::flush;
    if (ecu.sendDefaultID(exchange.request.data(), exchange.request.size()) != 0) {
        report << "not sent; the library's lines say why\n";
        return false;
    }
    const std::optional<Bytes> answer = answers.await(PATIENCE);
    if (!answer) {
        report << "no answer within " << PATIENCE.count()
               << " s; is the ECU running, on the bus of this channel, and does VLOGGER name its socket?\n";
        return false;
    }
    report << textOf(*answer) << (*answer == exchange.answer ? "" : "  wrong, expected " + textOf(exchange.answer))
           << '\n';
    return *answer == exchange.answer;
}

int testEcu(unsigned char channel, std::ostream& report)
{
    AnswerBox answers; // before the interface: it has to outlive it
    CanTP_ISO_Interface ecu(channel, {ANSWER_ID}, REQUEST_ID);
    ecu.callbacks.insert(&answers);
    ecu.configure();
    for (const Exchange& exchange : exchanges()) {
        if (!perform(exchange, ecu, answers, report)) {
            return 1; // a late answer would be taken for that of the next request
        }
    }
    return 0;
}

int run(int argc, char** argv)
{
    constexpr int WRONG_USAGE = 2;

    unsigned char channel = 0;
    std::string linesFile;
    CLI::App app("Sends diagnostic requests to an ECU by ISO-TP and compares the answers.");
    app.add_option("--channel", channel, "CAN channel on whose bus the ECU is (default 0)");
    app.add_option("--lines", linesFile, "write the library's diagnostic lines to FILE instead of standard output")
        ->type_name("FILE");
    app.footer("Example:\n  VLOGGER=/tmp/bench/socket tester --lines library.txt\n\n"
               "Exit codes: 0 every answer is right, 1 one is not or something failed, 2 wrong usage.");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : WRONG_USAGE;
    }
    std::ostream report(std::cout.rdbuf());
    if (!linesFile.empty()) {
        moveLibraryLines(linesFile);
    }
    return testEcu(channel, report);
}

} // namespace

int main(int argc, char** argv)
{
    try {
        return run(argc, argv);
    } catch (const std::exception& error) {
        std::cerr << "tester: " << error.what() << '\n';
        return 1;
    }
}
