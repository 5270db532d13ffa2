#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <type_traits>

#include "core/ScalarRegistration.h"
#include "device/IdentityHandlers.h"
#include "io/OrvexSnmpAlarm.h"
#include "io/OrvexSnmpPressure.h"
#include "io/OrvexSnmpRelay.h"
#include "lens/OrvexSnmpFocus.h"
#include "lens/OrvexSnmpIris.h"
#include "lens/OrvexSnmpWiper.h"
#include "lens/OrvexSnmpZoom.h"
#include "motion/OrvexSnmpPan.h"
#include "motion/OrvexSnmpPresets.h"
#include "motion/OrvexSnmpTilt.h"
#include "sensors/OrvexSnmpPower.h"
#include "sensors/OrvexSnmpTemp.h"
#include "sensors/OrvexSnmpVoltage.h"
#include "support/ModuleTest.h"

namespace {

const std::string kPrivate = ".1.3.6.1.4.1." + std::to_string(ORVEX_ENTERPRISE_NUMBER) + ".1.1";
const std::string kGlobal = ".1.3.6.1.4.1.1206.4.2.6.1";
const std::string kCctv = ".1.3.6.1.4.1.1206.4.2.7";

constexpr int kRo = 1;
constexpr int kRw = 3;

struct ExpectedRow {
    const char* name;
    std::string objectId;
    Netsnmp_Node_Handler* handler;
    int access;
    int enabled = 1;
};

const ExpectedRow kRows[] = {
    {"modelNumber", kPrivate + ".1.0", handle_modelNumber, kRo},
    {"modelName", kPrivate + ".2.0", handle_modelName, kRo},
    {"serialNumber", kPrivate + ".3.0", handle_serialNumber, kRo},
    {"fwVersion", kPrivate + ".4.0", handle_fwVersion, kRo},
    {"swVersion", kPrivate + ".5.0", handle_fwVersion, kRo},
    {"hwVersion", kPrivate + ".6.0", handle_hwVersion, kRo},
    {"temperature", kPrivate + ".7.0", OrvexSnmpBaseProvider<OrvexSnmpTemp>::MibIntHandler, kRo, 0},
    {"power", kPrivate + ".8.0", OrvexSnmpBaseProvider<OrvexSnmpPower>::MibIntHandler, kRo, 0},
    {"voltage", kPrivate + ".9.0", OrvexSnmpBaseProvider<OrvexSnmpVoltage>::MibIntHandler, kRo, 0},
    {"globalMaxModules", kGlobal + ".2.0", handle_globalMaxModules, kRo},
    {"moduleNumber", kGlobal + ".3.1.1.1", handle_moduleNumber, kRo},
    {"moduleDeviceNode", kGlobal + ".3.1.2.1", handle_moduleDeviceNode, kRo},
    {"moduleMake", kGlobal + ".3.1.3.1", handle_moduleMake, kRo},
    {"moduleModel", kGlobal + ".3.1.4.1", handle_moduleModel, kRo},
    {"moduleVersion", kGlobal + ".3.1.5.1", handle_moduleVersion, kRo},
    {"moduleType", kGlobal + ".3.1.6.1", handle_moduleType, kRo},
    {"rangeMaximumPreset", kCctv + ".1.1.0", OrvexSnmpPresets::handle_rangeMaximumPreset, kRo},
    {"rangePanLeftLimit", kCctv + ".1.2.0", OrvexSnmpPan::handle_rangePanLeftLimit, kRo},
    {"rangePanRightLimit", kCctv + ".1.3.0", OrvexSnmpPan::handle_rangePanRightLimit, kRo},
    {"rangePanHomePosition", kCctv + ".1.4.0", OrvexSnmpPan::handle_rangePanHomePosition, kRo},
    {"rangeTrueNorthOffset", kCctv + ".1.5.0", OrvexSnmpPan::handle_rangeTrueNorthOffset, kRw},
    {"rangeTiltUpLimit", kCctv + ".1.6.0", OrvexSnmpTilt::handle_rangeTiltUpLimit, kRo},
    {"rangeTiltDownLimit", kCctv + ".1.7.0", OrvexSnmpTilt::handle_rangeTiltDownLimit, kRo},
    {"rangeZoomLimit", kCctv + ".1.8.0", OrvexSnmpZoom::handle_rangeZoomLimit, kRo},
    {"rangeFocusLimit", kCctv + ".1.9.0", OrvexSnmpFocus::handle_rangeFocusLimit, kRo},
    {"rangeIrisLimit", kCctv + ".1.10.0", OrvexSnmpIris::handle_rangeIrisLimit, kRo},
    {"rangeMinimumPanStepAngle", kCctv + ".1.11.0", OrvexSnmpPan::handle_rangeMinimumPanStepAngle, kRo},
    {"rangeMinimumTiltStepAngle", kCctv + ".1.12.0", OrvexSnmpTilt::handle_rangeMinimumTiltStepAngle, kRo},
    {"timeoutPan", kCctv + ".2.1.0", OrvexSnmpPan::handle_timeoutPan, kRw},
    {"timeoutTilt", kCctv + ".2.2.0", OrvexSnmpTilt::handle_timeoutTilt, kRw},
    {"timeoutZoom", kCctv + ".2.3.0", OrvexSnmpZoom::handle_timeoutZoom, kRw},
    {"timeoutFocus", kCctv + ".2.4.0", OrvexSnmpFocus::handle_timeoutFocus, kRw},
    {"timeoutIris", kCctv + ".2.5.0", OrvexSnmpIris::handle_timeoutIris, kRw},
    {"presetGotoPosition", kCctv + ".3.1.0", OrvexSnmpPresets::handle_presetGotoPosition, kRw},
    {"presetStorePosition", kCctv + ".3.2.0", OrvexSnmpPresets::handle_presetStorePosition, kRw},
    {"positionPan", kCctv + ".4.1.0", OrvexSnmpPan::handle_positionPan, kRw},
    {"positionTilt", kCctv + ".4.2.0", OrvexSnmpTilt::handle_positionTilt, kRw},
    {"positionZoomLens", kCctv + ".4.3.0", OrvexSnmpZoom::handle_positionZoomLens, kRw},
    {"positionFocusLens", kCctv + ".4.4.0", OrvexSnmpFocus::handle_positionFocusLens, kRw},
    {"positionIrisLens", kCctv + ".4.5.0", OrvexSnmpIris::handle_positionIrisLens, kRw},
    {"systemCameraFeatureControl", kCctv + ".5.1.0", OrvexSnmpWiper::handle_systemCameraFeatureControl, kRw},
    {"systemCameraFeatureStatus", kCctv + ".5.2.0", OrvexSnmpWiper::handle_systemCameraFeatureStatus, kRo},
    {"systemCameraEquipped", kCctv + ".5.3.0", OrvexSnmpWiper::handle_systemCameraEquipped, kRw},
    {"systemLensFeatureControl", kCctv + ".5.4.0", OrvexSnmpFocus::handle_systemLensFeatureControl, kRw},
    {"systemLensFeatureStatus", kCctv + ".5.5.0", OrvexSnmpFocus::handle_systemLensFeatureStatus, kRo},
    {"systemLensEquipped", kCctv + ".5.6.0", OrvexSnmpFocus::handle_systemLensEquipped, kRw},
    {"alarmStatus", kCctv + ".6.1.0", OrvexSnmpPressure::handle_alarmStatus, kRo},
    {"inputStatus", kCctv + ".7.1.0", OrvexSnmpAlarm::handle_inputStatus, kRo},
    {"outputStatus", kCctv + ".8.1.0", OrvexSnmpRelay::handle_outputStatus, kRo},
    {"outputControl", kCctv + ".8.2.0", OrvexSnmpRelay::handle_outputControl, kRw},
};

TEST(ScalarTableTest, HasFiftyRows) {
    EXPECT_EQ(ScalarTable().size(), 50u);
    EXPECT_EQ(std::size(kRows), 50u);
}

class ScalarRowTest : public testing::TestWithParam<std::size_t> {
protected:
    const ExpectedRow& _expected = kRows[GetParam()];
    const ScalarRegistration& _row = ScalarTable()[GetParam()];
};

TEST_P(ScalarRowTest, StandsAsManagersAndTheAgentKnowIt) {
    EXPECT_STREQ(_row.name, _expected.name);
    EXPECT_EQ(OidText(_row.objectId, _row.oidLength), _expected.objectId);
    EXPECT_EQ(_row.handler, _expected.handler);
    EXPECT_EQ(_row.access, _expected.access);
    EXPECT_EQ(_row.enabled, _expected.enabled);
    EXPECT_EQ(_row.registrationResult, 0);
}

TEST_P(ScalarRowTest, PadsItsNameWithZerosTo32Characters) {
    static_assert(sizeof _row.name == 32);
    const std::size_t length = std::string(_expected.name).size();
    for (std::size_t i = length; i < sizeof _row.name; ++i) EXPECT_EQ(_row.name[i], '\0') << i;
}

INSTANTIATE_TEST_SUITE_P(All, ScalarRowTest, testing::Range<std::size_t>(0, std::size(kRows)),
                         [](const auto& row) { return std::string(kRows[row.param].name); });

TEST(ScalarTableTest, RowsBeginWithTheLengthAndEndWithTheAccess) {
    EXPECT_EQ(offsetof(ScalarRegistration, oidLength), 0u);
    EXPECT_LT(offsetof(ScalarRegistration, oidLength), offsetof(ScalarRegistration, handler));
    EXPECT_LT(offsetof(ScalarRegistration, handler), offsetof(ScalarRegistration, name));
    EXPECT_LT(offsetof(ScalarRegistration, name), offsetof(ScalarRegistration, registrationResult));
    EXPECT_LT(offsetof(ScalarRegistration, registrationResult), offsetof(ScalarRegistration, objectId));
    EXPECT_LT(offsetof(ScalarRegistration, objectId), offsetof(ScalarRegistration, enabled));
    EXPECT_LT(offsetof(ScalarRegistration, enabled), offsetof(ScalarRegistration, access));
    static_assert(sizeof(ScalarRegistration::enabled) == 1);
    static_assert(std::is_same_v<decltype(ScalarRegistration::registrationResult), std::int32_t>);
    static_assert(std::is_same_v<decltype(ScalarRegistration::oidLength), std::uint32_t>);
}

TEST(ScalarTableTest, DoesNotServeGlobalSetIDParameter) {
    const auto unserved =
        OidText(OrvexSnmpOid::oid_globalSetIDParameter, OID_LENGTH(OrvexSnmpOid::oid_globalSetIDParameter));
    for (const auto& row : ScalarTable()) EXPECT_NE(OidText(row.objectId, row.oidLength), unserved);
}

// --- the availability of the sensors ---

class SensorAvailabilityTest : public ModuleTest {
protected:
    SensorAvailabilityTest() { journal::Clear(); }
    ~SensorAvailabilityTest() override { ScalarTable() = _before; }

    static ScalarRegistration& Row(const std::string& name) {
        return *std::find_if(ScalarTable().begin(), ScalarTable().end(),
                             [&](const auto& row) { return name == row.name; });
    }

    static int Enabled(const std::string& name) { return Row(name).enabled; }

    /// Gives a row that no sensor knows another name.
    static ScalarRegistration& Rename(const char* name) {
        auto& row = ScalarTable()[33];
        std::fill(std::begin(row.name), std::end(row.name), '\0');
        std::copy(name, name + std::char_traits<char>::length(name), row.name);
        return row;
    }

    const std::array<ScalarRegistration, kScalarCount> _before = ScalarTable();
    tavos::msgbus::MsgBus _bus;
    OrvexSnmpTemp _temp{_bus};
    OrvexSnmpPower _power{_bus};
    OrvexSnmpVoltage _voltage{_bus};
};

TEST_F(SensorAvailabilityTest, EnablesEverySensorThatAnswers) {
    ApplySensorAvailability();
    EXPECT_EQ(Enabled("temperature"), 1);
    EXPECT_EQ(Enabled("power"), 1);
    EXPECT_EQ(Enabled("voltage"), 1);
}

TEST_F(SensorAvailabilityTest, AsksPowerThenVoltageThenTemperatureOnceEach) {
    ApplySensorAvailability();
    EXPECT_THAT(journal::Calls(), ElementsAre("power GetPowerStatus", "voltage GetVoltageStatus",
                                              "temperature GetTemperatureDegreesCelsius 0"));
}

TEST_F(SensorAvailabilityTest, DisablesOnlyTheSensorWhoseServiceFails) {
    const struct {
        const char* operation;
        const char* row;
    } cases[] = {{"power.GetPowerStatus", "power"},
                 {"voltage.GetVoltageStatus", "voltage"},
                 {"temperature.GetTemperatureDegreesCelsius", "temperature"}};
    for (const bool throwsInt : {false, true}) {
        for (const auto& failing : cases) {
            Camera().failing = {failing.operation};
            Camera().throwsInt = throwsInt;
            ApplySensorAvailability();
            for (const auto& sensor : cases) EXPECT_EQ(Enabled(sensor.row), sensor.row == failing.row ? 0 : 1);
        }
    }
}

TEST_F(SensorAvailabilityTest, TakesMinusOneAsNoReadingOfPowerAndVoltageButAsATemperature) {
    Camera().power = -1;
    Camera().voltage = -1;
    Camera().temperature = -1;
    ApplySensorAvailability();
    EXPECT_EQ(Enabled("power"), 0);
    EXPECT_EQ(Enabled("voltage"), 0);
    EXPECT_EQ(Enabled("temperature"), 1);
}

TEST_F(SensorAvailabilityTest, LooksAtEachSensorsOwnReading) {
    Camera().power = -1;
    ApplySensorAvailability();
    EXPECT_EQ(Enabled("power"), 0);
    EXPECT_EQ(Enabled("voltage"), 1);

    Camera().power = 0;
    Camera().voltage = -1;
    ApplySensorAvailability();
    EXPECT_EQ(Enabled("power"), 1);
    EXPECT_EQ(Enabled("voltage"), 0);
}

TEST_F(SensorAvailabilityTest, TakesEveryOtherReadingAsAnAnswer) {
    for (const int reading : {0, 1, -2, 255}) {
        Camera().power = reading;
        Camera().voltage = reading;
        ApplySensorAvailability();
        EXPECT_EQ(Enabled("power"), 1) << reading;
        EXPECT_EQ(Enabled("voltage"), 1) << reading;
    }
}

TEST_F(SensorAvailabilityTest, LeavesAllOtherRowsAlone) {
    ScalarTable()[0].enabled = 0;
    Camera().failing = {"power.GetPowerStatus", "voltage.GetVoltageStatus", "temperature.GetTemperatureDegreesCelsius"};
    ApplySensorAvailability();
    for (std::size_t i = 0; i < kScalarCount; ++i) {
        EXPECT_EQ(ScalarTable()[i].enabled, i == 0 || (i >= 6 && i <= 8) ? 0 : 1) << ScalarTable()[i].name;
    }
}

TEST_F(SensorAvailabilityTest, KnowsRowsByTheBeginningsOfTheirNames) {
    Camera().failing = {"power.GetPowerStatus", "voltage.GetVoltageStatus", "temperature.GetTemperatureDegreesCelsius"};
    for (const char* name : {"temperature", "temperatureOfTheHousing", "voltage", "voltages", "power", "powerSupply"}) {
        auto& row = Rename(name);
        row.enabled = 1;
        ApplySensorAvailability();
        EXPECT_EQ(row.enabled, 0) << name;
    }
    for (const char* name : {"temperatur", "voltag", "powe", "Power", "myPower", "preset", "presetsX"}) {
        auto& row = Rename(name);
        row.enabled = 1;
        ApplySensorAvailability();
        EXPECT_EQ(row.enabled, 1) << name;
    }
}

TEST_F(SensorAvailabilityTest, AlwaysEnablesRowsNamedPresets) {
    auto& row = Rename("presets");
    row.enabled = 0;
    ApplySensorAvailability();
    EXPECT_EQ(row.enabled, 1);

    Rename("presetGotoPosition").enabled = 0;
    ApplySensorAvailability();
    EXPECT_EQ(row.enabled, 0);
}

}  // namespace
