#include <gtest/gtest.h>

#include <string>
#include <type_traits>

#include "core/TextUtilities.h"

namespace {

constexpr auto kBlanks = " \t\n";

TEST(TrimTest, RemovesTheSetFromBothEndsAndKeepsItInside) {
    EXPECT_EQ(trim("  ab c \t\n", kBlanks), "ab c");
    EXPECT_EQ(trim("\t\n a\tb\nc", kBlanks), "a\tb\nc");
    EXPECT_EQ(trim("a", kBlanks), "a");
    EXPECT_EQ(trim("  a", kBlanks), "a");
    EXPECT_EQ(trim("a  ", kBlanks), "a");
}

TEST(TrimTest, LeavesATextWithoutTheSetAlone) {
    EXPECT_EQ(trim("abc", kBlanks), "abc");
    EXPECT_EQ(trim("a b", kBlanks), "a b");
}

TEST(TrimTest, GivesNothingForATextOfTheSetAlone) {
    EXPECT_EQ(trim("\n\n", kBlanks), "");
    EXPECT_EQ(trim(" ", kBlanks), "");
    EXPECT_EQ(trim("", kBlanks), "");
}

TEST(TrimTest, RemovesOnlyTheCharactersOfItsSet) {
    EXPECT_EQ(trim("\r\nab\r\n", kBlanks), "\r\nab\r");
    EXPECT_EQ(trim("xyaxyb yx", "xy"), "axyb ");
    EXPECT_EQ(trim(" ab ", ""), " ab ");
    EXPECT_EQ(trim("", ""), "");
}

TEST(TrimTest, ReturnsANewText) {
    const std::string text = " a ";
    const auto trimmed = trim(text, kBlanks);
    EXPECT_EQ(text, " a ");
    EXPECT_NE(trimmed.data(), text.data());
}

TEST(SwapEndianTest, ExchangesTheTwoBytes) {
    EXPECT_EQ(ushort_swap_endian(0x1234), 0x3412);
    EXPECT_EQ(ushort_swap_endian(0x00FF), 0xFF00);
    EXPECT_EQ(ushort_swap_endian(0x1200), 0x0012);
    EXPECT_EQ(ushort_swap_endian(0x8001), 0x0180);
    EXPECT_EQ(ushort_swap_endian(0xFFFF), 0xFFFF);
    EXPECT_EQ(ushort_swap_endian(0), 0);
}

TEST(SwapEndianTest, UndoesItselfForEveryValue) {
    for (unsigned value = 0; value <= 0xFFFF; ++value) {
        const auto once = ushort_swap_endian(static_cast<std::uint16_t>(value));
        ASSERT_EQ(once, ((value & 0xFF) << 8) | (value >> 8));
        ASSERT_EQ(ushort_swap_endian(once), value);
    }
}

static_assert(std::is_same_v<decltype(ushort_swap_endian(0)), std::uint16_t>);

}  // namespace
