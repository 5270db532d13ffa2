#include <gtest/gtest.h>
#include <poll.h>

#include <atomic>
#include <thread>

#include "dome/console/Handover.h"

namespace {

using dome::console::Activity;
using dome::console::Handover;
using dome::console::Reply;
using dome::console::Request;

bool IsReadable(int descriptor) {
    pollfd watched{descriptor, POLLIN, 0};
    return poll(&watched, 1, 0) == 1;
}

Request Nothing() {
    return {[] { return Reply{}; }, [](const Reply&) {}};
}

Activity Named(const std::string& call) {
    Activity activity;
    activity.call = call;
    return activity;
}

TEST(HandoverTest, FillsRefusesAndDrains) {
    Handover handover;
    EXPECT_FALSE(IsReadable(handover.Descriptor()));
    for (std::size_t i = 0; i < Handover::kMaxRequests; ++i) ASSERT_TRUE(handover.Ask(Nothing()));
    EXPECT_FALSE(handover.Ask(Nothing()));
    EXPECT_TRUE(IsReadable(handover.Descriptor()));
    EXPECT_EQ(handover.TakeRequests().size(), Handover::kMaxRequests);
    EXPECT_FALSE(IsReadable(handover.Descriptor()));
    EXPECT_TRUE(handover.TakeRequests().empty());
    EXPECT_TRUE(handover.Ask(Nothing()));
    EXPECT_EQ(handover.TakeRequests().size(), 1u);
}

TEST(HandoverTest, RequestsKeepTheirOrder) {
    Handover handover;
    std::string order;
    for (const char letter : {'a', 'b', 'c'}) {
        handover.Ask({[&order, letter] {
                          order += letter;
                          return Reply{};
                      },
                      [](const Reply&) {}});
    }
    for (const Request& request : handover.TakeRequests()) CarryOut(request);
    EXPECT_EQ(order, "abc");
}

TEST(HandoverTest, TheFirstWatcherWakesTheCamera) {
    Handover handover;
    handover.SetWatchers(1);
    EXPECT_TRUE(handover.IsWatched());
    EXPECT_TRUE(IsReadable(handover.Descriptor()));
    handover.TakeRequests();
    handover.SetWatchers(2);
    EXPECT_FALSE(IsReadable(handover.Descriptor()));
    handover.SetWatchers(0);
    EXPECT_FALSE(handover.IsWatched());
    EXPECT_FALSE(IsReadable(handover.Descriptor()));
}

TEST(HandoverTest, ActivitiesAreNumberedAndTheOldestFallOut) {
    Handover handover;
    for (std::size_t i = 0; i < Handover::kMaxActivities + 3; ++i) handover.Add(Named("x"));
    const auto all = handover.ActivitiesAfter(0);
    ASSERT_EQ(all.size(), Handover::kMaxActivities);
    EXPECT_EQ(all.front().number, 4u);
    EXPECT_EQ(all.back().number, Handover::kMaxActivities + 3);
    EXPECT_EQ(handover.ActivitiesAfter(all.back().number - 1).size(), 1u);
    EXPECT_TRUE(handover.ActivitiesAfter(all.back().number).empty());
}

TEST(HandoverTest, LongArgumentsAreCut) {
    Handover handover;
    Activity activity;
    activity.arguments.assign(20, std::string(1000000, 'x'));
    handover.Add(activity);
    const auto kept = handover.ActivitiesAfter(0).front().arguments;
    ASSERT_EQ(kept.size(), Handover::kMaxArguments);
    EXPECT_EQ(kept.front().size(), Handover::kMaxText);
}

TEST(HandoverTest, AStateReplacesTheOneBefore) {
    Handover handover;
    int published = 0;
    handover.OnPublished([&] { ++published; });
    handover.Publish("1");
    const auto kept = handover.State();
    handover.Publish("2");
    EXPECT_EQ(*kept, "1");
    EXPECT_EQ(*handover.State(), "2");
    handover.Announce();
    EXPECT_EQ(published, 3);
    handover.OnPublished(nullptr);
    handover.Publish("3");
    EXPECT_EQ(published, 3);
}

TEST(HandoverTest, NothingIsLostBetweenTwoThreads) {
    Handover handover;
    constexpr int kRequests = 20000;
    int done = 0;
    std::atomic<bool> asked{false};
    std::thread asking([&] {
        for (int i = 0; i < kRequests;) {
            const bool taken = handover.Ask({[&done] {
                                                 ++done;
                                                 return Reply{};
                                             },
                                             [](const Reply&) {}});
            if (taken) {
                ++i;
            } else {
                std::this_thread::yield();
            }
        }
        asked = true;
    });
    while (!asked || IsReadable(handover.Descriptor())) {
        for (const Request& request : handover.TakeRequests()) CarryOut(request);
    }
    asking.join();
    EXPECT_EQ(done, kRequests);
}

}  // namespace
