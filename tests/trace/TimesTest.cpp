#include <gtest/gtest.h>
#include <sys/types.h>

#include <ctime>

#include "trace/reader/Times.h"

namespace {

// With the defaults of a 32-bit target stat() would fail for large files and file numbers, and time would end in 2038.
static_assert(sizeof(off_t) == 8 && sizeof(ino_t) == 8 && sizeof(std::time_t) == 8);

TEST(TimesTest, TimeGoesOnAfterJanuary2038) {
    EXPECT_EQ(trace::IsoTime(4102444799'000001000), "2099-12-31T23:59:59.000001Z");
}

}  // namespace
