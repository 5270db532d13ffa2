#include <dlfcn.h>
#include <poll.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <thread>
#include <type_traits>

#include "core/OrvexSnmpOid.h"
#include "frame/OrvexSnmpMain.h"
#include "frame/RebootHandler.h"
#include "io/OrvexSnmpPressure.h"
#include "motion/OrvexSnmpPan.h"
#include "sensors/OrvexSnmpTemp.h"
#include "support/AgentLog.h"
#include "support/Rows.h"
#include "support/StartedModule.h"
#include "tavos/osa/Exception.h"

namespace {

const std::string kEnterprise = ".1.3.6.1.4.1." + std::to_string(ORVEX_ENTERPRISE_NUMBER);

/// One accepted row as the agent sees it.
std::string RegistrationOf(const ScalarRegistration& row) {
    return journal::Join("agent register_instance", row.name, OidText(row.objectId, row.oidLength), row.access);
}

std::string LineOf(const ScalarRegistration& row) {
    return std::string("log 6 init_orvexsnmp: Registration for ") + row.name + " OID OK";
}

const Lines kTables = {"agent register_table_data_set alarmStatesTable " + kEnterprise + ".1.3.1 3",
                       "agent register_table_data_set relayStatesTable " + kEnterprise + ".1.3.2 3"};
const std::string kReboot = "agent register_instance rebootDevice " + kEnterprise + ".1.1.100.0 3";

// --- the module's object ---

class MainTest : public StartTest {};

TEST_F(MainTest, HasNoInstanceBeforeItsConstruction) {
    EXPECT_EQ(OrvexSnmpMain::GetInstance(), nullptr);
}

TEST_F(MainTest, MakesTheTrapQueueAndThenTheDevice) {
    const auto* const instance = new OrvexSnmpMain();
    EXPECT_EQ(OrvexSnmpMain::GetInstance(), instance);
    EXPECT_EQ(OrvexSnmpMain::GetLogger(), tavos::core::Logger::GetLogger("OrvexSnmp"));
    EXPECT_NE(OrvexSnmpTrapSend::GetInstance(), nullptr);
    EXPECT_NE(OrvexSnmpDevice::GetInstance(), nullptr);

    auto lines = journal::All();
    ASSERT_GT(lines.size(), 8u);
    EXPECT_EQ(lines.back(), "log 8 OrvexSnmpMain: Done.");
    EXPECT_EQ(lines[lines.size() - 2], "bus StartServer");
    lines.resize(8);
    EXPECT_THAT(lines,
                ElementsAre("log 8 OrvexSnmpMain: Enter", "logger EnableDebugLogging", "log 8 OrvexSnmpTrapSend: Enter",
                            "agent register_readfd", "log 8 OrvexSnmpTrapSend: Done.", "bus Open", "settings Open 1",
                            "log 8 OrvexSnmpDevice: Enter."));
}

TEST_F(MainTest, RefusesASecondInstanceAndKeepsTheFirst) {
    const auto* const first = new OrvexSnmpMain();
    journal::Clear();
    std::string text;
    try {
        const OrvexSnmpMain second;
    } catch (const tavos::osa::Exception& exception) {
        text = exception.what();
    }
    EXPECT_EQ(text, "Duplicate Instance");
    EXPECT_THAT(journal::All(), ElementsAre("log 3 OrvexSnmpMain: Duplicate instance, exiting!"));
    EXPECT_EQ(OrvexSnmpMain::GetInstance(), first);
}

TEST_F(MainTest, DestructionLeavesTheInstancePointerAndWhatItHasMade) {
    auto* const instance = new OrvexSnmpMain();
    journal::Clear();
    // Only the destructor: the memory is freed below, after the checks.
    instance->~OrvexSnmpMain();
    EXPECT_EQ(OrvexSnmpMain::GetInstance(), instance);
    EXPECT_NE(OrvexSnmpDevice::GetInstance(), nullptr);
    EXPECT_NE(OrvexSnmpPan::GetInstance(), nullptr);
    EXPECT_THAT(journal::All(), IsEmpty());
    ::operator delete(instance);
    OrvexSnmpMain::ForgetInstance();
}

// --- the entry point ---

class InitTest : public StartTest {
protected:
    /// The journal from the entry point's first line on, without the sensors' first readings and the tables' lines.
    static Lines EntryPointLines() {
        const auto all = journal::All();
        const auto begin = std::find(all.begin(), all.end(), "log 8 init_orvexsnmp: Enter.");
        Lines lines;
        for (auto line = begin; line != all.end(); ++line) {
            const bool agent = line->compare(0, 6, "agent ") == 0;
            if (agent || line->find(" init_orvexsnmp: ") != std::string::npos) lines.push_back(*line);
        }
        return lines;
    }

    /// The entry point's lines when the agent accepts everything.
    static Lines AllAccepted() {
        Lines lines = {"log 8 init_orvexsnmp: Enter."};
        for (const auto& row : ScalarTable()) {
            if (row.enabled == 0) continue;
            lines.push_back(RegistrationOf(row));
            lines.push_back(LineOf(row));
        }
        lines.insert(lines.end(), kTables.begin(), kTables.end());
        lines.push_back(kReboot);
        lines.push_back("log 6 init_orvexsnmp: Registration for rebootDevice OID OK");
        lines.push_back("log 8 init_orvexsnmp: Done.");
        return lines;
    }

    /// The lines up to the refusal of `row`, and none after it.
    static Lines RefusedAt(const std::string& name) {
        Lines lines = {"log 8 init_orvexsnmp: Enter."};
        for (const auto& row : ScalarTable()) {
            if (row.enabled == 0) continue;
            lines.push_back(RegistrationOf(row));
            if (name == row.name) {
                lines.push_back("log 3 init_orvexsnmp: Registration for " + name + " OID not OK");
                return lines;
            }
            lines.push_back(LineOf(row));
        }
        ADD_FAILURE() << name << " is not enabled";
        return lines;
    }

private:
    AgentLog _agentLog;
};

TEST_F(InitTest, RegistersEverythingInTheTablesOrder) {
    EXPECT_EQ(init_orvexsnmp(), 0);
    EXPECT_THAT(EntryPointLines(), ElementsAreArray(AllAccepted()));
    EXPECT_EQ(journal::All("agent register_instance").size(), kScalarCount + 1);
    EXPECT_EQ(journal::All("agent register_table_data_set").size(), 2u);
    for (const auto& row : ScalarTable()) {
        EXPECT_EQ(row.enabled, 1) << row.name;
        EXPECT_EQ(row.registrationResult, 0) << row.name;
    }
}

TEST_F(InitTest, BeginsTheStartBeforeTheFirstCall) {
    Camera().onCall = [](const std::string& call) {
        EXPECT_EQ(Camera().begun, std::vector{tavos::msgbus::Work::kStart}) << call;
    };
    EXPECT_EQ(init_orvexsnmp(), 0);
    EXPECT_THAT(journal::Calls(), Not(IsEmpty()));
}

TEST_F(InitTest, HandsEveryRowsHandlerToTheAgent) {
    EXPECT_EQ(init_orvexsnmp(), 0);
    for (const auto& row : ScalarTable()) EXPECT_EQ(Agent().handlers[row.name], row.handler) << row.name;
    EXPECT_EQ(Agent().handlers["rebootDevice"], handle_rebootDevice);
    EXPECT_EQ(Agent().handlers["swVersion"], Agent().handlers["fwVersion"]);
}

TEST_F(InitTest, MakesTheModuleBeforeItsOwnFirstLineAndRegistersAfterwards) {
    EXPECT_EQ(init_orvexsnmp(), 0);
    const auto lines = journal::All();
    const auto at = [&](const std::string& line) { return std::find(lines.begin(), lines.end(), line); };
    EXPECT_EQ(at("log 8 init_orvexsnmp: Enter."), at("log 8 OrvexSnmpMain: Done.") + 1);
    EXPECT_LT(at("log 8 init_orvexsnmp: Enter."), at("call power GetPowerStatus"));
    EXPECT_LT(at("call power GetPowerStatus"), at("call voltage GetVoltageStatus"));
    EXPECT_LT(at("call voltage GetVoltageStatus"), at("call temperature GetTemperatureDegreesCelsius 0"));
    EXPECT_LT(at("call temperature GetTemperatureDegreesCelsius 0"), at(RegistrationOf(ScalarTable()[0])));
    EXPECT_LT(at(LineOf(ScalarTable().back())), at("log 6 init_alarmTable: Enter. update=0\n"));
    EXPECT_LT(at("log 6 init_alarmTable: Enter. update=0\n"), at("log 6 init_relayTable: Enter. update=0\n"));
    EXPECT_LT(at("log 6 init_relayTable: Enter. update=0\n"), at(kReboot));
    EXPECT_LT(at(kReboot), lines.end());
    EXPECT_EQ(lines.back(), "log 8 init_orvexsnmp: Done.");
}

TEST_F(InitTest, RegistersTheOtherScalarsAndTheRebootWhenNoSensorAnswers) {
    Camera().failing = {"power.GetPowerStatus", "voltage.GetVoltageStatus", "temperature.GetTemperatureDegreesCelsius"};
    EXPECT_EQ(init_orvexsnmp(), 0);
    EXPECT_THAT(EntryPointLines(), ElementsAreArray(AllAccepted()));
    std::size_t scalars = 0;
    for (const auto& line : journal::Logged(6)) {
        const bool registered =
            line.find("init_orvexsnmp: Registration for ") == 0 && line.find(" OID OK") != line.npos;
        if (registered && line.find("rebootDevice") == line.npos) ++scalars;
    }
    EXPECT_EQ(scalars, kScalarCount - 3);
    EXPECT_EQ(journal::All("agent register_instance").size(), kScalarCount - 3 + 1);
    for (const char* sensor : {"temperature", "power", "voltage"}) {
        EXPECT_THAT(journal::All(), Not(Contains(HasSubstr(std::string("register_instance ") + sensor))));
    }
}

TEST_F(InitTest, LeavesOutPowerAndVoltageButNotTemperatureThatReadMinusOne) {
    Camera().answers["power.GetPowerStatus"] = -1;
    Camera().answers["voltage.GetVoltageStatus"] = -1;
    Camera().answers["temperature.GetTemperatureDegreesCelsius"] = -1;
    EXPECT_EQ(init_orvexsnmp(), 0);
    EXPECT_EQ(Agent().handlers.count("power"), 0u);
    EXPECT_EQ(Agent().handlers.count("voltage"), 0u);
    EXPECT_EQ(Agent().handlers.count("temperature"), 1u);
    EXPECT_THAT(EntryPointLines(), ElementsAreArray(AllAccepted()));
}

TEST_F(InitTest, DoesNotServeGlobalSetIDParameter) {
    EXPECT_EQ(init_orvexsnmp(), 0);
    EXPECT_THAT(journal::All("agent"), Not(Contains(HasSubstr(".1.3.6.1.4.1.1206.4.2.6.1.1.0"))));
}

class RefusedRowTest : public InitTest, public testing::WithParamInterface<const char*> {};

TEST_P(RefusedRowTest, EndsTheStartAtOnceAndKeepsWhatIsRegistered) {
    Agent().refusing = {GetParam()};
    EXPECT_EQ(init_orvexsnmp(), -1);
    EXPECT_THAT(EntryPointLines(), ElementsAreArray(RefusedAt(GetParam())));
    EXPECT_THAT(journal::All("agent unregister"), IsEmpty());
    EXPECT_THAT(journal::All("agent register_table"), IsEmpty());
    for (const auto& row : ScalarTable()) {
        EXPECT_EQ(row.registrationResult, std::string(row.name) == GetParam() ? MIB_REGISTRATION_FAILED : 0);
    }
}

INSTANTIATE_TEST_SUITE_P(Some, RefusedRowTest,
                         testing::Values("modelNumber", "temperature", "moduleNumber", "positionPan", "outputControl"),
                         [](const auto& row) { return std::string(row.param); });

TEST_F(InitTest, WithARowRefusedTheRowsBeforeItAreRegistered) {
    Agent().refusing = {"moduleNumber"};
    EXPECT_EQ(init_orvexsnmp(), -1);
    EXPECT_EQ(Agent().handlers.size(), static_cast<std::size_t>(&RowOf("moduleNumber") - ScalarTable().data()));
    EXPECT_EQ(Agent().handlers.count("moduleDeviceNode"), 0u);
    EXPECT_EQ(Agent().handlers.count("rebootDevice"), 0u);
}

TEST_F(InitTest, RefusedTablesDoNotMatter) {
    Agent().refusing = {"alarmStatesTable", "relayStatesTable"};
    EXPECT_EQ(init_orvexsnmp(), 0);
    EXPECT_THAT(EntryPointLines(), ElementsAreArray(AllAccepted()));
}

TEST_F(InitTest, RefusedRebootIsAFailureWithItsOwnLines) {
    Agent().refusing = {"rebootDevice"};
    EXPECT_EQ(init_orvexsnmp(), -1);
    auto expected = AllAccepted();
    expected[expected.size() - 2] = "log 3 init_orvexsnmp: Registration for rebootDevice OID not OK";
    EXPECT_THAT(EntryPointLines(), ElementsAreArray(expected));
    EXPECT_THAT(journal::All("agent unregister"), IsEmpty());
}

TEST_F(InitTest, SecondCallFailsAndRegistersNothing) {
    EXPECT_EQ(init_orvexsnmp(), 0);
    journal::Clear();
    std::string text;
    try {
        init_orvexsnmp();
    } catch (const tavos::osa::Exception& exception) {
        text = exception.what();
    }
    EXPECT_EQ(text, "Duplicate Instance");
    EXPECT_THAT(journal::All(), ElementsAre("log 3 OrvexSnmpMain: Duplicate instance, exiting!"));
}

TEST_F(InitTest, AFailedConstructionLeavesTheEntryPointAndNothingIsRegistered) {
    for (const char* operation : {"temperature.CreateClient", "pan.CreateClient", "bus.StartServer"}) {
        Camera().failing = {operation};
        journal::Clear();
        EXPECT_EQ(FailureOf([] { init_orvexsnmp(); }), std::string(operation) + " fails");
        EXPECT_THAT(journal::All("agent"), ElementsAre("agent register_readfd"));
        EXPECT_THAT(journal::Logged(8), Not(Contains("OrvexSnmpMain: Done.")));
        EXPECT_THAT(journal::Logged(8), Not(Contains("init_orvexsnmp: Enter.")));
        ForgetModule(true);
    }
}

TEST_F(InitTest, AnInvalidConfigurationLeavesTheEntryPoint) {
    Camera().failing = {"settings.GetSettings"};
    EXPECT_EQ(FailureOf([] { init_orvexsnmp(); }), "invalid configuration");
    EXPECT_THAT(journal::All("agent "), ElementsAre("agent register_readfd"));
    // The agent's log names the failed operation; the exception does not.
    EXPECT_THAT(journal::All("agentlog"),
                ElementsAre("agentlog 3 orvexsnmp: invalid configuration: settings.GetSettings fails\n"));
}

TEST_F(InitTest, WhateverAConstructorThrowsLeavesTheEntryPoint) {
    Camera().failing = {"zoom.CreateClient"};
    Camera().throwsInt = true;
    EXPECT_EQ(FailureOf([] { init_orvexsnmp(); }), "an int");
    EXPECT_THAT(journal::All("agent"), ElementsAre("agent register_readfd"));
}

TEST_F(InitTest, IsFoundUnderItsPlainName) {
    static_assert(std::is_same_v<decltype(init_orvexsnmp()), int>);
    EXPECT_EQ(dlsym(RTLD_DEFAULT, "init_orvexsnmp"), reinterpret_cast<void*>(&init_orvexsnmp));
}

TEST_F(InitTest, EventsBecomeTrapsEvenOfASensorThatIsNotRegistered) {
    Camera().failing = {"voltage.GetVoltageStatus"};
    EXPECT_EQ(init_orvexsnmp(), 0);
    EXPECT_EQ(Agent().handlers.count("voltage"), 0u);
    std::thread([] { Camera().voltageChange.Fire(3); }).join();
    EXPECT_THAT(Agent().traps, IsEmpty());
    Agent().readCallback(Agent().readDescriptor, nullptr);
    ASSERT_EQ(Agent().traps.size(), 1u);
    EXPECT_EQ(Agent().traps[0].trapOid, kEnterprise + ".1.1.9.0");
    EXPECT_EQ(Agent().traps[0].value, 3u);
}

TEST_F(InitTest, AnEventThatArrivesBeforeTheRegistrationsIsAlreadyQueued) {
    // The first reading of a sensor comes before the first registration.
    Camera().onCall = [](const std::string& call) {
        if (call == "power GetPowerStatus") Camera().powerChange.Fire(5);
    };
    EXPECT_EQ(init_orvexsnmp(), 0);
    pollfd polled{Agent().readDescriptor, POLLIN, 0};
    ASSERT_EQ(poll(&polled, 1, 0), 1);
    Agent().readCallback(Agent().readDescriptor, nullptr);
    ASSERT_EQ(Agent().traps.size(), 1u);
    EXPECT_EQ(Agent().traps[0].trapOid, kEnterprise + ".1.1.8.0");
}

// --- unloading ---

TEST_F(InitTest, UnloadingSendsTheTrapsThatWait) {
    EXPECT_EQ(init_orvexsnmp(), 0);
    Camera().powerChange.Fire(2);
    EXPECT_EQ(deinit_orvexsnmp(), 0);
    ASSERT_EQ(Agent().traps.size(), 1u);
    EXPECT_EQ(Agent().traps[0].value, 2u);
}

TEST_F(InitTest, UnloadingTakesEveryRegistrationBackAndKeepsTheModulesObjects) {
    EXPECT_EQ(init_orvexsnmp(), 0);
    const auto* const pan = OrvexSnmpPan::GetInstance();
    journal::Clear();
    EXPECT_EQ(deinit_orvexsnmp(), 0);
    EXPECT_EQ(journal::All("agent unregister ").size(), 53u);
    EXPECT_THAT(journal::All(), Contains("agent unregister rebootDevice"));
    EXPECT_THAT(journal::All(), Contains("agent unregister alarmStatesTable"));
    EXPECT_THAT(journal::All(), Contains("agent unregister relayStatesTable"));
    EXPECT_THAT(journal::All("agent unregister_readfd").size(), 1u);
    EXPECT_THAT(journal::All("bus"), IsEmpty());
    EXPECT_EQ(OrvexSnmpPan::GetInstance(), pan);

    journal::Clear();
    EXPECT_EQ(init_orvexsnmp(), 0);
    auto expected = AllAccepted();
    expected.insert(expected.begin() + 1, "agent register_readfd");
    EXPECT_THAT(EntryPointLines(), ElementsAreArray(expected));
    EXPECT_THAT(journal::All("bus"), IsEmpty());
    EXPECT_EQ(OrvexSnmpPan::GetInstance(), pan);
}

TEST_F(InitTest, UnloadingAModuleThatHasNotStartedDoesNothing) {
    EXPECT_EQ(deinit_orvexsnmp(), 0);
    EXPECT_THAT(journal::All(), IsEmpty());
}

// --- loading again ---

class ReloadTest : public InitTest {
protected:
    ReloadTest() {
        EXPECT_EQ(init_orvexsnmp(), 0);
        journal::Clear();
    }

    static int Reload() {
        EXPECT_EQ(deinit_orvexsnmp(), 0);
        journal::Clear();
        return init_orvexsnmp();
    }

    static void Set(const oid (&object)[13], Netsnmp_Node_Handler* handler, std::vector<u_char> octets) {
        SnmpRequest request(object);
        request.WithOctets(octets);
        for (const int mode : {MODE_SET_RESERVE1, MODE_SET_RESERVE2, MODE_SET_ACTION, MODE_SET_COMMIT}) {
            request.Call(handler, mode);
        }
    }

    static std::vector<u_char> Get(const oid (&object)[13], Netsnmp_Node_Handler* handler) {
        SnmpRequest request(object);
        EXPECT_EQ(request.Call(handler, MODE_GET), SNMP_ERR_NOERROR);
        return request.Octets();
    }
};

TEST_F(ReloadTest, WhatTheProcessRemembersOutlivesIt) {
    using Oid = OrvexSnmpOid;
    const std::vector<u_char> command = {0, 0, 0, 9};
    const std::vector<u_char> control = {2, 3};
    const std::vector<std::pair<const oid(*)[13], Netsnmp_Node_Handler*>> motions = {
        {&Oid::oid_positionPan, OrvexSnmpPan::handle_positionPan},
        {&Oid::oid_positionTilt, OrvexSnmpTilt::handle_positionTilt},
        {&Oid::oid_positionZoomLens, OrvexSnmpZoom::handle_positionZoomLens},
        {&Oid::oid_positionFocusLens, OrvexSnmpFocus::handle_positionFocusLens},
        {&Oid::oid_positionIrisLens, OrvexSnmpIris::handle_positionIrisLens}};
    const std::vector<std::pair<const oid(*)[13], Netsnmp_Node_Handler*>> controls = {
        {&Oid::oid_systemCameraFeatureControl, OrvexSnmpWiper::handle_systemCameraFeatureControl},
        {&Oid::oid_systemLensFeatureControl, OrvexSnmpFocus::handle_systemLensFeatureControl},
        {&Oid::oid_outputControl, OrvexSnmpRelay::handle_outputControl}};
    for (const auto& [object, handler] : motions) Set(*object, handler, command);
    for (const auto& [object, handler] : controls) Set(*object, handler, control);
    Set(Oid::oid_systemLensEquipped, OrvexSnmpFocus::handle_systemLensEquipped, {0});
    Set(Oid::oid_systemCameraEquipped, OrvexSnmpWiper::handle_systemCameraEquipped, {1});
    Camera().alarms.banks = {{"BNK2", {true}}};
    EXPECT_EQ(Get(Oid::oid_inputStatus, OrvexSnmpAlarm::handle_inputStatus), std::vector<u_char>{1});

    EXPECT_EQ(Reload(), 0);
    for (const auto& [object, handler] : motions) EXPECT_EQ(Get(*object, handler), command);
    for (const auto& [object, handler] : controls) EXPECT_EQ(Get(*object, handler), control);
    EXPECT_EQ(Get(Oid::oid_systemLensEquipped, OrvexSnmpFocus::handle_systemLensEquipped), std::vector<u_char>{0});
    EXPECT_EQ(Get(Oid::oid_systemCameraEquipped, OrvexSnmpWiper::handle_systemCameraEquipped), std::vector<u_char>{1});
    Camera().failing = {"alarm.GetAlarmState"};
    EXPECT_EQ(Get(Oid::oid_inputStatus, OrvexSnmpAlarm::handle_inputStatus), std::vector<u_char>{1});
}

TEST_F(ReloadTest, ReadsIdentityAndSensorsAgain) {
    _folder.Identity("MODEL-2", "SERIAL-2", "5678-06");
    _folder.Version("03.00.00-20130101\n");
    Camera().settings["[Device/ReadOnly]ProductFamily"] = "Family 2";
    Camera().settings["[Device/ReadOnly]Manufacturer"] = "";
    Camera().failing = {"voltage.GetVoltageStatus"};
    EXPECT_EQ(Reload(), 0);
    const auto& device = *OrvexSnmpDevice::GetInstance();
    EXPECT_EQ(device.GetModelNumber(), "MODEL-2");
    EXPECT_EQ(device.GetSerialNumber(), "SERIAL-2");
    EXPECT_EQ(device.GetHwVer(), "5678-06");
    EXPECT_EQ(device.GetFwVer(), "03.00.00-20130101");
    EXPECT_EQ(device.GetModuleVersion(), "20130101 - v03.00.00");
    EXPECT_EQ(device.GetModelName(), "Family 2");
    EXPECT_EQ(device.GetManufacturer(), "");
    EXPECT_THAT(journal::All(), Not(Contains(HasSubstr("register_instance voltage"))));
    EXPECT_THAT(journal::All(), Contains(HasSubstr("register_instance power")));
}

TEST_F(ReloadTest, KeepsIdentityTextsThatCannotBeReadAgain) {
    Camera().failing = {"settings.GetValue"};
    std::filesystem::remove(ORVEX_VERSION_FILE);
    for (const char* const script : {"exit 1", "echo ERROR"}) {
        _folder.Identity(script);
        EXPECT_EQ(Reload(), 0);
        const auto& device = *OrvexSnmpDevice::GetInstance();
        EXPECT_EQ(device.GetModelNumber(), "MODEL-1");
        EXPECT_EQ(device.GetSerialNumber(), "SERIAL-1");
        EXPECT_EQ(device.GetAssyId(), "1234");
        EXPECT_EQ(device.GetAssyVer(), "05");
        EXPECT_EQ(device.GetHwVer(), "1234-05");
        EXPECT_EQ(device.GetFwVer(), "02.01.00-20120531b");
        EXPECT_EQ(device.GetModuleVersion(), "20120531 - v02.01.00");
        EXPECT_EQ(device.GetModelName(), "Family");
        EXPECT_EQ(device.GetManufacturer(), "Maker");
    }
}

TEST_F(ReloadTest, AConfigurationThatCannotBeReadOrAppliedIsOneErrorLineAndEverythingIsServed) {
    for (const char* const operation : {"settings.GetValue", "settings.GetSettings", "logger.ConfigureLogging"}) {
        Camera().failingOnce = {operation};
        EXPECT_EQ(Reload(), 0);
        EXPECT_THAT(
            journal::Logged(3),
            ElementsAre("OrvexSnmpDevice: the configuration stays as it was: " + std::string(operation) + " fails"));
        // The line comes after the setup that writes it.
        const auto all = journal::All();
        const auto line = std::find_if(all.begin(), all.end(), [](const auto& l) { return l.find("stays") != l.npos; });
        EXPECT_EQ(*(line - 1), "logger ConfigureLogging log log.level=3 log.stdout=true");
        EXPECT_EQ(journal::All("agent register_instance").size(), kScalarCount + 1);
        EXPECT_EQ(journal::All("agent register_table_data_set").size(), 2u);
    }
}

TEST_F(ReloadTest, AppliesTheConfigurationAndThenTheFixedSetup) {
    Camera().settings["[Applications/OrvexSnmp]log.level"] = "8";
    EXPECT_EQ(Reload(), 0);
    EXPECT_THAT(journal::All("logger"),
                ElementsAre("logger ClearAppenders", "logger ConfigureLogging Applications/OrvexSnmp log.level=8",
                            "logger ClearAppenders", "logger ConfigureLogging log log.level=3 log.stdout=true"));
    EXPECT_THAT(journal::Logged(6), Contains("just reconfigured!"));
}

TEST_F(ReloadTest, NothingThatIsThrownLeavesIt) {
    Camera().failing = {"logger.ConfigureLogging"};
    EXPECT_EQ(Reload(), -1);
    EXPECT_THAT(journal::Logged(3),
                ElementsAre("init_orvexsnmp: the module cannot be loaded again: logger.ConfigureLogging fails"));
    Camera().throwsInt = true;
    EXPECT_EQ(Reload(), -1);
    EXPECT_THAT(journal::Logged(3), ElementsAre("init_orvexsnmp: the module cannot be loaded again"));
    Camera().failing = {};
    EXPECT_EQ(Reload(), 0);
    EXPECT_EQ(journal::All("agent register_instance").size(), kScalarCount + 1);
}

TEST_F(ReloadTest, EventsMeanwhileBecomeTrapsAfterwards) {
    EXPECT_EQ(deinit_orvexsnmp(), 0);
    std::thread([] { Camera().powerChange.Fire(3); }).join();
    EXPECT_THAT(Agent().traps, IsEmpty());
    EXPECT_EQ(init_orvexsnmp(), 0);
    pollfd polled{Agent().readDescriptor, POLLIN, 0};
    ASSERT_EQ(poll(&polled, 1, 0), 1);
    Agent().readCallback(Agent().readDescriptor, nullptr);
    ASSERT_EQ(Agent().traps.size(), 1u);
    EXPECT_EQ(Agent().traps[0].value, 3u);
}

TEST_F(ReloadTest, RetriesARegistrationThatTheAgentRefused) {
    Agent().refusing = {"positionPan"};
    EXPECT_EQ(Reload(), -1);
    Agent().refusing = {};
    EXPECT_EQ(Reload(), 0);
    EXPECT_EQ(journal::All("agent register_instance").size(), kScalarCount + 1);
    EXPECT_EQ(journal::All("agent register_table_data_set").size(), 2u);
}

// --- lookups of the module during its construction ---

TEST_F(MainTest, CanBeFoundFromItsFirstLineOn) {
    OrvexSnmpMain* found = nullptr;
    OrvexSnmpMain* foundByTheQueue = nullptr;
    journal::Watch([&](const std::string& line) {
        if (line == "log 8 OrvexSnmpMain: Enter") found = OrvexSnmpMain::GetInstance();
        if (line == "logger EnableDebugLogging") foundByTheQueue = OrvexSnmpMain::GetInstance();
    });
    const auto* const instance = new OrvexSnmpMain();
    journal::Watch(nullptr);
    EXPECT_EQ(found, instance);
    EXPECT_EQ(foundByTheQueue, instance);
}

}  // namespace
