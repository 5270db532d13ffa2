#include <functional>
#include <memory>
#include <thread>

#include "sensors/OrvexSnmpPower.h"
#include "sensors/OrvexSnmpTemp.h"
#include "sensors/OrvexSnmpVoltage.h"
#include "support/StartedModule.h"

namespace {

const std::string kEnterprise = ".1.3.6.1.4.1." + std::to_string(ORVEX_ENTERPRISE_NUMBER);

/// The differences between the three sensors.
struct TemperatureSensor {
    using Provider = OrvexSnmpTemp;
    static constexpr auto kName = "OrvexSnmpTemp";
    static constexpr auto kService = "temperature";
    static constexpr auto kOperation = "temperature.GetTemperatureDegreesCelsius";
    static constexpr auto kCall = "call temperature GetTemperatureDegreesCelsius 0";
    static constexpr auto kReading = "GetTemperatureDegreesCelsius";
    static constexpr auto kFailure = "Exception while GetTemperatureDegreesCelsius";
    static constexpr bool kLogsItsExit = true;
    static constexpr u_char kType = ASN_GAUGE;
    static constexpr auto kTrapOid = ".1.1.7.0";
    static const oid (&Name())[11] { return OrvexSnmpOid::oid_temperature; }
    static void Fire(int value) { Camera().temperatureChange.Fire(0, value); }
    static void SendTrap(Provider& provider, int value) { provider.SendTemperatureTrap(0, value); }
};

struct VoltageSensor {
    using Provider = OrvexSnmpVoltage;
    static constexpr auto kName = "OrvexSnmpVoltage";
    static constexpr auto kService = "voltage";
    static constexpr auto kOperation = "voltage.GetVoltageStatus";
    static constexpr auto kCall = "call voltage GetVoltageStatus";
    static constexpr auto kReading = "GetVoltageStatus";
    static constexpr auto kFailure = "GetMibIntData: Exception in GetVoltageStatus call";
    static constexpr bool kLogsItsExit = true;
    static constexpr u_char kType = ASN_INTEGER;
    static constexpr auto kTrapOid = ".1.1.9.0";
    static const oid (&Name())[11] { return OrvexSnmpOid::oid_voltage; }
    static void Fire(int value) { Camera().voltageChange.Fire(value); }
    static void SendTrap(Provider& provider, int value) { provider.SendVoltageTrap(value); }
};

struct PowerSensor {
    using Provider = OrvexSnmpPower;
    static constexpr auto kName = "OrvexSnmpPower";
    static constexpr auto kService = "power";
    static constexpr auto kOperation = "power.GetPowerStatus";
    static constexpr auto kCall = "call power GetPowerStatus";
    static constexpr auto kReading = "GetPowerStatus";
    static constexpr auto kFailure = "GetMibIntData: Exception in GetPowerStatus call";
    static constexpr bool kLogsItsExit = false;
    static constexpr u_char kType = ASN_INTEGER;
    static constexpr auto kTrapOid = ".1.1.8.0";
    static const oid (&Name())[11] { return OrvexSnmpOid::oid_power; }
    static void Fire(int value) { Camera().powerChange.Fire(value); }
    static void SendTrap(Provider& provider, int value) { provider.SendPowerTrap(value); }
};

template <class Sensor>
Lines ReadingLines(int value) {
    Lines lines{"log 8 GetMibIntData: Enter.", Sensor::kCall,
                std::string("log 6 GetMibIntData: ") + Sensor::kReading + " returned " + std::to_string(value) + "."};
    if (Sensor::kLogsItsExit) lines.push_back("log 8 GetMibIntData: Done.");
    return lines;
}

template <class Sensor>
Lines FailureLines() {
    Lines lines{"log 8 GetMibIntData: Enter.", Sensor::kCall, std::string("log 3 ") + Sensor::kFailure};
    if (Sensor::kLogsItsExit) lines.push_back("log 8 GetMibIntData: Done.");
    return lines;
}

/// A sensor with a trap queue, as in the module.
template <class Sensor>
class SensorTest : public ModuleTest {
protected:
    using Provider = typename Sensor::Provider;

    SensorTest() { Make(); }
    ~SensorTest() override { OrvexSnmpTrapSend::ForgetInstance(); }

    void Make() {
        _provider = std::make_unique<Provider>(_bus);
        journal::Clear();
    }

    static int Call(SnmpRequest& request, int mode = MODE_GET) { return request.Call(&Provider::MibIntHandler, mode); }

    /// Like the agent's main loop when the descriptor is readable.
    static void RunAgent() { Agent().readCallback(Agent().readDescriptor, nullptr); }

    OrvexSnmpTrapSend _trapQueue;
    tavos::msgbus::MsgBus _bus;
    std::unique_ptr<Provider> _provider;
};

using Sensors = testing::Types<TemperatureSensor, VoltageSensor, PowerSensor>;
TYPED_TEST_SUITE(SensorTest, Sensors, KindNames);

TYPED_TEST(SensorTest, OpensItsClientBetweenItsTwoLinesAndDeletesIt) {
    this->_provider.reset();
    journal::Clear();
    this->_provider = std::make_unique<typename TypeParam::Provider>(this->_bus);
    EXPECT_EQ(TypeParam::Provider::GetInstance(), this->_provider.get());
    this->_provider.reset();
    EXPECT_EQ(TypeParam::Provider::GetInstance(), nullptr);
    const std::string className = TypeParam::kName;
    const std::string service = TypeParam::kService;
    EXPECT_THAT(journal::All(),
                ElementsAre("logger ClearAppenders", "logger ConfigureLogging log log.level=3 log.stdout=true",
                            "log 8 " + className + ": Enter", "bus CreateClient " + service,
                            "log 8 " + className + ": Done.", "bus DeleteClient " + service));
}

TYPED_TEST(SensorTest, ReadingComesWithItsType) {
    for (const int reading : {0, 42, -1, -40, 2147483647}) {
        journal::Clear();
        Camera().answers[TypeParam::kOperation] = reading;
        int value = 12345;
        unsigned char type = 0;
        EXPECT_EQ(this->_provider->GetMibIntData(value, type), 0);
        EXPECT_EQ(value, reading);
        EXPECT_EQ(type, TypeParam::kType);
        EXPECT_THAT(journal::All(), ElementsAreArray(ReadingLines<TypeParam>(reading)));
    }
}

TYPED_TEST(SensorTest, FailedReadingStillGivesTheTypeAndLeavesTheValueAlone) {
    Camera().failing = {TypeParam::kOperation};
    for (const bool throwsInt : {false, true}) {
        journal::Clear();
        Camera().throwsInt = throwsInt;
        int value = 12345;
        unsigned char type = 0;
        EXPECT_EQ(this->_provider->GetMibIntData(value, type), -1);
        EXPECT_EQ(value, 12345);
        EXPECT_EQ(type, TypeParam::kType);
        EXPECT_THAT(journal::All(), ElementsAreArray(FailureLines<TypeParam>()));
    }
}

TYPED_TEST(SensorTest, GetAnswersTheReadingInFourBytes) {
    Camera().answers[TypeParam::kOperation] = 37;
    SnmpRequest request(TypeParam::Name());
    EXPECT_EQ(this->Call(request), SNMP_ERR_NOERROR);
    EXPECT_EQ(request.Type(), TypeParam::kType);
    EXPECT_EQ(request.Integer(), 37);
    EXPECT_THAT(Agent().answers, ElementsAre(FakeAgent::Answer{TypeParam::kType, 4}));
    EXPECT_THAT(journal::All(),
                ElementsAreArray(Lines{"log 8 MibIntHandler: Enter.", "log 8 MibIntHandler: Received OID "} +
                                 ReadingLines<TypeParam>(37) + Lines{"log 8 MibIntHandler: Done."}));
}

TYPED_TEST(SensorTest, EveryGetAsksTheServiceAgain) {
    for (const int reading : {1, 2, 3}) {
        Camera().answers[TypeParam::kOperation] = reading;
        SnmpRequest request(TypeParam::Name());
        this->Call(request);
        EXPECT_EQ(request.Integer(), reading);
    }
    EXPECT_EQ(journal::All(TypeParam::kCall).size(), 3u);
}

TYPED_TEST(SensorTest, GetLogsTheRangeEndWhenThereIsOne) {
    SnmpRequest request(TypeParam::Name());
    request.WithRangeEnd({1, 3, 6, 1, 4, 1, ORVEX_ENTERPRISE_NUMBER, 1, 1, 10});
    this->Call(request);
    EXPECT_THAT(journal::Logged(8), Contains("MibIntHandler: Received OID " + kEnterprise + ".1.1.10"));
}

TYPED_TEST(SensorTest, FailedReadingIsAGeneralErrorWithoutAValue) {
    Camera().failing = {TypeParam::kOperation};
    SnmpRequest request(TypeParam::Name());
    EXPECT_EQ(this->Call(request), SNMP_ERR_GENERR);
    EXPECT_EQ(request.Type(), ASN_NULL);
    EXPECT_EQ(request.Mark(), 0);
    EXPECT_THAT(
        journal::All(),
        ElementsAreArray(Lines{"log 8 MibIntHandler: Enter.", "log 8 MibIntHandler: Received OID "} +
                         FailureLines<TypeParam>() +
                         Lines{"log 3 MibIntHandler: Exception in GetMibIntData call", "log 8 MibIntHandler: Done."}));
}

TYPED_TEST(SensorTest, EveryModeButGetIsRefusedGetNextToo) {
    const int otherModes[] = {MODE_GETNEXT,    MODE_SET_RESERVE1, MODE_SET_RESERVE2,
                              MODE_SET_ACTION, MODE_SET_COMMIT,   MODE_SET_FREE,
                              MODE_SET_UNDO,   MODE_GETBULK,      77};
    for (const int mode : otherModes) {
        journal::Clear();
        SnmpRequest request(TypeParam::Name());
        EXPECT_EQ(this->Call(request, mode), SNMP_ERR_GENERR);
        EXPECT_EQ(request.Type(), ASN_NULL);
        EXPECT_EQ(request.Mark(), 0);
        EXPECT_THAT(journal::All(), ElementsAre("log 8 MibIntHandler: Enter.", "log 8 MibIntHandler: Received OID ",
                                                "log 3 MibIntHandler: unknown mode (" + std::to_string(mode) + ")"));
    }
}

TYPED_TEST(SensorTest, ChangeBecomesOneTrapWithItsValueSentByTheAgent) {
    std::thread(TypeParam::Fire, 41).join();
    EXPECT_THAT(Agent().traps, IsEmpty());
    EXPECT_THAT(journal::All(), ElementsAre("log 8 send_v2trap: enter...", "log 8 send_v2trap: Done.",
                                            "log 6 SendTrap: trap sent to TrapSend object."));
    this->RunAgent();
    ASSERT_EQ(Agent().traps.size(), 1u);
    const auto& trap = Agent().traps[0];
    EXPECT_EQ(trap.bindings, 2u);
    EXPECT_EQ(trap.firstName, ".1.3.6.1.6.3.1.1.4.1.0");
    EXPECT_EQ(trap.firstType, ASN_OBJECT_ID);
    EXPECT_EQ(trap.trapOid, kEnterprise + TypeParam::kTrapOid);
    EXPECT_EQ(trap.name, kEnterprise + TypeParam::kTrapOid);
    EXPECT_EQ(trap.type, ASN_GAUGE);
    EXPECT_EQ(trap.value, 41u);
}

TYPED_TEST(SensorTest, EveryChangeIsATrapInItsOrderUnchangedOnesAndNegativeOnesToo) {
    for (const int value : {7, 7, -5, 0}) TypeParam::SendTrap(*this->_provider, value);
    this->RunAgent();
    std::vector<unsigned long> values;
    for (const auto& trap : Agent().traps) values.push_back(trap.value);
    EXPECT_THAT(values, ElementsAre(7u, 7u, 4294967291u, 0u));
}

TYPED_TEST(SensorTest, TrapDoesNotAskTheService) {
    TypeParam::Fire(3);
    this->RunAgent();
    EXPECT_THAT(journal::Calls(), IsEmpty());
}

using TemperatureTest = SensorTest<TemperatureSensor>;

TEST_F(TemperatureTest, FrostIsServedAsTheGaugeOfItsBits) {
    Camera().answers["temperature.GetTemperatureDegreesCelsius"] = -5;
    SnmpRequest request(OrvexSnmpOid::oid_temperature);
    EXPECT_EQ(Call(request), SNMP_ERR_NOERROR);
    EXPECT_EQ(request.Type(), ASN_GAUGE);
    EXPECT_EQ(static_cast<unsigned long>(request.Integer()) & 0xFFFFFFFF, 4294967291u);
}

TEST_F(TemperatureTest, ChangeOfAnotherSensorIsLoggedAndDropped) {
    for (const int sensor : {1, -1, 2}) {
        journal::Clear();
        Camera().temperatureChange.Fire(sensor, 60);
        EXPECT_THAT(journal::All(), ElementsAre("log 3 SendTemperatureTrap: Temp Change on sensor " +
                                                std::to_string(sensor) + ", only sensor 0 supported"));
    }
    RunAgent();
    EXPECT_THAT(Agent().traps, IsEmpty());
}

using VoltageTest = SensorTest<VoltageSensor>;

TEST_F(VoltageTest, NegativeStatusIsServedAsItIs) {
    Camera().answers["voltage.GetVoltageStatus"] = -2;
    SnmpRequest request(OrvexSnmpOid::oid_voltage);
    EXPECT_EQ(Call(request), SNMP_ERR_NOERROR);
    EXPECT_EQ(request.Integer(), -2);
}

using SensorsOfTheModuleTest = StartTest;

TEST_F(SensorsOfTheModuleTest, VoltageThatFailsAtLoadIsNotServedButItsChangesAreTraps) {
    Camera().failing = {"voltage.GetVoltageStatus"};
    EXPECT_EQ(init_orvexsnmp(), 0);
    EXPECT_THAT(journal::All("agent register_instance voltage"), IsEmpty());
    EXPECT_THAT(journal::All("agent register_instance power"),
                ElementsAre("agent register_instance power " + kEnterprise + ".1.1.8.0 1"));
    EXPECT_THAT(journal::All("agent register_instance temperature"),
                ElementsAre("agent register_instance temperature " + kEnterprise + ".1.1.7.0 1"));
    Camera().voltageChange.Fire(3);
    Agent().readCallback(Agent().readDescriptor, nullptr);
    ASSERT_EQ(Agent().traps.size(), 1u);
    EXPECT_EQ(Agent().traps[0].trapOid, kEnterprise + ".1.1.9.0");
    EXPECT_EQ(Agent().traps[0].value, 3u);
}

TEST_F(SensorsOfTheModuleTest, SensorsAreServedByTheirOwnProviders) {
    Camera().answers["temperature.GetTemperatureDegreesCelsius"] = 11;
    Camera().answers["power.GetPowerStatus"] = 22;
    Camera().answers["voltage.GetVoltageStatus"] = 33;
    EXPECT_EQ(init_orvexsnmp(), 0);
    const std::pair<const char*, long> expected[] = {{"temperature", 11}, {"power", 22}, {"voltage", 33}};
    for (const auto& [name, value] : expected) {
        SnmpRequest request(OrvexSnmpOid::oid_temperature);
        EXPECT_EQ(request.Call(Agent().handlers.at(name), MODE_GET), SNMP_ERR_NOERROR);
        EXPECT_EQ(request.Integer(), value) << name;
    }
}

TYPED_TEST(SensorTest, WhatWasReadIsHandedOutAfterTheSuccessWasLogged) {
    Camera().answers[TypeParam::kOperation] = 12;
    Camera().failing = {std::string("log 6 GetMibIntData: ") + TypeParam::kReading + " returned 12."};
    int value = 77;
    unsigned char type = 0;
    EXPECT_EQ(this->_provider->GetMibIntData(value, type), -1);
    EXPECT_EQ(value, 77);
    EXPECT_EQ(type, TypeParam::kType);
    EXPECT_THAT(journal::Logged(3), ElementsAre(TypeParam::kFailure));
}

}  // namespace
