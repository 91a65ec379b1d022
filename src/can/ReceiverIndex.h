#pragma once

#include <MsgRxHandlerCb.h>

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <set>
#include <vector>

/// Finds the receivers of a channel and identifier key without a lock.
///
/// The registry keeps the book, a map of maps under its mutex, and publishes each entry here once. A published set
/// keeps its address and is never taken out, so a reader that found it may use it for as long as the registry
/// lives; the set's content is the registry's business.
///
/// One open-addressing hash table per channel, at most three quarters full. When it becomes too small a larger one
/// takes its place; readers may still be probing the old one, so it lives as long as the index. All tables of a
/// channel together are at most twice the size of the last.
///
/// Threads: publish() by one at a time; find() by any number, at any time.
class ReceiverIndex
{
public:
    using Receivers = std::set<MsgRxHandlerCb*>;

    ReceiverIndex();
    ~ReceiverIndex();
    ReceiverIndex(const ReceiverIndex&) = delete;
    ReceiverIndex& operator=(const ReceiverIndex&) = delete;

    /// Makes `receivers` the set of a channel and key. A second call for the same pair changes nothing.
    /// @param receivers  must stay where it is until the index is destroyed
    void publish(uint8_t channel, uint32_t key, const Receivers& receivers);

    /// @return the set published for the pair, null if there is none. Neither allocates nor waits.
    const Receivers* find(uint8_t channel, uint32_t key) const noexcept
    {
        const Table* const table = tables[channel].load(std::memory_order_acquire);
        return table == nullptr ? nullptr : table->find(key);
    }

private:
    class Table
    {
    public:
        explicit Table(unsigned sizeBits);

        const Receivers* find(uint32_t key) const noexcept
        {
            // An empty slot ends the search; a quarter of them are empty, so the loop ends.
            for (size_t i = homeOf(key);; i = (i + 1) & mask) {
                const Receivers* const receivers = slots[i].receivers.load(std::memory_order_acquire);
                if (receivers == nullptr || slots[i].key.load(std::memory_order_relaxed) == key) {
                    return receivers;
                }
            }
        }

        bool isFull() const { return 4 * used > 3 * mask; }
        unsigned sizeBits() const { return bits; }
        void insert(uint32_t key, const Receivers& receivers);
        void copyTo(Table& larger) const;

    private:
        struct Slot
        {
            std::atomic<const Receivers*> receivers{nullptr}; ///< null: empty; published last
            std::atomic<uint32_t> key{0};
        };

        /// Multiplicative hashing (Knuth): spreads the runs of neighbouring identifiers that buses use.
        size_t homeOf(uint32_t key) const noexcept { return (key * uint32_t{0x9E3779B1}) >> (32 - bits); }

        const unsigned bits;
        const size_t mask;
        size_t used = 0;
        const std::unique_ptr<Slot[]> slots;
    };

    std::array<std::atomic<Table*>, 256> tables{};
    std::vector<std::unique_ptr<Table>> owned; ///< every table that was ever published
};
