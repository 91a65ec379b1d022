#include <can/ReceiverIndex.h>
#include <support/RecordingReceiver.h>

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <thread>
#include <vector>

namespace {

class ReceiverIndexTest : public testing::Test
{
protected:
    /// The members of a list, in its order.
    static std::vector<MsgRxHandlerCb*> membersOf(const ReceiverList* list)
    {
        std::vector<MsgRxHandlerCb*> members;
        if (list != nullptr) {
            list->forEach([&](MsgRxHandlerCb& receiver) { members.push_back(&receiver); });
        }
        return members;
    }

    std::array<RecordingReceiver, 3> receivers;
    ReceiverIndex sut;
};

using Members = std::vector<MsgRxHandlerCb*>;

TEST_F(ReceiverIndexTest, EmptyIndexFindsNothing)
{
    EXPECT_EQ(sut.find(0, 0), nullptr);
    EXPECT_EQ(sut.find(255, 0xFFFFFFFF), nullptr);
}

TEST_F(ReceiverIndexTest, FindsWhatWasPublishedForChannelAndKeyOnly)
{
    sut.publish(3, 0x123, {&receivers[0]});
    EXPECT_EQ(membersOf(sut.find(3, 0x123)), Members{&receivers[0]});
    EXPECT_EQ(sut.find(4, 0x123), nullptr);
    EXPECT_EQ(sut.find(3, 0x124), nullptr);
    EXPECT_EQ(sut.find(3, 0x80000123), nullptr);
}

TEST_F(ReceiverIndexTest, KeyZeroAndAllOnesAreKeysLikeOthers)
{
    sut.publish(0, 0, {&receivers[0]});
    sut.publish(255, 0xFFFFFFFF, {&receivers[1]});
    EXPECT_EQ(membersOf(sut.find(0, 0)), Members{&receivers[0]});
    EXPECT_EQ(membersOf(sut.find(255, 0xFFFFFFFF)), Members{&receivers[1]});
}

TEST_F(ReceiverIndexTest, ListHasTheMembersInAscendingOrder)
{
    sut.publish(0, 1, {&receivers[2], &receivers[0], &receivers[1]});
    EXPECT_EQ(membersOf(sut.find(0, 1)), (Members{&receivers[0], &receivers[1], &receivers[2]}));
}

TEST_F(ReceiverIndexTest, SecondPublicationReplacesTheMembersAndKeepsTheAddress)
{
    sut.publish(0, 1, {&receivers[0], &receivers[1]});
    const ReceiverList* const list = sut.find(0, 1);
    sut.publish(0, 1, {&receivers[2]});
    EXPECT_EQ(sut.find(0, 1), list);
    EXPECT_EQ(membersOf(list), Members{&receivers[2]});
}

TEST_F(ReceiverIndexTest, EmptySetLeavesAnEmptyList)
{
    sut.publish(0, 1, {&receivers[0], &receivers[1]});
    sut.publish(0, 1, {});
    ASSERT_NE(sut.find(0, 1), nullptr);
    EXPECT_EQ(membersOf(sut.find(0, 1)), Members{});
}

TEST_F(ReceiverIndexTest, GrowthKeepsEveryListAndItsAddress)
{
    constexpr uint32_t KEYS = 20000;
    std::vector<const ReceiverList*> lists;
    for (uint32_t key = 0; key < KEYS; ++key) {
        sut.publish(9, key * 7919, {&receivers[key % 3]});
        lists.push_back(sut.find(9, key * 7919));
    }
    for (uint32_t key = 0; key < KEYS; ++key) {
        ASSERT_EQ(sut.find(9, key * 7919), lists[key]) << key;
        ASSERT_EQ(membersOf(lists[key]), Members{&receivers[key % 3]}) << key;
    }
    EXPECT_EQ(sut.find(9, KEYS * 7919), nullptr);
    EXPECT_EQ(sut.find(8, 0), nullptr);
}

TEST_F(ReceiverIndexTest, ReadersMeetGrowthWithoutMissingWhatIsPublished)
{
    constexpr uint32_t KEYS = 5000;
    std::vector<std::atomic<const ReceiverList*>> lists(KEYS);
    std::atomic<uint32_t> published{0};
    std::vector<std::thread> readers;
    for (int i = 0; i < 2; ++i) {
        readers.emplace_back([&] {
            uint32_t known = 0;
            while (known < KEYS) {
                known = published.load(std::memory_order_acquire);
                for (uint32_t key = known > 64 ? known - 64 : 0; key < known; ++key) {
                    ASSERT_EQ(sut.find(1, key), lists[key].load(std::memory_order_relaxed));
                }
            }
        });
    }
    for (uint32_t key = 0; key < KEYS; ++key) {
        sut.publish(1, key, {&receivers[0]});
        lists[key].store(sut.find(1, key), std::memory_order_relaxed);
        published.store(key + 1, std::memory_order_release);
    }
    for (std::thread& reader : readers) {
        reader.join();
    }
}

} // namespace
