#include "vqproc/AddedAddresses.h"

#include "vqproc/AddressProbe.h"
#include "vqproc/Ipv4Text.h"
#include "vqproc/RouteSocket.h"
#include "vqutil/ErrorLine.h"

#include <net/if.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <system_error>
#include <utility>

namespace vqhost {

namespace {

std::string errorText(int error)
{
    return std::generic_category().message(error);
}

} // namespace

AddedAddresses& AddedAddresses::instance()
{
    static auto* const addresses = new AddedAddresses;
    return *addresses;
}

AddedAddresses::AddedAddresses() : owner(getpid())
{
    std::atexit([] { instance().removeAllAtExit(); });
}

std::string AddedAddresses::add(const std::string& interfaceName, in_addr address, uint8_t prefixLength)
try {
    // First, because without a free descriptor the name would not be found, and no reason given.
    RouteSocket route;
    const unsigned index = if_nametoindex(interfaceName.c_str());
    if (index == 0) {
        return "there is no interface " + interfaceName;
    }
    const MutexLock lock(mutex);
    if (exiting || getpid() != owner) {
        return "the process that could take it back is ending or is another one";
    }
    // An interface of this name that has gone has taken its addresses along.
    std::erase_if(added, [&](const added_t& entry) {
        return entry.interfaceName == interfaceName && entry.interfaceIndex != index;
    });
    for (added_t& entry : added) {
        if (entry.interfaceIndex == index && entry.address.s_addr == address.s_addr) {
            ++entry.requests;
            return {};
        }
    }
    return addNew(route, {.interfaceName = interfaceName,
                          .interfaceIndex = index,
                          .address = address,
                          .prefixLength = prefixLength,
                          .label = addressLabel(interfaceName),
                          .requests = 1,
                          .mark = OwnershipMark(index, address)});
} catch (const std::system_error& error) {
    return error.what();
}

std::string AddedAddresses::addNew(RouteSocket& route, added_t request)
{
    removeLeftovers(route, request);
    for (const interfaceAddress_t& present : route.addresses()) {
        if (present.address.s_addr != request.address.s_addr) {
            continue;
        }
        if (present.interfaceIndex != request.interfaceIndex) {
            char name[IF_NAMESIZE] = {};
            if_indextoname(present.interfaceIndex, name);
            return std::string("this machine has it on ") + name;
        }
        if (isAddressLabel(present.label) && request.mark.isOwned()) {
            // Left behind by a process that died.
            request.prefixLength = present.prefixLength;
            request.label = present.label;
            added.push_back(std::move(request));
        }
        return {};
    }
    if (request.mark.error() == EADDRINUSE) {
        return "another process is adding or removing it";
    }
    if (!request.mark.isOwned()) {
        return "it cannot be marked as this process's: " + errorText(request.mark.error());
    }
    const probe_t probe = probeAddress(request.interfaceName, request.address);
    if (probe.result == ProbeResult::TAKEN) {
        return "the host " + probe.detail + " on the link uses it";
    }
    if (probe.result == ProbeResult::NOT_ASKED) {
        writeErrorLine("[WARNING] IPConfig: the link of " + request.interfaceName + " was not asked whether " +
                       ipv4Text(request.address) + " is in use: " + probe.detail);
    }
    const int error = route.add(request.interfaceIndex, request.address, request.prefixLength, request.label);
    if (error == EPERM) {
        return errorText(error) + " (the mode apply needs the capability CAP_NET_ADMIN)";
    }
    if (error != 0) {
        return errorText(error);
    }
    added.push_back(std::move(request));
    return {};
}

/// The wanted address stays if it is one of them; its mark is held already, by this process or a living other.
void AddedAddresses::removeLeftovers(RouteSocket& route, added_t& wanted)
{
    for (const interfaceAddress_t& present : route.addresses()) {
        const bool isWanted =
            present.interfaceIndex == wanted.interfaceIndex && present.address.s_addr == wanted.address.s_addr;
        if (isWanted || !isAddressLabel(present.label)) {
            continue;
        }
        const OwnershipMark mark(present.interfaceIndex, present.address);
        if (mark.isOwned()) {
            route.remove(present.interfaceIndex, present.address, present.prefixLength, present.label);
        }
    }
}

void AddedAddresses::remove(const std::string& interfaceName, in_addr address)
{
    const MutexLock lock(mutex);
    if (getpid() != owner) {
        return;
    }
    const auto entry = std::find_if(added.begin(), added.end(), [&](const added_t& candidate) {
        return candidate.interfaceName == interfaceName && candidate.address.s_addr == address.s_addr;
    });
    if (entry == added.end() || --entry->requests != 0) {
        return;
    }
    const added_t removed = std::move(*entry);
    added.erase(entry);
    try {
        RouteSocket route;
        removeFrom(route, removed);
    } catch (const std::system_error& error) {
        writeErrorLine("[ERROR] IPConfig: cannot take " + ipv4Text(address) + " off " + interfaceName + ": " +
                       error.what());
    }
}

void AddedAddresses::removeFrom(RouteSocket& route, const added_t& entry)
{
    const int error = route.remove(entry.interfaceIndex, entry.address, entry.prefixLength, entry.label);
    // Somebody else may have removed it, or the whole interface.
    if (error != 0 && error != EADDRNOTAVAIL && error != ENODEV) {
        writeErrorLine("[ERROR] IPConfig: cannot take " + ipv4Text(entry.address) + " off " + entry.interfaceName +
                       ": " + errorText(error));
    }
}

void AddedAddresses::removeAllAtExit()
{
    const MutexLock lock(mutex);
    if (getpid() != owner) {
        return; // a child that fork() made; the addresses are its parent's
    }
    exiting = true;
    if (added.empty()) {
        return;
    }
    try {
        RouteSocket route;
        for (const added_t& entry : added) {
            removeFrom(route, entry);
        }
    } catch (const std::system_error& error) {
        writeErrorLine(std::string("[ERROR] IPConfig: addresses stay behind: ") + error.what());
    }
    added.clear();
}

} // namespace vqhost
