#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "core/OrvexSnmpOid.h"
#include "io/OrvexSnmpAlarm.h"
#include "io/OrvexSnmpRelay.h"
#include "support/StartedModule.h"
#include "tables/ExpectedLeak.h"
#include "tables/RealAgent.h"

// The module's start in the real agent when another module has registered one of its OIDs: the agent refuses the second
// registration and frees it.

namespace {

template <std::size_t Length>
std::vector<oid> Name(const oid (&name)[Length]) {
    return {name, name + Length};
}

std::vector<oid> Cell(std::vector<oid> table, oid column, oid row) {
    table.insert(table.end(), {1, column, row});
    return table;
}

/// Another module's registration while this object lives. It answers 4711.
class Occupant {
public:
    enum Kind { kInstance, kSubtree };

    explicit Occupant(const std::vector<oid>& name, Kind kind = kInstance) {
        auto* const registration = netsnmp_create_handler_registration("another module", &Occupant::Handle, name.data(),
                                                                       name.size(), HANDLER_CAN_RONLY);
        const int result = kind == kInstance ? netsnmp_register_read_only_instance(registration)
                                             : netsnmp_register_handler(registration);
        EXPECT_EQ(result, MIB_REGISTERED_OK);
        _registration = registration;
    }
    ~Occupant() { netsnmp_unregister_handler(_registration); }
    Occupant(const Occupant&) = delete;
    Occupant& operator=(const Occupant&) = delete;

private:
    static int Handle(netsnmp_mib_handler*, netsnmp_handler_registration*, netsnmp_agent_request_info*,
                      netsnmp_request_info* requests) {
        for (; requests != nullptr; requests = requests->next) {
            snmp_set_var_typed_integer(requests->requestvb, ASN_INTEGER, 4711);
        }
        return SNMP_ERR_NOERROR;
    }

    netsnmp_handler_registration* _registration;
};

class RegistrationTest : public testing::Test {
protected:
    RegistrationTest() {
        ResetCamera();
        RealAgent::Get();
        _folder.Identity("MODEL-1", "SERIAL-1", "1234-05");
        _folder.Version("02.01.00-20120531b\n");
        Camera().alarms.banks = {{"BNK2", {true}}};
        Camera().relays.banks = {{"BNK2", {true}}};
    }
    ~RegistrationTest() override { ForgetModule(false); }

    /// The agent's answer after the equals sign.
    static std::string Get(const std::vector<oid>& name) {
        const auto answer = RealAgent::Get().Send(SNMP_MSG_GET, {{name, {}}});
        EXPECT_EQ(answer.error, SNMP_ERR_NOERROR);
        if (answer.bindings.size() != 1) return "no answer";
        const auto text = answer.bindings[0].Text();
        return text.substr(text.find(" = ") + 3);
    }

    CameraFolder _folder;
};

constexpr auto kNotThere = "noSuchObject";
const std::string kFourZeros(4, '\0');

TEST_F(RegistrationTest, EverythingIsServedWhereNothingIsTaken) {
    EXPECT_EQ(init_orvexsnmp(), 0);
    EXPECT_EQ(Get(Name(OrvexSnmpOid::oid_modelNumber)), "MODEL-1");
    EXPECT_EQ(Get(Name(OrvexSnmpOid::oid_outputControl)), std::string(2, '\0'));
    EXPECT_EQ(Get(Name(OrvexSnmpOid::oid_rebootDevice)), "0");
    EXPECT_EQ(Get(Cell(Name(OrvexSnmpOid::oid_alarm), 1, 1)), "BNK2");
    EXPECT_EQ(Get(Cell(Name(OrvexSnmpOid::oid_relay), 1, 1)), "BNK2");
}

TEST_F(RegistrationTest, ATakenScalarEndsTheStartThere) {
    {
        const Occupant occupant(Name(OrvexSnmpOid::oid_positionPan));
        EXPECT_EQ(init_orvexsnmp(), -1);
        EXPECT_THAT(journal::Logged(3), ElementsAre("init_orvexsnmp: Registration for positionPan OID not OK"));
        EXPECT_EQ(journal::Logged().back(), "3 init_orvexsnmp: Registration for positionPan OID not OK");
        EXPECT_EQ(Get(Name(OrvexSnmpOid::oid_positionPan)), "4711");
        EXPECT_EQ(Get(Name(OrvexSnmpOid::oid_presetStorePosition)), "0");
        EXPECT_EQ(Get(Name(OrvexSnmpOid::oid_positionTilt)), kNotThere);
        EXPECT_EQ(Get(Name(OrvexSnmpOid::oid_rebootDevice)), kNotThere);
        EXPECT_EQ(Get(Cell(Name(OrvexSnmpOid::oid_alarm), 1, 1)), kNotThere);

        deinit_orvexsnmp();
        EXPECT_EQ(Get(Name(OrvexSnmpOid::oid_positionPan)), "4711");
        EXPECT_EQ(Get(Name(OrvexSnmpOid::oid_presetStorePosition)), kNotThere);
    }
    EXPECT_EQ(init_orvexsnmp(), 0);
    EXPECT_EQ(Get(Name(OrvexSnmpOid::oid_positionPan)), kFourZeros);
}

TEST_F(RegistrationTest, ATakenRebootDeviceFailsTheStartAndLeavesTheRestServed) {
    const Occupant occupant(Name(OrvexSnmpOid::oid_rebootDevice));
    EXPECT_EQ(init_orvexsnmp(), -1);
    EXPECT_THAT(journal::Logged(3), ElementsAre("init_orvexsnmp: Registration for rebootDevice OID not OK"));
    EXPECT_EQ(journal::Logged().back(), "8 init_orvexsnmp: Done.");
    EXPECT_EQ(Get(Name(OrvexSnmpOid::oid_rebootDevice)), "4711");
    EXPECT_EQ(Get(Name(OrvexSnmpOid::oid_outputControl)), std::string(2, '\0'));
    EXPECT_EQ(Get(Cell(Name(OrvexSnmpOid::oid_relay), 1, 1)), "BNK2");
}

TEST_F(RegistrationTest, TakenTablesAreLeftOutAndRegisteredByTheFirstBuildThatCan) {
    {
        const Occupant alarms(Name(OrvexSnmpOid::oid_alarm), Occupant::kSubtree);
        const Occupant relays(Name(OrvexSnmpOid::oid_relay), Occupant::kSubtree);
        const ExpectedLeak expectedLeak;
        EXPECT_EQ(init_orvexsnmp(), 0);
        EXPECT_THAT(journal::Logged(3), IsEmpty());
        EXPECT_THAT(journal::Logged(6), Contains("init_relayTable: Registration for Relay table OID not OK"));
        EXPECT_EQ(Get(Cell(Name(OrvexSnmpOid::oid_alarm), 1, 1)), "4711");
        EXPECT_EQ(Get(Cell(Name(OrvexSnmpOid::oid_relay), 1, 1)), "4711");
        EXPECT_EQ(Get(Name(OrvexSnmpOid::oid_rebootDevice)), "0");

        EXPECT_EQ(OrvexSnmpAlarm::GetInstance()->init_alarmTable(false), -1);
        EXPECT_EQ(OrvexSnmpRelay::GetInstance()->init_relayTable(false), -1);
    }
    EXPECT_EQ(OrvexSnmpAlarm::GetInstance()->init_alarmTable(false), 0);
    EXPECT_EQ(OrvexSnmpRelay::GetInstance()->init_relayTable(false), 0);
    EXPECT_EQ(Get(Cell(Name(OrvexSnmpOid::oid_alarm), 1, 1)), "BNK2");
    EXPECT_EQ(Get(Cell(Name(OrvexSnmpOid::oid_relay), 3, 1)), "1");
}

}  // namespace
