#include <vqutil/SocketAddress.h>

#include "vqutil/TextForm.h"

#include <arpa/inet.h>

std::ostream& operator<<(std::ostream& stream, const sockaddr_in& address)
{
    if (address.sin_family != AF_INET) {
        return vqhost::writeText(stream, "family " + vqhost::decimal(address.sin_family));
    }
    char dotted[INET_ADDRSTRLEN];
    inet_ntop(AF_INET, &address.sin_addr, dotted, sizeof(dotted));
    return vqhost::writeText(stream, std::string(dotted) + ":" + vqhost::decimal(ntohs(address.sin_port)));
}
