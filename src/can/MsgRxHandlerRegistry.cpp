#include <MsgRxHandler.h>

#include <LogLine.h>
#include <can/CanTraceRecord.h>
#include <can/ReceiverIndex.h>

#include <ios>

using logline::Level;

namespace {

constexpr std::string_view CLASS_NAME = "MsgRxHandler";

/// The identifier as it stands in a frame record, with the flag of a 29-bit one; other bits stay as they are.
constexpr uint32_t keyOf(unsigned int id, cantype_t type)
{
    return isExtendedType(type) ? id | canrecord::EXTENDED_KEY_FLAG : id;
}

} // namespace

void MsgRxHandler::registerCanMessage(unsigned char channel, unsigned int id, cantype_t type,
                                      MsgRxHandlerCb* receiver)
{
    const MutexLock lock(receiverMutex);
    if (ended) {
        return;
    }
    logline::write(Level::INFO, CLASS_NAME, "registerCanMessage", "_channel=", unsigned{channel}, "; _id=0x",
                   std::hex, id, std::dec, "; type=", type);
    receivers.insert(receiver);
    const uint32_t key = keyOf(id, type);
    std::set<MsgRxHandlerCb*>& entry = channelReceivers[channel][key];
    entry.insert(receiver);
    index->publish(channel, key, entry);
    activateDeviceByCanChannel(channel, true);
}

void MsgRxHandler::unregisterReceiver(MsgRxHandlerCb* receiver)
{
    const MutexLock lock(receiverMutex);
    if (ended) {
        return;
    }
    logline::write(Level::DEBUG, CLASS_NAME, "unregisterReceiver");
    receivers.erase(receiver);
    for (auto& [channel, entries] : channelReceivers) {
        for (auto& [key, entry] : entries) {
            if (entry.erase(receiver) != 0) {
                index->publish(channel, key, entry);
            }
        }
        // Meant so: the channel falls silent for everybody, whoever is still registered, until somebody registers.
        activateDeviceByCanChannel(channel, false);
    }
}

void MsgRxHandler::informStateChangedReceivers(MsgRxHandlerCb::handlerState_t state, const std::string& text)
{
    const MutexLock lock(receiverMutex);
    for (MsgRxHandlerCb* const receiver : receivers) {
        receiver->onStateChanged(state, text);
    }
}
