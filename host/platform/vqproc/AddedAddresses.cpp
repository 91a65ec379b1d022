#include "vqproc/AddedAddresses.h"

#include "vqproc/AddressProbe.h"
#include "vqproc/BoundSockets.h"
#include "vqproc/Ipv4Text.h"
#include "vqproc/RouteSocket.h"
#include "vqutil/ErrorLine.h"

#include <net/if.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <system_error>
#include <tuple>
#include <utility>

namespace vqhost {

namespace {

std::string errorText(int error)
{
    return std::generic_category().message(error);
}

/// Two records are one request if the texts that the service reads are equal.
bool isSameRequest(const ethernetConfig_t& one, const ethernetConfig_t& other)
{
    const auto texts = [](const ethernetConfig_t& record) {
        return std::tie(record.interfaceName, record.serverIp, record.loggerIp, record.subnet, record.gatewayIp);
    };
    return texts(one) == texts(other);
}

void tellOtherMask(const ethernetConfig_t& record, uint8_t present, uint8_t wanted)
{
    if (present != wanted) {
        writeErrorLine("[WARNING] IPConfig: " + record.loggerIp + " is on " + record.interfaceName +
                       " already and keeps its mask of " + std::to_string(present) + " bits; " +
                       std::to_string(wanted) + " were asked for");
    }
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

std::string AddedAddresses::add(const ethernetConfig_t& record, in_addr address, uint8_t prefixLength)
try {
    // First, because without a free descriptor the name would not be found, and no reason given.
    RouteSocket route;
    const std::string& interfaceName = record.interfaceName;
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
            tellOtherMask(record, entry.prefixLength, prefixLength);
            if (holder_t* const holder = holderOf(entry, record)) {
                // Granted again: the next removal is taken for that of a holder.
                holder->isRefusedSince = false;
                holder->isGivenUp = false;
                ++holder->grantsLeft;
            } else {
                entry.holders.push_back({.record = record});
            }
            return {};
        }
    }
    return addNew(route, {.interfaceName = interfaceName,
                          .interfaceIndex = index,
                          .address = address,
                          .prefixLength = prefixLength,
                          .label = addressLabel(interfaceName),
                          .holders = {{.record = record}},
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
        tellOtherMask(request.holders.front().record, present.prefixLength, request.prefixLength);
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

AddedAddresses::holder_t* AddedAddresses::holderOf(added_t& entry, const ethernetConfig_t& record)
{
    const auto holder = std::find_if(entry.holders.begin(), entry.holders.end(), [&](const holder_t& candidate) {
        return isSameRequest(candidate.record, record);
    });
    return holder == entry.holders.end() ? nullptr : &*holder;
}

void AddedAddresses::noteRefusal(const ethernetConfig_t& record)
{
    const MutexLock lock(mutex);
    for (added_t& entry : added) {
        if (holder_t* const holder = holderOf(entry, record)) {
            holder->isRefusedSince = true;
        }
    }
}

void AddedAddresses::remove(const ethernetConfig_t& record)
{
    const MutexLock lock(mutex);
    if (getpid() != owner) {
        return;
    }
    holder_t* holder = nullptr;
    const auto entry = std::find_if(added.begin(), added.end(), [&](added_t& candidate) {
        holder = holderOf(candidate, record);
        return holder != nullptr;
    });
    // The one that was refused last asks to be forgotten; it has nothing.
    if (entry == added.end() || std::exchange(holder->isRefusedSince, false)) {
        return;
    }
    // It stays in the list: another object with an equal record may give it up once more.
    holder->isGivenUp = true;
    holder->grantsLeft -= std::min(holder->grantsLeft, 1U);
    if (!std::ranges::all_of(entry->holders, &holder_t::isGivenUp)) {
        return;
    }
    const bool mayHaveOwner =
        std::ranges::any_of(entry->holders, [](const holder_t& one) { return one.grantsLeft != 0; });
    if (mayHaveOwner && isBoundInThisProcess(entry->address)) {
        return;
    }
    const added_t removed = std::move(*entry);
    added.erase(entry);
    try {
        RouteSocket route;
        removeFrom(route, removed);
    } catch (const std::system_error& error) {
        writeErrorLine("[ERROR] IPConfig: cannot take " + record.loggerIp + " off " + record.interfaceName + ": " +
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
