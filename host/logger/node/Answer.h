#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

namespace vlogger {

using Bytes = std::vector<uint8_t>;

/// What a node answers to a request.
struct Answer
{
    Bytes request;     ///< compared with the beginning of what arrives; empty: fits everything
    Bytes mask;        ///< bits of `request` that count; empty: all
    Bytes response;    ///< 1 to 4095 bytes, of a plain frame 1 to 8; empty with `echo`
    bool echo = false; ///< the answer is what has arrived
};

/// The first answer whose request fits.
/// @return null if none does
const Answer* findAnswer(std::span<const Answer> answers, std::span<const uint8_t> arrived);

/// What is sent as an answer to `arrived`.
Bytes responseTo(const Answer& answer, std::span<const uint8_t> arrived);

/// Makes sure that a node can send every response. Whoever builds a node has this from the configuration's check; a
/// program that fills in the options itself has not.
/// @param mostBytes  of one response
/// @throws std::invalid_argument, with the number of the answer, counted from 0
void requireSendable(std::span<const Answer> answers, size_t mostBytes);

/// Makes sure that a time of a node's options lies in the future, and less than 50 days away.
/// @throws std::invalid_argument with the name of the option
void requireWait(std::string_view name, std::chrono::milliseconds time);

/// What every control unit with diagnostics answers: tester present (3E 00) and the vehicle identification
/// number (22 F1 90), as ISO 14229-1 has them.
std::vector<Answer> diagnosticAnswers(std::string_view vehicleIdentificationNumber);

} // namespace vlogger
