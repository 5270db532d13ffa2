#include <gtest/gtest.h>

#include <limits>
#include <string>
#include <utility>
#include <vector>

#include "dome/EventRows.h"
#include "tavos/osa/Exception.h"

namespace dome {
namespace {

using tavos::osa::Exception;
using Told = std::vector<std::pair<char, int>>;

struct EventRowsTest : testing::Test {
    std::uint64_t Add(char name, int first, int count) {
        return rows.Add(first, count, [this, name](int value) { told.emplace_back(name, value); });
    }

    EventRows rows;
    Told told;
};

TEST_F(EventRowsTest, TellsBitByBitAndInOrder) {
    EXPECT_TRUE(rows.IsEmpty());
    EXPECT_EQ(Add('a', 5, 3), 3u);
    EXPECT_EQ(Add('b', -1, 2), 5u);
    EXPECT_EQ(told, Told{});
    rows.Work(2);
    EXPECT_EQ(told, (Told{{'a', 5}, {'a', 6}}));
    EXPECT_EQ(rows.Emitted(), 2u);
    EXPECT_EQ(Add('c', 9, 1), 6u);
    rows.Work(2);
    EXPECT_EQ(told, (Told{{'a', 5}, {'a', 6}, {'a', 7}, {'b', -1}}));
    EXPECT_FALSE(rows.IsEmpty());
    rows.Work(100);
    EXPECT_EQ(told, (Told{{'a', 5}, {'a', 6}, {'a', 7}, {'b', -1}, {'b', 0}, {'c', 9}}));
    EXPECT_EQ(rows.Emitted(), 6u);
    EXPECT_TRUE(rows.IsEmpty());
    rows.Work(1);
    EXPECT_EQ(told.size(), 6u);
}

TEST_F(EventRowsTest, RefusesWhatItCannotTell) {
    constexpr int kMaxInt = std::numeric_limits<int>::max();
    EXPECT_THROW(Add('a', 1, 0), Exception);
    EXPECT_THROW(Add('a', 1, -1), Exception);
    EXPECT_THROW(Add('a', 1, EventRows::kMaxWaiting + 1), Exception);
    EXPECT_THROW(Add('a', kMaxInt - 1, 3), Exception);
    EXPECT_TRUE(rows.IsEmpty());
    Add('b', kMaxInt - 1, 2);
    rows.Work(10);
    EXPECT_EQ(told, (Told{{'b', kMaxInt - 1}, {'b', kMaxInt}}));
}

TEST_F(EventRowsTest, LetsNoMoreWaitThanItsBound) {
    Add('a', 1, EventRows::kMaxWaiting - 1);
    EXPECT_THROW(Add('b', 1, 2), Exception);
    Add('b', 1, 1);
    EXPECT_THROW(Add('c', 1, 1), Exception);
    rows.Work(1);
    EXPECT_EQ(Add('c', 1, 1), EventRows::kMaxWaiting + 1u);
    rows.Work(EventRows::kMaxWaiting);
    EXPECT_EQ(told.back(), std::make_pair('c', 1));
}

}  // namespace
}  // namespace dome
