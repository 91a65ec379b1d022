#pragma once

#include <BusInterfacesExport.h>
#include <CanIsoTpHandlerCallback.h>

#include <vqpbus/VQPBusProxyCallback.h>
#include <vqtrace/CANTransportTraceMessage.h>
#include <vqtrace/cantype.h>
#include <vqutil/Mutex.h>
#include <vqutil/Thread.h>
#include <vqutil/ThreadSafety.h>

#include <atomic>
#include <cstdint>
#include <deque>
#include <functional>
#include <iosfwd>
#include <memory>
#include <set>
#include <string>
#include <thread>
#include <vector>

/// ISO 15765-2 transport for one pair of CAN identifiers on one channel: sends messages of 1 to 4095 bytes as
/// single, first and consecutive frames under the peer's flow control, and puts received frames together again.
///
/// ```cpp
/// CanIsoTpHandler tester("TraceLogger", "Diagnostic", 0, 0x7E8, CAN_STANDARD, 0x7E0, CAN_STANDARD);
/// tester.setCallback(callback);              // implements CanIsoTpHandlerCallback
/// tester.start();                            // the worker thread
/// tester.sendTxID(request, sizeBytes);       // the answer comes to callback.canIsoTpHandlerCb
/// tester.stop();                             // waits until all is sent, ends the worker
/// ```
///
/// Life: construction registers the receive identifier with the process-bus peer. The owner then sets the three
/// codec settings and `debugLevel`, adds its callbacks and calls start(). After the traffic it calls stop(), then
/// destroys the handler. Destruction releases the pipe and what is still queued; it does not stop a running worker.
///
/// Protocol state, one for both directions (a handler never sends and receives a segmented message at once):
///
/// | expected | means | left by |
/// |---|---|---|
/// | EXPECT_SF_OR_FF | idle | sending or receiving a first frame |
/// | EXPECT_CF | receiving a segmented message | its last byte, after delivery; abort |
/// | EXPECT_FC | sending, the peer's flow control is due | flow control; abort |
/// | EXPECT_NONE | sending consecutive frames | end of block or message; abort |
///
/// Single frames are sent and received without leaving idle. What is sent while the handler is not idle stays
/// queued and goes out when the transfer has ended.
///
/// Every protocol error, a peer that is silent for one second, and a failed transmission abort: the handler returns
/// to idle, the message being received and every queued message are dropped, and the callbacks get one STATUS_ERROR
/// with the cause. The handler is usable at once. The peer is not told.
///
/// Limits: classic CAN frames only. If the peer announces a block size, the first consecutive frame of every block
/// after the first is not sent, which the peer notices by the sequence number; ask for block size 0. Reserved
/// separation times (0x80 to 0xF0, 0xFA to 0xFF) count as 127 microseconds. The own flow control always grants
/// everything at once (block size 0, separation time 0).
///
/// Diagnostic lines go to standard output, errors to standard error, each written at once without the log lock.
///
/// Threads: three kinds enter a handler: those of the owner (send and control), the process-bus thread (everything
/// that is received), the handler's worker (everything that is sent, except flow control). send(), setCallback(),
/// removeCallback() and abortProcessing() may be called from any thread; what is meant for one thread says so. The
/// queue lock is held while the worker sends a message or a block and sleeps its separation times: send() from
/// another thread waits for that. For what callbacks may do see CanIsoTpHandlerCallback.
class BUSINTERFACES_API CanIsoTpHandler : public Thread, public VQPBusProxyCallback
{
public:
    /// One classic CAN frame as the transport sees it.
    struct rawCANMsg_t
    {
        uint32_t id;     ///< CAN identifier, without a flag for its width
        cantype_t type;  ///< kind of frame
        uint8_t dlc;     ///< valid data bytes, 0 to 8
        uint8_t data[8]; ///< [address,] protocol control information, payload; 0x00 behind them
    };

    /// What a frame is by the upper half of its first control byte.
    enum frameType_t : uint32_t
    {
        FRAME_SF = 0, ///< single frame: 0x0L, L = length
        FRAME_FF = 1, ///< first frame: 0x1H 0xLL, HLL = length
        FRAME_CF = 2, ///< consecutive frame: 0x2N, N = sequence number
        FRAME_FC = 3, ///< flow control: 0x3S, S = flow status, then block size and separation time
        FRAME_UNKNOWN = 255,
    };

    /// What the handler waits for: its protocol state.
    enum expFrameType_t : uint32_t
    {
        EXPECT_SF_OR_FF = 0,
        EXPECT_CF = 1,
        EXPECT_FC = 2,
        EXPECT_NONE = 3,
    };

    /// Status of a flow control frame.
    enum flowStatus_t : uint32_t
    {
        FS_CTS = 0,       ///< continue to send
        FS_WAIT = 1,      ///< wait
        FS_OVERFLOW = 2,  ///< the message is too long for the peer
        FS_INVALID = 255, ///< not a flow control frame, or an unknown status
    };

    /// Why a transfer was aborted; the code of a STATUS_ERROR.
    enum errorCode_t : uint32_t
    {
        ERR_NONE = 0,
        ERR_UNEXPECTED_FRAME = 1, ///< a frame that does not fit the state
        ERR_RX_TIMEOUT = 2,       ///< no flow control or consecutive frame for one second
        ERR_OVERFLOW = 3,         ///< flow control with status overflow
        ERR_INVALID_FORMAT = 4,   ///< unknown frame or flow status, length out of range
        ERR_WRONG_DLC = 5,        ///< number of data bytes does not fit the content
        ERR_PROCESSING_RX = 6,    ///< never raised
        ERR_PROCESSING_TX = 7,    ///< transmission failed, or an empty payload was sent
        ERR_TOO_LONG = 8,         ///< never raised: send() refuses such a payload
        ERR_WRONG_SN = 9,         ///< sequence number of a consecutive frame is wrong
        ERR_PUSH_FAILED = 10,     ///< the worker could not be woken
        ERR_THREAD_LOOP = 11,     ///< the worker could not read its commands
        ERR_BUG = 12,             ///< the peer's block size was not 0 (see above), or a state that cannot be
    };

    /// Largest payload of one message.
    static constexpr uint16_t MAX_DATA_BYTES = 4095;
    /// Position in the message being sent while none is.
    static constexpr uint64_t MSGPART_INVALID = 0;

    /// Creates the control pipe, adds the handler to the process bus and registers its receive identifier. Frames
    /// may arrive from here on; nothing is sent before start().
    ///
    /// @param busPeerName  bus name of the peer that forwards CAN frames
    /// @param ownName      bus name that the peer forwards them to
    /// @param channel      CAN channel, used for sending and in the registration; received frames are not compared
    ///                     with it
    /// @param rxId, rxType identifier and type of the frames to receive
    /// @param txId, txType identifier and type of flow control frames and of sendTxID()
    /// @throws VQException "[ERROR] CanIsoTpHandler::CanIsoTpHandler: can't init pipe: " and the reason. A
    ///         descriptor that select(2) cannot watch is such a failure
    CanIsoTpHandler(const std::string& busPeerName, const std::string& ownName, unsigned char channel,
                    unsigned int rxId, cantype_t rxType, unsigned int txId, cantype_t txType);

    /// Removes the handler from the process bus (waits while the bus thread is in it) and releases what is queued.
    /// A worker that was started must have been stopped.
    ~CanIsoTpHandler() override;
    CanIsoTpHandler(const CanIsoTpHandler&) = delete;
    CanIsoTpHandler& operator=(const CanIsoTpHandler&) = delete;

    /// The worker: carries out commands until 'x'. Called by start(), for one thread at a time.
    void threadCode() override;

    /// Takes a frame from the process bus if its identifier and type are those to receive; everything else is
    /// ignored.
    ///
    /// @throws BufferMismatchException "CANTraceMessageBase too long" for such a frame with more than 8 data bytes;
    ///         the state is unchanged
    ///
    /// Threads: the process-bus thread. Calls callbacks.
    void vqpBusProxyCb(const MessageBase* msg, const std::string& source, const std::string& destination) override;

    /// Logs a bus error (type 2); ignores the rest.
    void vqpBusProxyStatusCb(VQPBusProxyCallback::StatusCBType_t type, int code, const std::string& text) override;

    // --- Sending

    /// Queues a message and returns; the worker sends it. Without a worker it stays queued: start() brings it on
    /// its way, destruction drops it silently.
    ///
    /// @param id, type  identifier and type of its frames
    /// @param data      payload, copied before the call returns
    /// @param length    1 to 4095 bytes
    /// @return true if the message was taken: it goes out, or a STATUS_ERROR tells that it was dropped. A
    ///         STATUS_WARNING tells that it waits for a transfer. false if `length` is above 4095 (nothing else
    ///         happens) or 0 (this aborts with ERR_PROCESSING_TX, like a protocol error: whatever is going on or
    ///         queued is dropped)
    ///
    /// Threads: any, also from callbacks. Waits while the worker sends a burst.
    bool send(unsigned int id, cantype_t type, const unsigned char* data, unsigned long length);

    /// As above, with payload, identifier and type of a message.
    /// @return as above; false for a null pointer
    bool send(const CANTransportTraceMessage* msg);

    /// As above, with the identifier and type given at construction.
    bool sendTxID(const unsigned char* data, unsigned long length);

    // --- Control

    /// Registers the receive identifier with the peer. The constructor does it; the bus repeats it when it
    /// reconnects.
    /// @return true if the bus took the registration
    bool registerHandler();

    /// Adds a callback. Waits while callbacks run.
    /// @return false if it was there already
    bool setCallback(CanIsoTpHandlerCallback& callback);

    /// Removes a callback. On return none of its calls is running or will follow.
    /// @return number removed: 0 or 1
    int removeCallback(CanIsoTpHandlerCallback& callback);

    /// Reports a status to every callback, in ascending pointer order.
    void callCanIsoTpHandlerStatusCb(CanIsoTpHandlerCallback::StatusCBType_t type, int code,
                                     const std::string& text);

    /// Sends a command to the worker: 's' look at the send queue, 'i' start the one-second wait again, 'x' end.
    /// Waits up to one second for room in the pipe; a failure aborts with ERR_PUSH_FAILED.
    void pushThread(char cmd);

    /// True if no message waits and none is being sent.
    bool sendQueueEmpty();

    /// Drops every queued message, without a status. For use while idle; abortProcessing() also ends a transfer.
    void clear();

    /// Ends whatever is going on: idle, all messages dropped, one STATUS_ERROR with `err`.
    void abortProcessing(errorCode_t err);

    /// Waits, however long, until the queue is empty, sent or aborted, then ends the worker and joins it. A worker
    /// that has ended already is joined at once; what it left in the queue stays there. Only stop() may join a
    /// worker: after a join() of the owner's the next stop() may not wait for the queue.
    ///
    /// @return 0; -1 if there was no worker to join (never started, or stopped before). Nothing waits then, and the
    ///         command to end stays for the worker that is started next: it sends what was queued before the
    ///         command, as far as no flow control is due, and ends. Only if the pipe is full, this takes one second
    ///         and aborts with ERR_PUSH_FAILED; the worker that is started next ends at its first command
    ///
    /// Threads: the owner's; never from a callback.
    int stop();

    // --- Frames: building and reading, by the codec settings. None of these takes a lock or changes a state.

    /// Place of the first payload byte in `data`: SF and CF 1 (2 with extended addressing), FF 2 (3); other types
    /// 0xFFFFFFFF. The control byte of SF and CF stands right before it, the two of a FF in the two bytes before
    /// it.
    uint32_t getFirstDataByte(frameType_t type) const;

    bool isSingleFrame(const rawCANMsg_t& frame) const;
    bool isFirstFrame(const rawCANMsg_t& frame) const;
    bool isConsecutiveFrame(const rawCANMsg_t& frame) const;
    bool isFlowControlFrame(const rawCANMsg_t& frame) const;

    /// Clears the data and writes address, control byte and DLC of a single frame.
    /// @param len  payload bytes, 1 to 7 (6 with extended addressing)
    /// @return false for another length (logged; the frame is untouched)
    bool setSingleFrameHeader(rawCANMsg_t& frame, int len) const;

    /// The same for a first frame; its DLC is always 8.
    /// @param len  bytes of the whole message, 8 (7 with extended addressing) to 4095
    /// @return false for another length (logged; the frame is untouched)
    bool setFirstFrameHeader(rawCANMsg_t& frame, int len) const;

    /// The same for a consecutive frame; nothing is checked.
    /// @param len       payload bytes in this frame
    /// @param sequence  number of the frame; its lowest four bits are written
    void setConsecutiveFrameHeader(rawCANMsg_t& frame, int len, int sequence) const;

    /// Builds a whole flow control frame, except identifier and type.
    void setFlowControlFrame(rawCANMsg_t& frame, flowStatus_t fs, unsigned char blockSize,
                             unsigned char separationTime) const;

    /// @return status of a flow control frame; FS_INVALID for an unknown one and for other frames (logged)
    flowStatus_t getFrameFlowStatus(const rawCANMsg_t& frame) const;
    /// @return block size of a flow control frame; 0 for other frames (logged)
    uint8_t getFrameBlockSize(const rawCANMsg_t& frame) const;
    /// @return separation time byte of a flow control frame; 0xFF for other frames (logged)
    uint8_t getFrameSeparationTime(const rawCANMsg_t& frame) const;
    /// @return length that a single or first frame announces; -1 for other frames (logged)
    int getFrameDataLength(const rawCANMsg_t& frame) const;
    /// @return sequence number of a consecutive frame; -1 for other frames (logged)
    int getFrameSequenceNo(const rawCANMsg_t& frame) const;

    std::string toString(frameType_t& type) const;
    std::string toString(expFrameType_t& type) const;
    std::string toString(errorCode_t code) const;

    /// Logs that `frame` is not what the state lets expect.
    void showExpectedError(const rawCANMsg_t& frame);

    // --- Steps of the protocol, called by the handler itself

    /// Splits a payload into frames and queues them; see send().
    bool prepareData(unsigned int id, cantype_t type, const unsigned char* data, unsigned long length);
    /// Sends what the state allows of the first queued message. Worker only.
    void processSendQueue();
    /// Removes the first queued message, if there is one.
    void deleteFirstMessage();
    /// Sleeps for the current separation time.
    void sleepSeparationTime();
    /// Hands a frame to the transmitter; a failure aborts with ERR_PROCESSING_TX.
    void sendCANMessage(const rawCANMsg_t& frame);
    /// Sends a flow control frame with the current block size and separation time. The type argument is not used.
    void sendFlowControl(cantype_t type, flowStatus_t fs);
    /// Aborts with ERR_RX_TIMEOUT if a flow control or consecutive frame is due.
    void handleTimeout();

    /// Passes a frame to the check of its kind. Threads: like vqpBusProxyCb, and so for the following.
    void handleCANData(const rawCANMsg_t& frame);
    void checkSingleFrame(const rawCANMsg_t& frame);
    void checkFirstFrame(const rawCANMsg_t& frame);
    void checkConsecutiveFrame(const rawCANMsg_t& frame);
    void checkFlowControlFrame(const rawCANMsg_t& fc);
    /// Appends payload to the message being received and delivers the message when it is complete. More bytes than
    /// are missing abort with ERR_BUG. Identifier and type are not used.
    void addReceivedData(unsigned short id, cantype_t type, const unsigned char* data, unsigned long length);

    // The order of all data members is part of the binary interface.

    /// Other than 0: [DEBUG] lines are written; 3 or more: also a warning for every foreign bus message.
    std::atomic<int32_t> debugLevel{0};

private:
    const std::string busPeerName;
    const std::string ownName;
    const uint8_t channel;
    const uint32_t rxId;
    const cantype_t rxType;
    const uint32_t txId;
    const cantype_t txType;
    bool registered = false;
    Mutex queueMutex; ///< held by processSendQueue while frames are sent
    int32_t bytesToReceive VQ_GUARDED_BY(protocolMutex) = 0;
    expFrameType_t expectedFrame VQ_GUARDED_BY(protocolMutex) = EXPECT_SF_OR_FF;

public:
    // Codec settings: set them before start() and before the peer sends; the handler never changes them.
    std::atomic<uint8_t> extAddressLength{0}; ///< 1: extended addressing, an address byte leads every frame; else 0
    std::atomic<uint8_t> extAddress{0};       ///< that byte; on reception it is not compared
    std::atomic<uint8_t> useMinimalDlc{0};    ///< 0: frames are padded to 8 bytes; else: they are as long as needed

private:
    /// One prepared message. The worker shares it while it sends, so that an abort cannot take it away beneath it.
    using Message = std::shared_ptr<std::vector<rawCANMsg_t>>;

    uint8_t blockSize VQ_GUARDED_BY(protocolMutex) = 0;
    uint8_t separationTime VQ_GUARDED_BY(protocolMutex) = 127;
    uint32_t framesInBlock VQ_GUARDED_BY(protocolMutex) = 0;
    int32_t rxSequence VQ_GUARDED_BY(protocolMutex) = 0;
    std::deque<Message> sendQueue VQ_GUARDED_BY(queueMutex);
    std::vector<unsigned char> rxBuffer VQ_GUARDED_BY(protocolMutex);
    uint64_t sendCursor VQ_GUARDED_BY(protocolMutex) = MSGPART_INVALID;
    int pipeFds[2] = {-1, -1};
    std::set<CanIsoTpHandlerCallback*> callbacks VQ_GUARDED_BY(callbackMutex);
    Mutex callbackMutex; ///< held while callbacks run

    /// What processSendQueue does with the frame at the cursor.
    enum class SendStep
    {
        NOTHING, ///< the handler is receiving, or an abort is emptying the queue: the message stays
        SINGLE,
        FIRST,
        CONSECUTIVE,
        FLOW_CONTROL,
        BLOCK_FULL,
        BEHIND_END,
        REACHED_END,
        UNDECIDED,
    };
    /// One consecutive frame of a burst and what follows it.
    struct BurstFrame
    {
        rawCANMsg_t frame;
        bool last;              ///< it completes the message
        bool fillsBlock;        ///< the peer's flow control is due after it
        uint8_t separationTime; ///< the one in force when it was counted: the next flow control may be here already
    };
    /// What one frame brought.
    struct Received
    {
        errorCode_t error = ERR_NONE;
        expFrameType_t expected = EXPECT_SF_OR_FF; ///< state in which the frame was met
        uint64_t aborts = 0;                       ///< abortCount at that time
        bool complete = false;
        bool segmented = false;
        std::vector<unsigned char> payload; ///< of a complete message
    };
    class QueueHold;

    // Commands to the worker; any other byte is like RESTART_WAIT.
    static constexpr char START_SENDING = 's';
    static constexpr char RESTART_WAIT = 'i';
    static constexpr char END_WORKER = 'x';
    /// How long a command waits for room in the pipe.
    static constexpr long PUSH_TIMEOUT_US = 1'000'000;

    void openPipe();
    void closePipe() noexcept;
    void leaveBus() noexcept;
    bool writeCommand(char cmd, long timeoutUs);
    bool pushCommand(char cmd, long timeoutUs);
    void wakeForNextMessage();
    bool readCommand();
    bool workIsDue();
    void logExpectation();

    uint8_t addressBytes() const { return extAddressLength != 0 ? 1 : 0; }
    void startFrame(rawCANMsg_t& frame, int usedBytes) const;
    void logUnexpected(const rawCANMsg_t& frame, expFrameType_t expected) const;

    void acquireQueue() VQ_NO_THREAD_SAFETY_ANALYSIS;
    bool releaseQueue() VQ_NO_THREAD_SAFETY_ANALYSIS;
    void forEachCallback(const std::function<void(CanIsoTpHandlerCallback&)>& call) VQ_NO_THREAD_SAFETY_ANALYSIS;

    expFrameType_t currentExpectation() VQ_EXCLUDES_LOCK(protocolMutex);
    bool abortedSince(uint64_t aborts) VQ_EXCLUDES_LOCK(protocolMutex);
    void beginAbort() VQ_REQUIRES_LOCK(protocolMutex);
    void finishAbort(errorCode_t err) VQ_EXCLUDES_LOCK(protocolMutex);
    void abortUnlessAbortedSince(uint64_t aborts, errorCode_t err) VQ_EXCLUDES_LOCK(protocolMutex);

    SendStep selectFrame(const std::vector<rawCANMsg_t>& message, rawCANMsg_t& frame, uint64_t& aborts)
        VQ_EXCLUDES_LOCK(protocolMutex);
    bool nextBurstFrame(const std::vector<rawCANMsg_t>& message, uint64_t aborts, BurstFrame& next)
        VQ_EXCLUDES_LOCK(protocolMutex);
    bool sendFromMessage(const std::vector<rawCANMsg_t>& message);
    bool sendBurst(const std::vector<rawCANMsg_t>& message, uint64_t aborts);
    bool sendFrame(const rawCANMsg_t& frame, uint64_t aborts);
    bool transmit(const rawCANMsg_t& frame);
    rawCANMsg_t ownFlowControl(flowStatus_t fs) VQ_EXCLUDES_LOCK(protocolMutex);
    void sleepFor(uint8_t separationTimeByte);
    void logBlockLimit();
    void completeMessage(const Message& message);
    void endTransferWithoutMessage() VQ_EXCLUDES_LOCK(protocolMutex);

    void append(const unsigned char* data, unsigned long length, Received& received)
        VQ_REQUIRES_LOCK(protocolMutex);
    /// Checks a frame of its kind and takes what it brings; `number` is what its control bytes say.
    using Acceptance = void (CanIsoTpHandler::*)(const rawCANMsg_t& frame, int number, Received& received);
    Received judge(const rawCANMsg_t& frame, int number, Acceptance accept) VQ_EXCLUDES_LOCK(protocolMutex);
    void acceptSingleFrame(const rawCANMsg_t& frame, int length, Received& received)
        VQ_REQUIRES_LOCK(protocolMutex);
    void acceptFirstFrame(const rawCANMsg_t& frame, int length, Received& received) VQ_REQUIRES_LOCK(protocolMutex);
    void acceptConsecutiveFrame(const rawCANMsg_t& frame, int sequence, Received& received)
        VQ_REQUIRES_LOCK(protocolMutex);
    void acceptFlowControl(const rawCANMsg_t& fc, int status, Received& received) VQ_REQUIRES_LOCK(protocolMutex);
    bool refuse(const rawCANMsg_t& frame, const Received& received);
    bool deliver(Received& received);

    // What follows is not shared with anyone: it has no fixed place.
    std::atomic<std::thread::id> queueOwner{};    ///< the worker while it sends with the queue lock held
    std::atomic<std::thread::id> callbackOwner{}; ///< the thread that runs callbacks
    std::atomic<uint32_t> startsPending{0};       ///< commands 's' in the pipe
    std::atomic<bool> leaveRequested{false};      ///< 'x' could not be written: leave at the next occasion
    std::atomic<bool> workerEnded{false};         ///< the worker that is still to be joined sends nothing any more
    uint64_t abortCount VQ_GUARDED_BY(protocolMutex) = 0;
    uint32_t abortsClearing VQ_GUARDED_BY(protocolMutex) = 0; ///< aborts that have yet to empty the queue
    bool delivering VQ_GUARDED_BY(protocolMutex) = false;     ///< EXPECT_CF, and the callbacks have the message
    /// Guards the protocol members. Never held across a callback, log line, command, transmission or sleep; taken
    /// inside the queue lock, never around it.
    Mutex protocolMutex;
};

/// Writes " 0x", the identifier as eight hexadecimal digits, a blank and the number of data bytes; then, unless
/// there are none, a blank and each byte as " 0x" and its decimal value, at least two digits wide: 0x10 is written
/// " 0x16". Never reads more than 8 bytes. The stream's format flags and locale have no effect and stay.
BUSINTERFACES_API std::ostream& operator<<(std::ostream& stream, const CanIsoTpHandler::rawCANMsg_t& frame);
