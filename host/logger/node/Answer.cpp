#include <logger/node/Answer.h>

#include <algorithm>
#include <limits>
#include <stdexcept>
#include <string>

namespace vlogger {

namespace {

bool fits(const Answer& answer, std::span<const uint8_t> arrived)
{
    if (arrived.size() < answer.request.size()) {
        return false;
    }
    for (size_t i = 0; i < answer.request.size(); ++i) {
        const uint8_t mask = i < answer.mask.size() ? answer.mask[i] : 0xFF;
        if (((arrived[i] ^ answer.request[i]) & mask) != 0) {
            return false;
        }
    }
    return true;
}

} // namespace

const Answer* findAnswer(std::span<const Answer> answers, std::span<const uint8_t> arrived)
{
    const auto found = std::ranges::find_if(answers, [&](const Answer& answer) { return fits(answer, arrived); });
    return found == answers.end() ? nullptr : &*found;
}

Bytes responseTo(const Answer& answer, std::span<const uint8_t> arrived)
{
    return answer.echo ? Bytes(arrived.begin(), arrived.end()) : answer.response;
}

void requireSendable(std::span<const Answer> answers, size_t mostBytes)
{
    for (size_t i = 0; i < answers.size(); ++i) {
        const size_t bytes = answers[i].response.size();
        if (!answers[i].echo && (bytes == 0 || bytes > mostBytes)) {
            throw std::invalid_argument("answer " + std::to_string(i) + ": a response has 1 to " +
                                        std::to_string(mostBytes) + " bytes, not " + std::to_string(bytes));
        }
    }
}

void requireWait(std::string_view name, std::chrono::milliseconds time)
{
    constexpr int64_t LONGEST_MS = std::numeric_limits<uint32_t>::max();
    if (time.count() < 0 || time.count() > LONGEST_MS) {
        throw std::invalid_argument(std::string(name) + " has 0 to " + std::to_string(LONGEST_MS) + " ms, not " +
                                    std::to_string(time.count()));
    }
}

std::vector<Answer> diagnosticAnswers(std::string_view vehicleIdentificationNumber)
{
    Bytes identification{0x62, 0xF1, 0x90};
    identification.insert(identification.end(), vehicleIdentificationNumber.begin(),
                          vehicleIdentificationNumber.end());
    return {{.request = {0x3E, 0x00}, .mask = {}, .response = {0x7E, 0x00}},
            {.request = {0x22, 0xF1, 0x90}, .mask = {}, .response = std::move(identification)}};
}

} // namespace vlogger
