#include "vqproc/Ipv4Text.h"

#include <arpa/inet.h>

#include <bit>

namespace vqhost {

std::optional<in_addr> parseIpv4(const std::string& text)
{
    in_addr address = {};
    // A text with an embedded zero would be read up to there only.
    if (text.find('\0') != std::string::npos || inet_pton(AF_INET, text.c_str(), &address) != 1) {
        return std::nullopt;
    }
    return address;
}

std::string ipv4Text(in_addr address)
{
    char text[INET_ADDRSTRLEN] = {};
    inet_ntop(AF_INET, &address, text, sizeof text);
    return text;
}

std::optional<uint8_t> parsePrefixLength(const std::string& maskText)
{
    const std::optional<in_addr> parsed = parseIpv4(maskText);
    if (!parsed) {
        return std::nullopt;
    }
    const uint32_t mask = ntohl(parsed->s_addr);
    const int length = std::countl_one(mask);
    if (std::popcount(mask) != length) {
        return std::nullopt;
    }
    return static_cast<uint8_t>(length);
}

bool isHostAddress(in_addr address)
{
    constexpr uint32_t FIRST_MULTICAST = 224;
    const uint32_t firstByte = ntohl(address.s_addr) >> 24;
    return firstByte != 0 && firstByte < FIRST_MULTICAST;
}

} // namespace vqhost
