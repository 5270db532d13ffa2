#include <gtest/gtest.h>

#include <limits>
#include <string>
#include <utility>
#include <vector>

#include "dome/EventQueue.h"
#include "tavos/osa/Exception.h"

namespace dome {
namespace {

using tavos::osa::Exception;
using Events = std::vector<std::pair<char, int>>;

struct EventQueueTest : testing::Test {
    std::uint64_t Add(char name, int first, int count) {
        return queue.Add(first, count, [this, name](int value) { emitted.emplace_back(name, value); });
    }

    EventQueue queue;
    Events emitted;
};

TEST_F(EventQueueTest, EmitsAFewAtATimeAndInOrder) {
    EXPECT_TRUE(queue.IsEmpty());
    EXPECT_EQ(Add('a', 5, 3), 3u);
    EXPECT_EQ(Add('b', -1, 2), 5u);
    EXPECT_EQ(emitted, Events{});
    queue.Work(2);
    EXPECT_EQ(emitted, (Events{{'a', 5}, {'a', 6}}));
    EXPECT_EQ(queue.Emitted(), 2u);
    EXPECT_EQ(Add('c', 9, 1), 6u);
    queue.Work(2);
    EXPECT_EQ(emitted, (Events{{'a', 5}, {'a', 6}, {'a', 7}, {'b', -1}}));
    EXPECT_FALSE(queue.IsEmpty());
    queue.Work(100);
    EXPECT_EQ(emitted, (Events{{'a', 5}, {'a', 6}, {'a', 7}, {'b', -1}, {'b', 0}, {'c', 9}}));
    EXPECT_EQ(queue.Emitted(), 6u);
    EXPECT_TRUE(queue.IsEmpty());
    queue.Work(1);
    EXPECT_EQ(emitted.size(), 6u);
}

TEST_F(EventQueueTest, RefusesWhatItCannotEmit) {
    constexpr int kMaxInt = std::numeric_limits<int>::max();
    EXPECT_THROW(Add('a', 1, 0), Exception);
    EXPECT_THROW(Add('a', 1, -1), Exception);
    EXPECT_THROW(Add('a', 1, EventQueue::kMaxWaiting + 1), Exception);
    EXPECT_THROW(Add('a', kMaxInt - 1, 3), Exception);
    EXPECT_TRUE(queue.IsEmpty());
    Add('b', kMaxInt - 1, 2);
    queue.Work(10);
    EXPECT_EQ(emitted, (Events{{'b', kMaxInt - 1}, {'b', kMaxInt}}));
}

TEST_F(EventQueueTest, QueuesNoMoreThanItsMax) {
    Add('a', 1, EventQueue::kMaxWaiting - 1);
    EXPECT_THROW(Add('b', 1, 2), Exception);
    Add('b', 1, 1);
    EXPECT_THROW(Add('c', 1, 1), Exception);
    queue.Work(1);
    EXPECT_EQ(Add('c', 1, 1), EventQueue::kMaxWaiting + 1u);
    queue.Work(EventQueue::kMaxWaiting);
    EXPECT_EQ(emitted.back(), std::make_pair('c', 1));
}

}  // namespace
}  // namespace dome
