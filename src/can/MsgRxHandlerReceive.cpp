#include <MsgRxHandler.h>

#include <LogLine.h>
#include <can/CanTraceRecord.h>
#include <can/MsgRxHandlerDevice.h>
#include <can/ReceiverIndex.h>

#include <vqutil/VQException.h>

#include <algorithm>
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
    fd_set watchSet;
    FD_ZERO(&watchSet);
    int highestFd = -1;
    for (const auto& [path, device] : devices) {
        if (device->fd >= 0) {
            FD_SET(device->fd, &watchSet);
        }
        highestFd = std::max(highestFd, device->fd);
    }

    // After a failed start the flag does not count: somebody may have set it again.
    while (opened && running) {
        fd_set readSet = watchSet;
        const int ready = pselect(highestFd + 1, &readSet, nullptr, nullptr, &WAIT_TIME, nullptr);
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
    try {
        unsigned char* begin = nullptr;
        unsigned char* end = nullptr;
        while (buffer.getNextMessage(begin, end)) {
            const size_t length = lengthOf(begin, end);
            if (length < canrecord::TYPE_END || canrecord::typeOf(begin) != canrecord::CAN_FRAME_TYPE ||
                length < canrecord::MIN_BYTES) {
                continue;
            }
            canrecord::setTime(begin, canrecord::timeOf(begin) + offset);
            processCanMessage(begin, end);
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
    // No lock for the look-up: the index only grows, and a set stays where it is.
    if (const auto* const set = index->find(canrecord::channelOf(begin), canrecord::keyOf(begin))) {
        informMessageReceivers(*set, begin, length);
    }
}

void MsgRxHandler::informMessageReceivers(const std::set<MsgRxHandlerCb*>& set, const unsigned char* data,
                                          size_t length)
{
    const MutexLock lock(receiverMutex);
    // Counted, because the step behind the last member, a call into the tree's code, is most of the walk in the
    // usual set of one.
    auto receiver = set.begin();
    for (size_t left = set.size(); left > 0; --left) {
        (*receiver)->onRawReceived(data, length);
        if (left > 1) {
            ++receiver;
        }
    }
}
