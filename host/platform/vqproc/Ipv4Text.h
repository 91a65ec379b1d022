#pragma once

#include <cstdint>
#include <netinet/in.h>
#include <optional>
#include <string>

namespace vqhost {

/// An IPv4 address in network byte order from its dotted form; nothing if the text is anything else.
std::optional<in_addr> parseIpv4(const std::string& text);

/// The dotted form.
std::string ipv4Text(in_addr address);

/// Number of leading one bits of a dotted mask; nothing if the text is no mask, or one with gaps.
std::optional<uint8_t> parsePrefixLength(const std::string& maskText);

/// True for an address that one host can own: neither 0.x, nor multicast, reserved or broadcast.
bool isHostAddress(in_addr address);

} // namespace vqhost
