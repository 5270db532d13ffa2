#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "frame/ScalarRegistration.h"
#include "sensors/OrvexSnmpPower.h"
#include "sensors/OrvexSnmpTemp.h"
#include "sensors/OrvexSnmpVoltage.h"
#include "support/ModuleTest.h"
#include "support/Rows.h"

namespace {

/// The order of registration, which the agent's log shows: the private objects by their OIDs, then those of NTCIP 1201
/// and 1205 by theirs.
std::pair<bool, std::vector<oid>> SortKey(const ScalarRegistration& row) {
    return {row.objectId[6] != ORVEX_ENTERPRISE_NUMBER, {row.objectId, row.objectId + row.oidLength}};
}

TEST(ScalarTableTest, HasThePrivateObjectsFirstAndEachPartByItsOids) {
    for (std::size_t i = 1; i < kScalarCount; ++i) {
        EXPECT_LT(SortKey(ScalarTable()[i - 1]), SortKey(ScalarTable()[i])) << ScalarTable()[i].name;
    }
}

TEST(ScalarTableTest, IsReadyForTheAgentWithTheSensorsOff) {
    for (const auto& row : ScalarTable()) {
        SCOPED_TRACE(row.name);
        const std::string name = row.name;
        EXPECT_NE(row.handler, nullptr);
        EXPECT_TRUE(row.access == HANDLER_CAN_RONLY || row.access == HANDLER_CAN_RWRITE);
        EXPECT_EQ(row.enabled, name == "temperature" || name == "power" || name == "voltage" ? 0 : 1);
        EXPECT_EQ(row.registrationResult, 0);
        static_assert(sizeof row.name == 32);
        EXPECT_EQ(std::string(row.name, 32), name + std::string(32 - name.size(), '\0'));
    }
}

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

    static int Enabled(const std::string& name) { return RowOf(name).enabled; }

    /// Renames a row that belongs to no sensor.
    static ScalarRegistration& Rename(const char* name) {
        auto& row = ScalarTable().back();
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
    Camera().answers["power.GetPowerStatus"] = -1;
    Camera().answers["voltage.GetVoltageStatus"] = -1;
    Camera().answers["temperature.GetTemperatureDegreesCelsius"] = -1;
    ApplySensorAvailability();
    EXPECT_EQ(Enabled("power"), 0);
    EXPECT_EQ(Enabled("voltage"), 0);
    EXPECT_EQ(Enabled("temperature"), 1);
}

TEST_F(SensorAvailabilityTest, LooksAtEachSensorsOwnReading) {
    Camera().answers["power.GetPowerStatus"] = -1;
    ApplySensorAvailability();
    EXPECT_EQ(Enabled("power"), 0);
    EXPECT_EQ(Enabled("voltage"), 1);

    Camera().answers["power.GetPowerStatus"] = 0;
    Camera().answers["voltage.GetVoltageStatus"] = -1;
    ApplySensorAvailability();
    EXPECT_EQ(Enabled("power"), 1);
    EXPECT_EQ(Enabled("voltage"), 0);
}

TEST_F(SensorAvailabilityTest, TakesEveryOtherReadingAsAnAnswer) {
    for (const int reading : {0, 1, -2, 255}) {
        Camera().answers["power.GetPowerStatus"] = reading;
        Camera().answers["voltage.GetVoltageStatus"] = reading;
        ApplySensorAvailability();
        EXPECT_EQ(Enabled("power"), 1) << reading;
        EXPECT_EQ(Enabled("voltage"), 1) << reading;
    }
}

TEST_F(SensorAvailabilityTest, LeavesAllOtherRowsAlone) {
    RowOf("modelNumber").enabled = 0;
    Camera().failing = {"power.GetPowerStatus", "voltage.GetVoltageStatus", "temperature.GetTemperatureDegreesCelsius"};
    ApplySensorAvailability();
    for (const auto& row : ScalarTable()) {
        const std::string name = row.name;
        const bool off = name == "modelNumber" || name == "temperature" || name == "power" || name == "voltage";
        EXPECT_EQ(row.enabled, off ? 0 : 1) << name;
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
