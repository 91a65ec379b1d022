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
    const auto lacking = awaited.find(row);
    if (lacking != awaited.end() && --lacking->second == 0) {
        awaited.erase(lacking);
        if (awaited.empty()) {
            complete.notify_all();
        }
    }
}

std::optional<std::chrono::steady_clock::time_point> Arrivals::waitFor(const std::map<RowKey, uint64_t>& expected,
                                                                       std::chrono::milliseconds patience)
{
    std::unique_lock lock(mutex);
    for (const auto& [row, frames] : expected) {
        if (const uint64_t arrived = byRow[row]; arrived < frames) {
            awaited[row] = frames - arrived;
        }
    }
    while (!awaited.empty()) {
        const uint64_t before = count;
        complete.wait_for(lock, patience, [this] { return awaited.empty(); });
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
