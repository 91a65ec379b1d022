#pragma once

#include <MsgRxHandlerCb.h>
#include <can/ReceiverList.h>

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <set>
#include <vector>

/// Finds the receivers of a channel and identifier key without a lock.
///
/// The registry keeps the book, a map of maps under its mutex, and publishes each entry here whenever it changes. A
/// list of receivers keeps its address and is never taken out, so a reader that found it may keep the pointer for
/// as long as the registry lives. What is in the list is read under the registry's mutex.
///
/// One open-addressing hash table per channel, at most three quarters full. When it becomes too small a larger one
/// takes its place; readers may still be probing the old one, so it lives as long as the index. All tables of a
/// channel together are at most twice the size of the last.
///
/// Threads: publish() with the registry's mutex held; find() by any number, at any time.
class ReceiverIndex
{
public:
    ReceiverIndex();
    ~ReceiverIndex();
    ReceiverIndex(const ReceiverIndex&) = delete;
    ReceiverIndex& operator=(const ReceiverIndex&) = delete;

    /// Makes the members of `receivers` those of a channel and key.
    void publish(uint8_t channel, uint32_t key, const std::set<MsgRxHandlerCb*>& receivers);

    /// @return the list of the pair, null if none was ever published. Neither allocates nor waits.
    const ReceiverList* find(uint8_t channel, uint32_t key) const noexcept
    {
        const Table* const table = tables[channel].load(std::memory_order_acquire);
        return table == nullptr ? nullptr : table->find(key);
    }

private:
    class Table
    {
    public:
        explicit Table(unsigned sizeBits);

        ReceiverList* find(uint32_t key) const noexcept
        {
            // An empty slot ends the search; a quarter of them are empty, so the loop ends.
            for (size_t i = homeOf(key);; i = (i + 1) & mask) {
                ReceiverList* const receivers = slots[i].receivers.load(std::memory_order_acquire);
                if (receivers == nullptr || slots[i].key.load(std::memory_order_relaxed) == key) {
                    return receivers;
                }
            }
        }

        bool isFull() const { return 4 * used > 3 * mask; }
        unsigned sizeBits() const { return 32 - shift; }
        void insert(uint32_t key, ReceiverList& receivers);
        void copyTo(Table& larger) const;

    private:
        struct Slot
        {
            std::atomic<ReceiverList*> receivers{nullptr}; ///< null: empty; published last
            std::atomic<uint32_t> key{0};
        };

        /// Multiplicative hashing (Knuth): spreads the runs of neighbouring identifiers that buses use.
        size_t homeOf(uint32_t key) const noexcept { return (key * uint32_t{0x9E3779B1}) >> shift; }

        const unsigned shift; ///< 32 less the bits of the size
        const size_t mask;
        size_t used = 0;
        const std::unique_ptr<Slot[]> slots;
    };

    ReceiverList& listOf(uint8_t channel, uint32_t key);

    std::array<std::atomic<Table*>, 256> tables{};
    std::vector<std::unique_ptr<Table>> owned; ///< every table that was ever published
    std::deque<ReceiverList> lists;            ///< a deque: what it holds stays where it is
};
