#include <vqproc/IPConfig.h>

#include "endpoint/Endpoint.h"
#include "endpoint/LoggerRequest.h"
#include "vqproc/AddedAddresses.h"
#include "vqproc/Ipv4Text.h"
#include "vqutil/ErrorLine.h"

#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>

namespace {

constexpr const char* MODE_VARIABLE = "VQIPCONFIG";

enum class Mode
{
    CHECK,
    APPLY,
    ACCEPT,
};

Mode chosenMode()
{
    const char* const value = std::getenv(MODE_VARIABLE);
    const std::string_view text = value != nullptr ? value : "";
    if (text == "apply") {
        return Mode::APPLY;
    }
    if (text == "accept") {
        return Mode::ACCEPT;
    }
    if (!text.empty() && text != "check") {
        vqhost::writeErrorLine(std::string("[WARNING] IPConfig: ") + MODE_VARIABLE + " is \"" + value +
                               "\", which is none of check, apply and accept; taken for check");
    }
    return Mode::CHECK;
}

/// @return an empty text, or why this machine cannot bind the address
std::string tryToBind(in_addr address, int socketType)
{
    const int fd = socket(AF_INET, socketType | SOCK_CLOEXEC, 0);
    if (fd < 0) {
        return std::generic_category().message(errno);
    }
    sockaddr_in local = {}; // any free port
    local.sin_family = AF_INET;
    local.sin_addr = address;
    const int result = bind(fd, reinterpret_cast<const sockaddr*>(&local), sizeof local);
    const int error = errno;
    close(fd);
    if (result == 0) {
        return {};
    }
    return std::generic_category().message(error) + "; put it on an interface, or set " + MODE_VARIABLE +
           " to apply or accept";
}

bool isDottedOrEmpty(const std::string& text)
{
    return text.empty() || vqhost::parseIpv4(text).has_value();
}

/// @return an empty text, or why the texts of the record are no address to work with
std::string faultIn(const ethernetConfig_t& config, Mode mode)
{
    const std::optional<in_addr> address = vqhost::parseIpv4(config.loggerIp);
    if (!address) {
        return "it is no dotted IPv4 address";
    }
    // The wildcard address can be bound; nothing else outside the hosts' range can be anybody's.
    const bool isWildcard = address->s_addr == htonl(INADDR_ANY);
    if (!vqhost::isHostAddress(*address) && !(mode == Mode::CHECK && isWildcard)) {
        return "it is no address of a host";
    }
    if (mode == Mode::APPLY || !config.subnet.empty()) {
        if (!vqhost::parsePrefixLength(config.subnet)) {
            return "\"" + config.subnet + "\" is no subnet mask";
        }
    }
    if (!isDottedOrEmpty(config.gatewayIp)) {
        return "the gateway \"" + config.gatewayIp + "\" is no dotted IPv4 address";
    }
    return {};
}

/// True if the virtual logger plays another host that has the address. One that cannot be reached plays nothing.
bool isTakenByOrder(in_addr address)
{
    try {
        if (!vqhost::Endpoint::instance().isThere()) {
            return false;
        }
        vqhost::ask({.kind = wire::Kind::ADDRESS, .text = vqhost::ipv4Text(address)});
        return false;
    } catch (const std::system_error& error) {
        return error.code().value() == EADDRINUSE;
    }
}

std::string obtain(const ethernetConfig_t& config, bool udp, Mode mode)
{
    std::string fault = faultIn(config, mode);
    if (!fault.empty()) {
        return fault;
    }
    const in_addr address = *vqhost::parseIpv4(config.loggerIp);
    if (isTakenByOrder(address)) {
        return "the virtual logger's configuration names it as taken by another host";
    }
    if (mode == Mode::CHECK) {
        return tryToBind(address, udp ? SOCK_DGRAM : SOCK_STREAM);
    }
    return vqhost::AddedAddresses::instance().add(config, address, *vqhost::parsePrefixLength(config.subnet));
}

} // namespace

IPConfig* IPConfig::getInstance()
{
    struct HostIPConfig : IPConfig
    {
    };
    static IPConfig* const service = new HostIPConfig;
    return service;
}

bool IPConfig::configureIP(const ethernetConfig_t& config, bool udp)
{
    const Mode mode = chosenMode();
    if (mode == Mode::ACCEPT) {
        return true;
    }
    const std::string refusal = obtain(config, udp, mode);
    if (refusal.empty()) {
        return true;
    }
    vqhost::AddedAddresses::instance().noteRefusal(config);
    vqhost::writeErrorLine("[ERROR] IPConfig: refused " + config.loggerIp + " on " + config.interfaceName + ": " +
                           refusal);
    return false;
}

void IPConfig::removeIP(const ethernetConfig_t& config)
{
    // Whatever the mode is by now: only what was added can be found.
    vqhost::AddedAddresses::instance().remove(config);
}
