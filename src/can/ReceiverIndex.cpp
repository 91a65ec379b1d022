#include <can/ReceiverIndex.h>

#include <utility>

namespace {

constexpr unsigned FIRST_SIZE_BITS = 4;

} // namespace

ReceiverIndex::ReceiverIndex() = default;
ReceiverIndex::~ReceiverIndex() = default;

void ReceiverIndex::publish(uint8_t channel, uint32_t key, const std::set<MsgRxHandlerCb*>& receivers)
{
    listOf(channel, key).assign(receivers);
}

ReceiverList& ReceiverIndex::listOf(uint8_t channel, uint32_t key)
{
    Table* table = tables[channel].load(std::memory_order_relaxed);
    if (table != nullptr) {
        if (ReceiverList* const known = table->find(key)) {
            return *known;
        }
    }
    if (table == nullptr || table->isFull()) {
        auto larger = std::make_unique<Table>(table == nullptr ? FIRST_SIZE_BITS : table->sizeBits() + 1);
        if (table != nullptr) {
            table->copyTo(*larger);
        }
        owned.push_back(std::move(larger));
        table = owned.back().get();
        // The release makes everything that was copied visible to whoever finds the table here.
        tables[channel].store(table, std::memory_order_release);
    }
    ReceiverList& list = lists.emplace_back();
    table->insert(key, list);
    return list;
}

ReceiverIndex::Table::Table(unsigned sizeBits)
    : shift(32 - sizeBits), mask((size_t{1} << sizeBits) - 1), slots(new Slot[size_t{1} << sizeBits])
{
}

void ReceiverIndex::Table::insert(uint32_t key, ReceiverList& receivers)
{
    size_t i = homeOf(key);
    while (slots[i].receivers.load(std::memory_order_relaxed) != nullptr) {
        i = (i + 1) & mask;
    }
    slots[i].key.store(key, std::memory_order_relaxed);
    // The release hands the key to a reader that sees the pointer; the list is read under the registry's mutex.
    slots[i].receivers.store(&receivers, std::memory_order_release);
    ++used;
}

void ReceiverIndex::Table::copyTo(Table& larger) const
{
    for (size_t i = 0; i <= mask; ++i) {
        if (ReceiverList* const receivers = slots[i].receivers.load(std::memory_order_relaxed)) {
            larger.insert(slots[i].key.load(std::memory_order_relaxed), *receivers);
        }
    }
}
