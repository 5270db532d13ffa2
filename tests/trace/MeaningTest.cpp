#include <gtest/gtest.h>

#include "Records.h"
#include "trace/reader/Commands.h"
#include "trace/reader/Meaning.h"

namespace {

using trace::FactsOf;
using trace::ObjectFacts;
using trace::Value;

constexpr std::uint32_t kCctv[] = {1, 3, 6, 1, 4, 1, 1206, 4, 2, 7};

ObjectFacts Cctv(std::uint32_t group, std::uint32_t object) {
    trace::ObjectId id(std::begin(kCctv), std::end(kCctv));
    id.insert(id.end(), {group, object, 0});
    return FactsOf(id);
}

Value Octet(const std::string& hexadecimal) {
    Value value;
    value.type = trace::kOctetString;
    value.octets = Octets(hexadecimal);
    return value;
}

Value Number(std::int64_t number) {
    Value value;
    value.type = trace::kInteger;
    value.number = number;
    return value;
}

struct Case {
    std::uint32_t object;  // below the positions: 1 pan, 2 tilt, 3 zoom, 4 focus, 5 iris
    const char* octets;
    const char* words;
    const char* refused;  // the start of why the module refuses it
};

const Case kCases[] = {
    {1, "02 40 46 50", "go to 180.00° at 50 %, clockwise", ""},
    {1, "02 c0 46 50", "go to 180.00° at 50 %, counter-clockwise", ""},
    {1, "02 00 46 50", "go to 180.00° at the default speed, in the shorter direction", ""},
    {1, "02 40 8c 9f", "go to 359.99° at 50 %, clockwise", ""},
    {1, "02 40 8c a0", "go to 360.00° at 50 %, clockwise", "out of range: the position 36000 is above 35999"},
    {1, "01 81 00 64", "move by 1.00° counter-clockwise at 100 %", ""},
    {1, "03 7f 00 00", "move clockwise at 100 % until stopped", ""},
    {1, "03 00 00 00", "move on at the speed 0: come to rest", ""},
    {1, "03 80 00 00", "move counter-clockwise at 101 % until stopped (the speed is -128)", ""},
    {1, "00 00 00 00", "stop", ""},
    {1, "00 05 00 00", "stop, with the speed 5", "out of range: a stop has the speed 0, not 5"},
    {1, "04 00 00 00", "unknown mode 4", "unknown mode 4 (0 is stop"},
    {1, "", "stop", ""},
    {2, "02 40 03 e8", "go to 10.00° up at 50 %", ""},
    {2, "02 40 23 28", "go to the horizon (0.00°) at 50 %", ""},
    {2, "02 40 69 78", "go to 90.00° down at 50 %", ""},
    {2, "01 40 00 64", "move by 1.00° up at 50 %", ""},
    {3, "02 00 ff ff", "zoom to 100.0 % of the range", ""},
    {3, "01 ff 80 00", "zoom out by 50.0 % of the range", ""},
    {3, "01 01 80 00", "zoom out by 50.0 % of the range", ""},  // the step has a sign of its own
    {3, "03 00 00 00", "zoom in until stopped", ""},
    {3, "03 80 00 00", "zoom out until stopped (the speed is -128)", "out of range: the speed -128 is below -127"},
    {4, "02 00 80 00", "focus at 50.0 % of the range from near to far", ""},
    {4, "03 ff 00 00", "focus farther until stopped", ""},
    {5, "03 01 00 00", "close the iris until stopped", ""},
    {5, "03 ff 00 00", "open the iris until stopped", ""},
};

TEST(MeaningTest, PositionCommandsAreSaidInWordsAndRefusedAsTheModuleRefusesThem) {
    for (const Case& one : kCases) {
        const ObjectFacts object = Cctv(4, one.object);
        ASSERT_TRUE(IsPosition(object)) << one.object;
        const Value value = Octet(one.octets);
        EXPECT_EQ(one.words, trace::Meaning(object, value, true)) << one.octets;
        const std::string refused = trace::WhyRefused(object, value);
        EXPECT_EQ(one.refused, refused.substr(0, std::string(one.refused).size())) << one.octets;
        EXPECT_EQ(one.refused[0] == '\0', refused.empty()) << one.octets;
    }
}

TEST(MeaningTest, AReadCommandIsTheLastOne) {
    EXPECT_EQ("last command: stop", trace::Meaning(Cctv(4, 1), Octet("00 00 00 00"), false));
}

TEST(MeaningTest, FeaturesAndOutputsAreSaidInWords) {
    EXPECT_EQ("auto iris and auto focus on", trace::Meaning(Cctv(5, 4), Octet("c0 80"), true));
    EXPECT_EQ("auto focus off", trace::Meaning(Cctv(5, 4), Octet("40 00"), true));
    EXPECT_EQ("selects no feature", trace::Meaning(Cctv(5, 4), Octet("01 80"), true));
    EXPECT_EQ("energise relay 0 of BNK2", trace::Meaning(Cctv(8, 2), Octet("01 80"), true));
    EXPECT_EQ("release relay 0 of BNK2", trace::Meaning(Cctv(8, 2), Octet("01 00"), true));
    EXPECT_EQ("selects no relay", trace::Meaning(Cctv(8, 2), Octet("02 80"), true));
    EXPECT_EQ("go to preset 3", trace::Meaning(Cctv(3, 1), Number(3), true));
}

TEST(MeaningTest, AFrostyTemperatureHasItsSign) {
    const ObjectFacts object = FactsOf({1, 3, 6, 1, 4, 1, 32473, 1, 1, 7, 0});
    Value value = Number(4294967291);
    value.type = trace::kGauge32;
    EXPECT_EQ("-5 °C", trace::Meaning(object, value, false));
}

TEST(ObjectsTest, CellsAndNeighboursOfObjectsHaveNames) {
    EXPECT_EQ("relayStatesTable state 5", trace::NameOf({1, 3, 6, 1, 4, 1, 32473, 1, 3, 2, 1, 3, 5}));
    EXPECT_TRUE(FactsOf({1, 3, 6, 1, 4, 1, 32473, 1, 3, 2, 1, 3, 5}).isWritable);
    EXPECT_FALSE(FactsOf({1, 3, 6, 1, 4, 1, 32473, 1, 3, 2, 1, 3}).isInstance);
    const ObjectFacts below = FactsOf({1, 3, 6, 1, 4, 1, 1206, 4, 2, 7, 4, 1, 0, 0});
    EXPECT_EQ("positionPan.0.0", below.name);
    EXPECT_FALSE(below.isInstance);
    EXPECT_EQ("1.2.3", trace::NameOf({1, 2, 3}));
    EXPECT_EQ("", FactsOf({}).name);
}

TEST(ValueTest, OctetsOfTheCameraAreHexadecimalAndTextsAreTexts) {
    EXPECT_EQ("40", trace::ValueText(Cctv(5, 6), Octet("40")));  // "@" as a text
    EXPECT_EQ("Orvex", trace::ValueText(FactsOf({1, 3, 6, 1, 4, 1, 32473, 1, 1, 1, 0}), Octet("4f 72 76 65 78")));
    EXPECT_EQ("ff fe", trace::ValueText({}, Octet("ff fe")));
    EXPECT_FALSE(trace::IsText(Octets("c3")));
    EXPECT_TRUE(trace::IsText(Octets("c3 a9 0a")));
}

}  // namespace
