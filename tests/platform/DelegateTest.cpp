#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tavos/core/Delegate.h"
#include "tavos/core/Event.h"
#include "tavos/osa/Exception.h"

using tavos::core::CreateDelegate;
using testing::ElementsAre;

namespace {

std::vector<std::string> g_calls;

struct Receiver {
    explicit Receiver(std::string receiverName) : name(std::move(receiverName)) {}
    void One(int a) { g_calls.push_back(name + " " + std::to_string(a)); }
    void Two(int a, int b) { g_calls.push_back(name + " " + std::to_string(a) + " " + std::to_string(b)); }
    std::string name;
};

class DelegateTest : public testing::Test {
protected:
    DelegateTest() { g_calls.clear(); }
    Receiver x{"x"};
    Receiver y{"y"};
};

TEST_F(DelegateTest, HandlersRunInTheOrderOfTheirAdding) {
    tavos::core::Event2<int, int> event;
    event.Fire(0, 0);  // no handler
    event.AddHandler(CreateDelegate(&y, &Receiver::Two));
    event.AddHandler(CreateDelegate(&x, &Receiver::Two));
    event.AddHandler(CreateDelegate(&y, &Receiver::Two));
    event.Fire(1, -2);
    EXPECT_THAT(g_calls, ElementsAre("y 1 -2", "x 1 -2", "y 1 -2"));
}

TEST_F(DelegateTest, RemoveHandlersTakesAllOfOneObject) {
    tavos::core::Event1<int> event;
    event.AddHandler(CreateDelegate(&x, &Receiver::One));
    event.AddHandler(CreateDelegate(&y, &Receiver::One));
    event.AddHandler(CreateDelegate(&x, &Receiver::One));
    event.RemoveHandlers(&x);
    event.Fire(3);
    EXPECT_THAT(g_calls, ElementsAre("y 3"));
    event.RemoveHandlers(&y);
    event.Fire(4);
    EXPECT_THAT(g_calls, ElementsAre("y 3"));
}

TEST_F(DelegateTest, ADelegateMatchesItsObjectOnly) {
    const std::unique_ptr<tavos::core::IVoidDelegate1<int>> delegate(CreateDelegate(&x, &Receiver::One));
    EXPECT_TRUE(delegate->Matches(&x));
    EXPECT_FALSE(delegate->Matches(&y));
    EXPECT_FALSE(delegate->Matches(nullptr));
}

TEST(ExceptionTest, IsFormattedAsPrintfDoes) {
    EXPECT_STREQ(tavos::osa::Exception("%s: %d of %u (%.1f)", "bank", -1, 7U, 2.25).what(), "bank: -1 of 7 (2.2)");
    const std::string longText(5000, 'x');
    EXPECT_EQ(tavos::osa::Exception("%s", longText.c_str()).what(), longText);
    EXPECT_STREQ(tavos::osa::Exception("%s", "").what(), "");
}

}  // namespace
