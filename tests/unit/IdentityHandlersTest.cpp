#include <algorithm>
#include <ostream>
#include <string>
#include <vector>

#include "core/OrvexSnmpOid.h"
#include "frame/IdentityHandlers.h"
#include "support/Opened.h"
#include "support/Rows.h"
#include "support/StartedModule.h"

// On a camera the hardware and module versions contain at least a dash. The tests also try empty ones.
struct HardwareVersion {
    using Type = std::string OrvexSnmpDevice::*;
    friend Type MemberOf(HardwareVersion);
};
struct ModuleVersion {
    using Type = std::string OrvexSnmpDevice::*;
    friend Type MemberOf(ModuleVersion);
};
template struct Opened<HardwareVersion, &OrvexSnmpDevice::_hwVer>;
template struct Opened<ModuleVersion, &OrvexSnmpDevice::_moduleVersion>;

namespace {

struct Object {
    const char* name;
    Netsnmp_Node_Handler* handler;
    u_char type;
    std::string value;    ///< the answer, an INTEGER as digits
    std::string logLine;  ///< the Information line; empty: none
    friend void PrintTo(const Object& shown, std::ostream* out) { *out << shown.name; }
};

const Object kObjects[] = {
    {"handle_modelNumber", handle_modelNumber, ASN_OCTET_STR, "MODEL-1", "model number = MODEL-1, size = 7"},
    {"handle_modelName", handle_modelName, ASN_OCTET_STR, "Family", "model name = Family"},
    {"handle_serialNumber", handle_serialNumber, ASN_OCTET_STR, "SERIAL-01", "serial number = SERIAL-01"},
    {"handle_fwVersion", handle_fwVersion, ASN_OCTET_STR, "02.01.00-20120531b", "fw version = 02.01.00-20120531b"},
    {"handle_hwVersion", handle_hwVersion, ASN_OCTET_STR, "1234-05", ""},
    {"handle_globalMaxModules", handle_globalMaxModules, ASN_INTEGER, "1", "max NTCIP modules = 1"},
    {"handle_moduleNumber", handle_moduleNumber, ASN_INTEGER, "1", "model number = 1"},
    {"handle_moduleDeviceNode", handle_moduleDeviceNode, ASN_OCTET_STR, "1.3.6.1.4.1.1206.4.2.7",
     "manufactuer = 1.3.6.1.4.1.1206.4.2.7"},
    {"handle_moduleMake", handle_moduleMake, ASN_OCTET_STR, "Maker", "manufactuer = Maker"},
    {"handle_moduleModel", handle_moduleModel, ASN_OCTET_STR, "MODEL-1", "model number = MODEL-1, size = 7"},
    {"handle_moduleVersion", handle_moduleVersion, ASN_OCTET_STR, "20120531 - v02.01.00",
     "moduleVersion = 20120531 - v02.01.00"},
    {"handle_moduleType", handle_moduleType, ASN_INTEGER, "2", "moduleType = 2"},
};

std::string Text(const SnmpRequest& request) {
    const auto octets = request.Octets();
    return {octets.begin(), octets.end()};
}

class IdentityTest : public StartedModuleTest {
protected:
    IdentityTest() { _folder.Identity("MODEL-1", "SERIAL-01", "1234-05"); }

    /// A GET's answer as text.
    static std::string Get(Netsnmp_Node_Handler* handler) {
        SnmpRequest request(OrvexSnmpOid::oid_modelNumber);
        EXPECT_EQ(request.Call(handler, MODE_GET), SNMP_ERR_NOERROR);
        EXPECT_EQ(request.Type(), ASN_OCTET_STR);
        return Text(request);
    }
};

class IdentityObjectTest : public IdentityTest, public testing::WithParamInterface<Object> {
protected:
    const Object& _object = GetParam();
    const std::string _name = GetParam().name;
};

TEST_P(IdentityObjectTest, AnswersAGetWithItsValueAndItsLines) {
    SnmpRequest request(OrvexSnmpOid::oid_modelNumber);
    EXPECT_EQ(request.Call(_object.handler, MODE_GET), SNMP_ERR_NOERROR);

    EXPECT_EQ(request.Type(), _object.type);
    if (_object.type == ASN_INTEGER) {
        EXPECT_EQ(std::to_string(request.Integer()), _object.value);
        EXPECT_THAT(Agent().answers, ElementsAre(FakeAgent::Answer{ASN_INTEGER, 4}));
    } else {
        EXPECT_EQ(Text(request), _object.value);
        EXPECT_THAT(Agent().answers, ElementsAre(FakeAgent::Answer{ASN_OCTET_STR, _object.value.size()}));
    }
    EXPECT_EQ(request.Mark(), 0);

    Lines expected = {"log 7 " + _name + ": Received OID \n"};
    if (!_object.logLine.empty()) expected.push_back("log 6 " + _name + ": " + _object.logLine);
    EXPECT_THAT(journal::All(), ElementsAreArray(expected));
}

TEST_P(IdentityObjectTest, LogsTheEndOfTheRangeAndNotTheName) {
    SnmpRequest request(OrvexSnmpOid::oid_modelNumber);
    request.WithRangeEnd({1, 3, 6, 1, 4, 1, 99});
    EXPECT_EQ(request.Call(_object.handler, MODE_GET), SNMP_ERR_NOERROR);
    EXPECT_THAT(journal::Logged(7), ElementsAre(_name + ": Received OID .1.3.6.1.4.1.99\n"));
}

TEST_P(IdentityObjectTest, RefusesEveryOtherModeWithoutTouchingTheRequest) {
    for (const int mode : {0, 1, 2, 3, 4, 5, 161, 162, 165, 1000, -1}) {
        journal::Clear();
        SnmpRequest request(OrvexSnmpOid::oid_modelNumber);
        request.WithRangeEnd({1, 3});
        EXPECT_EQ(request.Call(_object.handler, mode), SNMP_ERR_GENERR);
        EXPECT_EQ(request.Mark(), 0);
        EXPECT_EQ(request.Type(), ASN_NULL);
        EXPECT_THAT(Agent().answers, IsEmpty());
        EXPECT_THAT(journal::All(), ElementsAre("log 7 " + _name + ": Received OID .1.3\n",
                                                "log 3 " + _name + ": unknown mode (" + std::to_string(mode) + ")"));
    }
}

TEST_P(IdentityObjectTest, AnswersTheFirstRequestOfTheListOnly) {
    SnmpRequest request(OrvexSnmpOid::oid_modelNumber);
    SnmpRequest next(OrvexSnmpOid::oid_modelNumber);
    request.Chain(next);
    EXPECT_EQ(request.Call(_object.handler, MODE_GET), SNMP_ERR_NOERROR);
    EXPECT_EQ(request.Type(), _object.type);
    EXPECT_EQ(next.Type(), ASN_NULL);
    EXPECT_EQ(next.Mark(), 0);
}

TEST_P(IdentityObjectTest, CallsNoService) {
    SnmpRequest request(OrvexSnmpOid::oid_modelNumber);
    request.Call(_object.handler, MODE_GET);
    EXPECT_THAT(journal::Calls(), IsEmpty());
    EXPECT_THAT(journal::All("settings"), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(All, IdentityObjectTest, testing::ValuesIn(kObjects),
                         [](const auto& object) { return std::string(object.param.name); });

TEST_F(IdentityTest, SoftwareVersionIsTheFirmwares) {
    EXPECT_EQ(RowOf("swVersion").handler, RowOf("fwVersion").handler);
    EXPECT_EQ(Get(RowOf("swVersion").handler), "02.01.00-20120531b");
}

TEST_F(IdentityTest, DeviceNodeIsATextOf22Octets) {
    EXPECT_EQ(Get(handle_moduleDeviceNode).size(), 22u);
}

// --- missing identity data ---

/// A module on a camera without identity data.
class NamelessTest : public IdentityTest {
protected:
    void SetUp() override {
        _folder.Identity("exit 0");
        _folder.Version("");
        Camera().settings.clear();
        IdentityTest::SetUp();
    }

    static void Empty(std::string OrvexSnmpDevice::*field) { (OrvexSnmpDevice::GetInstance()->*field).clear(); }

    /// The log lines of one GET at the levels 3 and 6.
    static Lines Logged() {
        Lines lines;
        for (const auto& line : journal::Logged()) {
            if (line[0] != '7') lines.push_back(line);
        }
        return lines;
    }
};

TEST_F(NamelessTest, ModelNumberAndModuleModelAreEmptyWithoutAnErrorLine) {
    EXPECT_EQ(Get(handle_modelNumber), "");
    EXPECT_EQ(Get(handle_moduleModel), "");
    EXPECT_THAT(Logged(), ElementsAre("6 handle_modelNumber: model number = , size = 0",
                                      "6 handle_moduleModel: model number = , size = 0"));
}

TEST_F(NamelessTest, ModelNameIsASubstitute) {
    EXPECT_EQ(Get(handle_modelName), "Error: Model Name not defined");
    EXPECT_THAT(Logged(), ElementsAre("3 handle_modelName: string empty",
                                      "6 handle_modelName: model name = Error: Model Name not defined"));
}

TEST_F(NamelessTest, SerialNumberIsASubstitute) {
    EXPECT_EQ(Get(handle_serialNumber), "Error: Serial Number not defined");
    EXPECT_THAT(Logged(), ElementsAre("3 handle_serialNumber: string empty",
                                      "6 handle_serialNumber: serial number = Error: Serial Number not defined"));
}

TEST_F(NamelessTest, FirmwareVersionIsASubstitute) {
    EXPECT_EQ(Get(handle_fwVersion), "Error: Firmware Version not defined");
    EXPECT_THAT(Logged(), ElementsAre("3 handle_fwVersion: string empty",
                                      "6 handle_fwVersion: fw version = Error: Firmware Version not defined"));
}

TEST_F(NamelessTest, HardwareVersionIsADash) {
    EXPECT_EQ(Get(handle_hwVersion), "-");
    EXPECT_THAT(Logged(), IsEmpty());
}

TEST_F(NamelessTest, EmptyHardwareVersionIsASubstitute) {
    Empty(MemberOf(HardwareVersion()));
    EXPECT_EQ(Get(handle_hwVersion), "Error: Hardware Version not defined");
    EXPECT_THAT(Logged(), ElementsAre("3 handle_hwVersion: string empty"));
}

TEST_F(NamelessTest, ModuleMakeIsSentEmptyAfterAnErrorLine) {
    EXPECT_EQ(Get(handle_moduleMake), "");
    EXPECT_THAT(Logged(), ElementsAre("3 handle_moduleMake: string empty", "6 handle_moduleMake: manufactuer = "));
}

TEST_F(NamelessTest, ModuleVersionHasNoPartsToName) {
    EXPECT_EQ(Get(handle_moduleVersion), " - v");
    EXPECT_THAT(Logged(), ElementsAre("6 handle_moduleVersion: moduleVersion =  - v"));
}

TEST_F(NamelessTest, EmptyModuleVersionIsSentEmptyAfterAnErrorLine) {
    Empty(MemberOf(ModuleVersion()));
    EXPECT_EQ(Get(handle_moduleVersion), "");
    EXPECT_THAT(Logged(),
                ElementsAre("3 handle_moduleVersion: string empty", "6 handle_moduleVersion: moduleVersion = "));
}

TEST_F(NamelessTest, ConstantsAreAnsweredAllTheSame) {
    EXPECT_EQ(Get(handle_moduleDeviceNode), "1.3.6.1.4.1.1206.4.2.7");
    SnmpRequest request(OrvexSnmpOid::oid_moduleType);
    EXPECT_EQ(request.Call(handle_moduleType, MODE_GET), SNMP_ERR_NOERROR);
    EXPECT_EQ(request.Integer(), 2);
    EXPECT_THAT(journal::Logged(3), IsEmpty());
}

class FailedIdentityTest : public StartTest {};

TEST_F(FailedIdentityTest, ModelNumberIsErrorWhenTheIdentityCommandCouldNotBeStarted) {
    _folder.RefuseCommands();
    new OrvexSnmpMain();
    for (auto* const handler : {handle_modelNumber, handle_moduleModel, handle_serialNumber}) {
        SnmpRequest request(OrvexSnmpOid::oid_modelNumber);
        EXPECT_EQ(request.Call(handler, MODE_GET), SNMP_ERR_NOERROR);
        EXPECT_EQ(Text(request), "ERROR");
    }
}

}  // namespace
