#include <can/ReceiverIndex.h>

#include <utility>

namespace {

constexpr unsigned FIRST_SIZE_BITS = 4;

} // namespace

ReceiverIndex::ReceiverIndex() = default;
ReceiverIndex::~ReceiverIndex() = default;

void ReceiverIndex::publish(uint8_t channel, uint32_t key, const Receivers& receivers)
{
    Table* table = tables[channel].load(std::memory_order_relaxed);
    if (table != nullptr && table->find(key) != nullptr) {
        return;
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
    table->insert(key, receivers);
}

ReceiverIndex::Table::Table(unsigned sizeBits)
    : bits(sizeBits), mask((size_t{1} << sizeBits) - 1), slots(new Slot[size_t{1} << sizeBits])
{
}

void ReceiverIndex::Table::insert(uint32_t key, const Receivers& receivers)
{
    size_t i = homeOf(key);
    while (slots[i].receivers.load(std::memory_order_relaxed) != nullptr) {
        i = (i + 1) & mask;
    }
    slots[i].key.store(key, std::memory_order_relaxed);
    // The release hands the key, and the set itself, to a reader that sees the pointer.
    slots[i].receivers.store(&receivers, std::memory_order_release);
    ++used;
}

void ReceiverIndex::Table::copyTo(Table& larger) const
{
    for (size_t i = 0; i <= mask; ++i) {
        if (const Receivers* const receivers = slots[i].receivers.load(std::memory_order_relaxed)) {
            larger.insert(slots[i].key.load(std::memory_order_relaxed), *receivers);
        }
    }
}
