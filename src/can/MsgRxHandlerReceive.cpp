#include <MsgRxHandler.h>

#include <LogLine.h>
#include <can/CanTraceRecord.h>
#include <can/MsgRxHandlerDevice.h>
#include <can/ReceiverIndex.h>
#include <can/WatchSet.h>

#include <vqutil/VQException.h>

#include <cerrno>
#include <cstring>
#include <ctime>

#include <sys/select.h>

using logline::Level;

namespace {

constexpr std::string_view CLASS_NAME = "MsgRxHandler";

/// How long a wait lasts; so long a stop may take, there is nothing else that ends the wait.
constexpr timespec WAIT_TIME{.tv_sec = 0, .tv_nsec = 300'000'000};

size_t lengthOf(const unsigned char* begin, const unsigned char* end)
{
    return end > begin ? static_cast<size_t>(end - begin) : 0;
}

/// Hands a CAN frame record to its receivers, as MsgRxHandler::informMessageReceivers() does with the set of them.
/// Inline, because it runs for every record.
inline void dispatch(const ReceiverIndex& index, Mutex& receiverMutex, const unsigned char* record, size_t length)
{
    // No lock for the look-up: the index only grows, and a list stays where it is.
    const ReceiverList* const receivers = index.find(canrecord::channelOf(record), canrecord::keyOf(record));
    if (receivers == nullptr) {
        return;
    }
    __builtin_prefetch(receivers); // arrives while the lock is taken
    const MutexLock lock(receiverMutex);
    receivers->forEach([&](MsgRxHandlerCb& receiver) { receiver.onRawReceived(record, length); });
}

} // namespace

void MsgRxHandler::threadCode()
{
    logline::write(Level::DEBUG, CLASS_NAME, "threadCode", "Start thread.");
    const bool opened = openDevices() >= 0;
    if (opened) {
        informStateChangedReceivers(MsgRxHandlerCb::ONLINE, "");
    } else {
        informStateChangedReceivers(MsgRxHandlerCb::ERROR, "");
        running = false;
    }

    // Every device is watched, the inactive ones too: a ready one ends the wait although nothing is read from it.
    WatchSet watched;
    for (const auto& [path, device] : devices) {
        watched.add(device->fd);
    }

    // After a failed start the flag does not count: somebody may have set it again.
    while (opened && running) {
        fd_set readSet = watched.copy();
        const int ready = pselect(watched.end(), &readSet, nullptr, nullptr, &WAIT_TIME, nullptr);
        if (ready < 0) {
            const int error = errno; // the log lock may change it
            logline::write(Level::ERROR, CLASS_NAME, "threadCode", "pselect: ", std::strerror(error));
            continue;
        }
        if (ready == 0) {
            continue;
        }
        // Which devices are ready does not matter: read() never blocks.
        for (const auto& [path, device] : devices) {
            if (device->active && device->buffer->read() > 0) {
                processMessages(*device->buffer);
            }
        }
    }

    logline::write(Level::INFO, CLASS_NAME, "threadCode", "Exit thread, close devices");
    closeDevices();
    running = false;
    logline::write(Level::DEBUG, CLASS_NAME, "threadCode", "Exit thread.");
    informStateChangedReceivers(MsgRxHandlerCb::OFFLINE, "");
}

void MsgRxHandler::processMessages(TraceMessageBuffer& buffer)
{
    const bool isExtensionDevice = buffer.name.find("fpgac") != std::string::npos;
    const uint64_t offset = isExtensionDevice ? fpgacOffset : fpgabOffset;
    const ReceiverIndex& receiverIndex = *index;
    try {
        unsigned char* begin = nullptr;
        unsigned char* end = nullptr;
        while (buffer.getNextMessage(begin, end)) {
            unsigned char* const record = begin;
            const size_t length = lengthOf(record, end);
            if (length < canrecord::MIN_BYTES || canrecord::typeOf(record) != canrecord::CAN_FRAME_TYPE) {
                continue;
            }
            canrecord::setTime(record, canrecord::timeOf(record) + offset);
            dispatch(receiverIndex, receiverMutex, record, length);
        }
    } catch (const VQException& exception) {
        // The records behind the one at fault wait in the buffer for the next read.
        logline::write(Level::ERROR, CLASS_NAME, "processMessages", exception);
    }
}

void MsgRxHandler::processCanMessage(const unsigned char* begin, const unsigned char* end)
{
    const size_t length = lengthOf(begin, end);
    if (length < canrecord::MIN_BYTES) {
        return;
    }
    dispatch(*index, receiverMutex, begin, length);
}

void MsgRxHandler::informMessageReceivers(const std::set<MsgRxHandlerCb*>& set, const unsigned char* data,
                                          size_t length)
{
    const MutexLock lock(receiverMutex);
    for (MsgRxHandlerCb* const receiver : set) {
        receiver->onRawReceived(data, length);
    }
}
