#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>

#include "Waiting.h"
#include "tavos/osa/Mutex.h"

using namespace std::chrono_literals;
using tavos::osa::Mutex;

namespace {

TEST(MutexTest, WaitsNoLongerThanItsTimeout) {
    Mutex mutex("Test");
    EXPECT_EQ(mutex.Name(), "Test");
    ASSERT_TRUE(mutex.Lock(0));
    bool locked = true;
    std::chrono::milliseconds time{};
    std::thread([&] { time = TimeOf([&] { locked = mutex.Lock(100); }); }).join();
    EXPECT_FALSE(locked);
    EXPECT_GE(time, 100ms);
    EXPECT_LT(time, 5s);
    mutex.Release();
    std::thread([&] {
        locked = mutex.Lock(0);
        if (locked) mutex.Release();
    }).join();
    EXPECT_TRUE(locked);
}

TEST(MutexTest, WaitsForever) {
    Mutex mutex("Test");
    ASSERT_TRUE(mutex.Lock(tavos::osa::kWaitForever));
    std::atomic<bool> locked{false};
    std::thread waiting([&] {
        locked = mutex.Lock(0xFFFFFFFF);
        mutex.Release();
    });
    EXPECT_FALSE(Eventually([&] { return locked.load(); }, 100ms));
    mutex.Release();
    waiting.join();
    EXPECT_TRUE(locked);
}

}  // namespace
