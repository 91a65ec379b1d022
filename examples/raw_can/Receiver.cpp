#include "Receiver.h"

namespace {

// Where the fields of a received frame record are; the record holds at least the identifier.
constexpr size_t CHANNEL_OFFSET = 14;
constexpr size_t ID_OFFSET = 18;
constexpr uint32_t ID_BITS = 0x9FFFFFFF;

uint32_t idWordOf(const uint8_t* record)
{
    uint32_t word = 0;
    for (size_t i = 0; i < sizeof word; ++i) {
        word = word << 8 | record[ID_OFFSET + i];
    }
    return word & ID_BITS;
}

} // namespace

void Arrivals::add(const RowKey& row)
{
    const std::lock_guard lock(mutex);
    ++byRow[row];
    ++count;
    if (count >= awaited) {
        complete.notify_all();
    }
}

std::optional<std::chrono::steady_clock::time_point> Arrivals::waitFor(uint64_t total,
                                                                       std::chrono::seconds patience)
{
    std::unique_lock lock(mutex);
    awaited = total;
    while (count < total) {
        const uint64_t before = count;
        complete.wait_for(lock, patience, [this] { return count >= awaited; });
        if (count == before) {
            return std::nullopt;
        }
    }
    return std::chrono::steady_clock::now();
}

std::map<RowKey, uint64_t> Arrivals::counts()
{
    const std::lock_guard lock(mutex);
    return byRow;
}

void StartState::onDataReceived(const uint8_t* /*data*/, size_t /*size*/) {}

void StartState::onInterfaceState(int status)
{
    const std::lock_guard lock(mutex);
    if (state == 0) { // a failed start reports 4, then 2: the first one tells
        state = status;
    }
    changed.notify_all();
}

bool StartState::waitForOnline(std::chrono::seconds patience)
{
    std::unique_lock lock(mutex);
    changed.wait_for(lock, patience, [this] { return state != 0; });
    return state == 1;
}

Receiver::Receiver(uint8_t sendingChannel, const Traffic& traffic, StartState& start, Arrivals& allArrivals)
    : sender(sendingChannel), arrivals(allArrivals)
{
    configuration.channel = receivingChannel(sendingChannel);
    for (const SenderKey& key : traffic.senders) {
        if (key.channel == sendingChannel) {
            configuration.receiveIds.push_back({key.id, key.type});
        }
    }
    // The last one becomes the primary identifier; an interface always has one.
    configuration.id = configuration.receiveIds.back().id;
    configuration.type = configuration.receiveIds.back().type;
    configuration.receiveIds.pop_back();
    interface.callbacks.insert(this);
    interface.callbacks.insert(&start);
}

void Receiver::configure()
{
    interface.configure(configuration);
}

void Receiver::onDataReceived(const uint8_t* data, size_t /*size*/)
{
    if (data[CHANNEL_OFFSET] == configuration.channel) {
        arrivals.add({sender, idWordOf(data)});
    }
}

void Receiver::onInterfaceState(int /*status*/) {}
