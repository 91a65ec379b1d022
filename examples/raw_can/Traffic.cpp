#include "Traffic.h"

#include <vqio/PIE.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <stdexcept>

cantype_t typeOf(const capture::CandumpFrame& frame)
{
    if (frame.isFd) {
        return frame.isExtended ? CAN_FD_EXTENDED : CAN_FD_STANDARD;
    }
    return frame.isExtended ? CAN_EXTENDED : CAN_STANDARD;
}

RowKey rowOf(const SenderKey& sender)
{
    return {sender.channel, isExtendedType(sender.type) ? sender.id | EXTENDED_ID_BIT : sender.id};
}

Traffic surveyLog(const std::string& file, unsigned channelCount)
{
    std::ifstream stream(file);
    if (!stream) {
        throw std::runtime_error("cannot open " + file + ": " + std::strerror(errno));
    }
    Traffic traffic;
    capture::CandumpReader reader(stream);
    capture::CandumpFrame frame;
    // Every interface gets its pair, also beyond the board's, so that the complaint can name the whole number.
    std::map<std::string, unsigned> interfaces;
    try {
        while (reader.next(frame)) {
            const auto number = static_cast<unsigned>(interfaces.size());
            const unsigned channel = 2 * interfaces.try_emplace(frame.interfaceName, number).first->second;
            if (frame.kind == capture::FrameKind::REMOTE) {
                ++traffic.remoteFrames;
            } else if (frame.kind == capture::FrameKind::ERROR) {
                ++traffic.errorFrames;
            } else if (channel + 1 < channelCount) {
                ++traffic.frames;
                traffic.senders.insert({static_cast<uint8_t>(channel), frame.id, typeOf(frame)});
            }
        }
    } catch (const capture::CandumpError& error) {
        throw std::runtime_error(
            file + ": " + error.what() +
            ". Each line has to read (seconds.micros) interface id#data, as candump -L writes it.");
    }
    if (interfaces.size() > channelCount / 2) {
        throw std::runtime_error(file + " has " + std::to_string(interfaces.size()) +
                                 " interfaces; the limit of this board is " + std::to_string(channelCount / 2) +
                                 ", one pair of its " + std::to_string(channelCount) +
                                 " channels each. Leave some out, or use a board with more channels.");
    }
    if (traffic.frames == 0) {
        throw std::runtime_error(file + " holds no data frame to send");
    }
    for (const auto& [name, number] : interfaces) {
        traffic.channels[name] = static_cast<uint8_t>(2 * number);
    }
    return traffic;
}

unsigned boardChannelCount()
{
    constexpr unsigned PLAIN_BOARD_CHANNELS = 14;
    constexpr unsigned ALL_CHANNELS = 256;

    const PIE board;
    const bool isCombined = board.getBoardType() == 16 || board.getBoardType() == 112;
    const bool hasExtension = board.getDeviceCode() == PIE::DEVICE_EXTENSION_BOARD;
    return isCombined || hasExtension ? ALL_CHANNELS : PLAIN_BOARD_CHANNELS;
}
