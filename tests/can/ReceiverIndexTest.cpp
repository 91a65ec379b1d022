#include <can/ReceiverIndex.h>

#include <gtest/gtest.h>

#include <atomic>
#include <deque>
#include <thread>
#include <vector>

namespace {

using Receivers = ReceiverIndex::Receivers;

TEST(ReceiverIndexTest, EmptyIndexFindsNothing)
{
    const ReceiverIndex sut;
    EXPECT_EQ(sut.find(0, 0), nullptr);
    EXPECT_EQ(sut.find(255, 0xFFFFFFFF), nullptr);
}

TEST(ReceiverIndexTest, FindsWhatWasPublishedForChannelAndKeyOnly)
{
    ReceiverIndex sut;
    const Receivers receivers;
    sut.publish(3, 0x123, receivers);
    EXPECT_EQ(sut.find(3, 0x123), &receivers);
    EXPECT_EQ(sut.find(4, 0x123), nullptr);
    EXPECT_EQ(sut.find(3, 0x124), nullptr);
    EXPECT_EQ(sut.find(3, 0x80000123), nullptr);
}

TEST(ReceiverIndexTest, KeyZeroAndAllOnesAreKeysLikeOthers)
{
    ReceiverIndex sut;
    const Receivers zero;
    const Receivers ones;
    sut.publish(0, 0, zero);
    sut.publish(255, 0xFFFFFFFF, ones);
    EXPECT_EQ(sut.find(0, 0), &zero);
    EXPECT_EQ(sut.find(255, 0xFFFFFFFF), &ones);
}

TEST(ReceiverIndexTest, SecondPublicationOfAPairChangesNothing)
{
    ReceiverIndex sut;
    const Receivers first;
    const Receivers second;
    sut.publish(0, 1, first);
    sut.publish(0, 1, second);
    EXPECT_EQ(sut.find(0, 1), &first);
}

TEST(ReceiverIndexTest, GrowthKeepsEveryEntry)
{
    ReceiverIndex sut;
    constexpr uint32_t KEYS = 20000;
    std::deque<Receivers> receivers(KEYS);
    for (uint32_t key = 0; key < KEYS; ++key) {
        sut.publish(9, key * 7919, receivers[key]);
    }
    for (uint32_t key = 0; key < KEYS; ++key) {
        ASSERT_EQ(sut.find(9, key * 7919), &receivers[key]) << key;
    }
    EXPECT_EQ(sut.find(9, KEYS * 7919), nullptr);
    EXPECT_EQ(sut.find(8, 0), nullptr);
}

TEST(ReceiverIndexTest, ReadersMeetGrowthWithoutMissingWhatIsPublished)
{
    ReceiverIndex sut;
    constexpr uint32_t KEYS = 5000;
    std::deque<Receivers> receivers(KEYS);
    std::atomic<uint32_t> published{0};
    std::vector<std::thread> readers;
    for (int i = 0; i < 2; ++i) {
        readers.emplace_back([&] {
            uint32_t known = 0;
            while (known < KEYS) {
                known = published.load(std::memory_order_acquire);
                for (uint32_t key = known > 64 ? known - 64 : 0; key < known; ++key) {
                    ASSERT_EQ(sut.find(1, key), &receivers[key]);
                }
            }
        });
    }
    for (uint32_t key = 0; key < KEYS; ++key) {
        sut.publish(1, key, receivers[key]);
        published.store(key + 1, std::memory_order_release);
    }
    for (std::thread& reader : readers) {
        reader.join();
    }
}

} // namespace
