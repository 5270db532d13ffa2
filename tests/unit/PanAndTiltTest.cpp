// What pan and tilt do alike. OrvexSnmpPanTest.cpp and OrvexSnmpTiltTest.cpp have what only one of them does.
#include <cstring>

#include "support/CameraTest.h"
#include "support/Words.h"

namespace {

/// A delta.
struct Step {
    int from;  ///< platform units
    int position;
    int speed;
    int logged;  ///< NTCIP
    int sent;    ///< platform units
};

/// The differences between the two axes.
struct PanAxis {
    using Provider = OrvexSnmpPan;
    static constexpr auto kName = "pan";
    static constexpr auto kObject = "positionPan";
    static constexpr auto kForward = "positive clockwise";
    static constexpr auto kBackward = "negative counter-clockwise";
    static constexpr Step kSteps[] = {
        {100005, 500, 10, 10500, 105000}, {10000, 2000, -10, -1000, -370000}, {300000, 10000, 10, 40000, 40000},
        {300000, 5999, 0, 35999, 359990}, {300000, 6000, 127, 36000, 0},      {0, 0, -1, 0, 0},
        {9, 1, -1, -1, -360010},          {359999, 65535, 1, 101534, 655340}, {359999, 35999, -127, 0, 0},
        {720000, 0, 1, 72000, 360000},    {720000, 100, -1, 71900, 359000},
    };
    static constexpr auto kLast = &Provider::GetLastPan;
    static constexpr auto kSetLast = &Provider::SetLastPan;
    static double& Position() { return Camera().answers["pan.GetPosition"]; }
};

struct TiltAxis {
    using Provider = OrvexSnmpTilt;
    static constexpr auto kName = "tilt";
    static constexpr auto kObject = "positionTilt";
    static constexpr auto kForward = "upward";
    static constexpr auto kBackward = "downward";
    // The platform's angle is taken for an NTCIP position; only the target is mapped.
    static constexpr Step kSteps[] = {
        {45000, 1000, 10, 5500, 55000},
        {45009, 1000, 0, 5500, 55000},
        {5000, 1000, -10, -500, -365000},
        {45000, 4500, 1, 9000, 0},
        {45000, 22500, 1, 27000, -90000},
        {45000, 31499, 1, 35999, -10},
        {45000, 31500, 1, 36000, 0},
        {45000, 4500, -1, 0, 0},
        {0, 0, -1, 0, 0},
        {0, 65535, 127, 65535, -64650},
        {0, 65535, -127, -65535, -1015350},
    };
    static constexpr auto kLast = &Provider::GetLastTilt;
    static constexpr auto kSetLast = &Provider::SetLastTilt;
    static double& Position() { return Camera().answers["tilt.GetPosition"]; }
};

template <class Axis>
class PanAndTiltTest : public MotionTest<typename Axis::Provider> {
protected:
    PanAndTiltTest() : MotionTest<typename Axis::Provider>(Axis::kObject) {}

    std::string Text(const std::string& text) const { return _words.Text(text); }
    /// All lines of positionPan or positionTilt, with these in between.
    Lines Handled(const Lines& between) const { return ::Handled(this->_object.Handler(), _words.All(between)); }

private:
    const Words _words{"axis", Axis::kName};
};

using Axes = testing::Types<PanAxis, TiltAxis>;
TYPED_TEST_SUITE(PanAndTiltTest, Axes, KindNames);

TYPED_TEST(PanAndTiltTest, TheSpeedBelowMinus127IsRefusedBeforeThePositionWithoutACallOrAnExitTrace) {
    EXPECT_EQ(this->_provider.SetPositionAtSpeed(36000, -128), -1);
    EXPECT_THAT(Done(), ElementsAre("8 SetPositionAtSpeed: Enter.",
                                    "6 SetPositionAtSpeed: NTCIP speed -128 outside range of -127 to +127"));
    journal::Clear();
    EXPECT_EQ(this->_provider.SetRelativeVelocity(-128), -1);
    EXPECT_THAT(Done(), ElementsAre("8 SetRelativeVelocity: Enter.",
                                    "6 SetRelativeVelocity: NTCIP speed -128 outside range of -127 to +127"));
}

TYPED_TEST(PanAndTiltTest, TheServiceGetsASpeedAsAFractionInDoublePrecision) {
    for (int speed = -127; speed <= 127; ++speed) {
        journal::Clear();
        EXPECT_EQ(this->_provider.SetRelativeVelocity(speed), 0);
        EXPECT_THAT(journal::Calls(),
                    ElementsAre(journal::Join(this->Text("<axis> SetRelativeVelocity"), speed / 127.0, 300)));
    }
}

TYPED_TEST(PanAndTiltTest, AbsoluteCommandsOfAWholeTurnAreRefused) {
    EXPECT_EQ(this->Command({2, 0x10, 0x8C, 0xA0}), SNMP_ERR_GENERR);
    EXPECT_EQ(Done(), this->Handled({"6 handle_position<Axis>: absolute <axis> (2)",
                                     "3 handle_position<Axis>: absolute <axis> position=36000 outside range"}));
    EXPECT_EQ(this->Command({2, 0x80, 0xFF, 0xFF}), SNMP_ERR_GENERR);
    EXPECT_THAT(journal::Logged(3),
                ElementsAre(this->Text("handle_position<Axis>: absolute <axis> position=65535 outside range")));
    EXPECT_THAT(journal::Calls(), IsEmpty());
}

TYPED_TEST(PanAndTiltTest, StopCommandsVelocityZero) {
    EXPECT_EQ(this->Command({0, 0, 0x12, 0x34}), SNMP_ERR_NOERROR);
    EXPECT_EQ(Done(),
              this->Handled(
                  {"6 handle_position<Axis>: stop <axis> (0)", "8 SetRelativeVelocity: Enter.",
                   "6 SetRelativeVelocity: NTCIP speed 0, tavosSpeed 0.000000", "call <axis> SetRelativeVelocity 0 300",
                   "6 SetRelativeVelocity: SetRelativeVelocity(0.000000,300)", "8 SetRelativeVelocity: Done."}));
}

TYPED_TEST(PanAndTiltTest, StopWithASpeedIsRefusedWithTheSignedSpeed) {
    EXPECT_EQ(this->Command({0, 1, 0, 0}), SNMP_ERR_GENERR);
    EXPECT_EQ(Done(), this->Handled({"6 handle_position<Axis>: stop <axis> (0)",
                                     "3 handle_position<Axis>: stop <axis> speed not zero(1)"}));
    EXPECT_EQ(this->Command({0, 0xFF, 0, 0}), SNMP_ERR_GENERR);
    EXPECT_THAT(journal::Logged(3), ElementsAre(this->Text("handle_position<Axis>: stop <axis> speed not zero(-1)")));
}

TYPED_TEST(PanAndTiltTest, ContinuousCommandsTheVelocityAndLogsTheModeAsTheAxis) {
    EXPECT_EQ(this->Command({3, 0xF6, 0xFF, 0xFF}), SNMP_ERR_NOERROR);
    EXPECT_EQ(
        Done(),
        this->Handled({"6 handle_position<Axis>: continuous <axis>=3, speed=-10", "8 SetRelativeVelocity: Enter.",
                       "6 SetRelativeVelocity: NTCIP speed -10, tavosSpeed -0.078740",
                       journal::Join("call <axis> SetRelativeVelocity", -10 / 127.0, 300),
                       "6 SetRelativeVelocity: SetRelativeVelocity(-0.078740,300)", "8 SetRelativeVelocity: Done."}));
}

TYPED_TEST(PanAndTiltTest, ContinuousAtMinus128IsDroppedWithoutAnError) {
    EXPECT_EQ(this->Command({3, 0x80, 0, 0}), SNMP_ERR_NOERROR);
    EXPECT_EQ(Done(), this->Handled({"6 handle_position<Axis>: continuous <axis>=3, speed=-128",
                                     "8 SetRelativeVelocity: Enter.",
                                     "6 SetRelativeVelocity: NTCIP speed -128 outside range of -127 to +127"}));
}

TYPED_TEST(PanAndTiltTest, DeltaStepsFromThePlatformsAngleAndTakesATurnOffOnce) {
    for (const auto& step : TypeParam::kSteps) {
        SCOPED_TRACE(journal::Join(step.from, step.position, step.speed));
        TypeParam::Position() = static_cast<std::uint32_t>(step.from);
        EXPECT_EQ(this->Command(1, step.speed, step.position), SNMP_ERR_NOERROR);
        const std::string direction = step.speed < 0 ? TypeParam::kBackward : TypeParam::kForward;
        EXPECT_THAT(journal::Logged(6), Contains(this->Text("handle_position<Axis>: <axis> ") + direction +
                                                 ",speed=" + std::to_string(step.speed) + this->Text(",new <axis>=") +
                                                 std::to_string(step.logged)));
        EXPECT_THAT(journal::Calls(),
                    ElementsAre(this->Text("<axis> GetPosition"), journal::Join(this->Text("<axis> SetPositionAtSpeed"),
                                                                                step.sent, step.speed / 127.0, 300)));
    }
}

TYPED_TEST(PanAndTiltTest, DeltaIsDroppedWhenThePositionCannotBeRead) {
    for (const auto thrown : kEveryThrow) {
        Fail(this->Text("<axis>.GetPosition"), thrown);
        EXPECT_EQ(this->Command({1, 10, 1, 0}), SNMP_ERR_NOERROR);
        EXPECT_EQ(Done(),
                  this->Handled({"6 handle_position<Axis>: delta <axis> (1)", "8 GetPosition: Enter.",
                                 "call <axis> GetPosition", "3 Exception while GetPosition", "8 GetPosition: Done."}));
    }
}

TYPED_TEST(PanAndTiltTest, TheLastCommandIsKeptInTheOrderOfItsOctets) {
    EXPECT_EQ((this->_provider.*TypeParam::kLast)(), 0);
    this->Command({2, 0x40, 0x46, 0x50});
    const int last = (this->_provider.*TypeParam::kLast)();
    u_char octets[4];
    std::memcpy(octets, &last, sizeof octets);
    EXPECT_THAT(octets, ElementsAre(2, 0x40, 0x46, 0x50));

    (this->_provider.*TypeParam::kSetLast)(0);
    SnmpRequest request(this->_object.oidName, this->_object.length);
    request.Call(this->_object.handler, MODE_GET);
    EXPECT_THAT(request.Octets(), ElementsAre(0, 0, 0, 0));
}

}  // namespace
