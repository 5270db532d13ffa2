#include <memory>
#include <new>
#include <stdexcept>

#include "core/GuardedHandler.h"
#include "core/OrvexSnmpOid.h"
#include "core/OrvexSnmpTrapSend.h"
#include "support/ModuleTest.h"

namespace {

using tavos::msgbus::Work;

enum class Act { kAnswer, kBadAlloc, kRuntimeError, kInt };
Act s_act;

int Handle(netsnmp_mib_handler*, netsnmp_handler_registration*, netsnmp_agent_request_info*, netsnmp_request_info*) {
    if (s_act == Act::kBadAlloc) throw std::bad_alloc();
    if (s_act == Act::kRuntimeError) throw std::runtime_error("no luck");
    if (s_act == Act::kInt) throw 42;
    return SNMP_ERR_READONLY;
}

struct Free {
    void operator()(netsnmp_handler_registration* registration) const {
        netsnmp_handler_registration_free(registration);
    }
};

class GuardedHandlerTest : public ModuleTest {
protected:
    GuardedHandlerTest() {
        s_act = Act::kAnswer;
        SetGuardedBus(&_bus);
        _info.asp = &_session;
        _session.pdu = &_pdu;
        journal::Clear();
    }
    ~GuardedHandlerTest() override { SetGuardedBus(nullptr); }

    int Call(int mode = MODE_GET) {
        _info.mode = mode;
        auto* const handler = _registration->handler;
        return handler->access_method(handler, _registration.get(), &_info, &_request);
    }

    int CallOf(long transid, long reqid) {
        _pdu.transid = transid;
        _pdu.reqid = reqid;
        return Call();
    }

    tavos::msgbus::MsgBus _bus;
    const std::unique_ptr<netsnmp_handler_registration, Free> _registration{CreateGuardedRegistration(
        "object", Handle, OrvexSnmpOid::oid_fwVersion, OID_LENGTH(OrvexSnmpOid::oid_fwVersion), HANDLER_CAN_RWRITE)};
    netsnmp_pdu _pdu{};
    netsnmp_agent_session _session{};
    netsnmp_agent_request_info _info{};
    netsnmp_request_info _request{};
};

}  // namespace

TEST_F(GuardedHandlerTest, TheHandlersAnswerIsTheAgents) {
    EXPECT_EQ(Call(), SNMP_ERR_READONLY);
    EXPECT_EQ(GuardedHandlerOf(_registration->handler), &Handle);
    EXPECT_THAT(journal::All(), IsEmpty());
}

TEST_F(GuardedHandlerTest, EveryExceptionOfAHandlerIsOneErrorLineAndAGenErr) {
    const std::pair<Act, std::string> acts[] = {{Act::kBadAlloc, "object: given up after an exception: std::bad_alloc"},
                                                {Act::kRuntimeError, "object: given up after an exception: no luck"},
                                                {Act::kInt, "object: given up after an exception"}};
    for (const auto& [act, line] : acts) {
        s_act = act;
        for (const int mode : {MODE_SET_RESERVE1, MODE_SET_ACTION, MODE_SET_COMMIT}) {
            journal::Clear();
            EXPECT_EQ(Call(mode), SNMP_ERR_GENERR);
            EXPECT_THAT(journal::Logged(), ElementsAre("3 " + line));
        }
    }
}

TEST_F(GuardedHandlerTest, ARequestBeginsWithItsFirstCall) {
    _pdu.transid = 7;
    for (const int mode : {MODE_SET_RESERVE1, MODE_SET_RESERVE2, MODE_SET_ACTION, MODE_SET_COMMIT}) Call(mode);
    EXPECT_THAT(Camera().begun, ElementsAre(Work::kRequest));
    CallOf(8, 0);
    CallOf(8, 0);
    EXPECT_EQ(Camera().begun.size(), 2u);
}

TEST_F(GuardedHandlerTest, TheAgentsQueriesToItselfDifferInTheirRequestIdsOnly) {
    CallOf(0, 100);
    CallOf(0, 100);
    CallOf(0, 102);
    CallOf(5, 102);
    CallOf(0, 104);
    EXPECT_EQ(Camera().begun.size(), 4u);
}

TEST_F(GuardedHandlerTest, AStartEndsTheRequestBefore) {
    CallOf(7, 1);
    BeginGuardedStart();
    CallOf(7, 1);
    EXPECT_THAT(Camera().begun, ElementsAre(Work::kRequest, Work::kStart, Work::kRequest));
}

TEST_F(GuardedHandlerTest, CallsWithoutASessionOrABusAreHandledAllTheSame) {
    _session.pdu = nullptr;
    EXPECT_EQ(Call(), SNMP_ERR_READONLY);
    _info.asp = nullptr;
    EXPECT_EQ(Call(), SNMP_ERR_READONLY);
    SetGuardedBus(nullptr);
    BeginGuardedStart();
    _info.asp = &_session;
    _session.pdu = &_pdu;
    EXPECT_EQ(Call(), SNMP_ERR_READONLY);
    EXPECT_THAT(Camera().begun, IsEmpty());
}

TEST_F(GuardedHandlerTest, NothingThatSendingATrapThrowsReachesTheAgent) {
    OrvexSnmpTrapSend trapSend;
    netsnmp_variable_list* list = nullptr;
    const oid* const name = OrvexSnmpOid::oid_temperature;
    const std::size_t length = OID_LENGTH(OrvexSnmpOid::oid_temperature);
    snmp_varlist_add_variable(&list, OrvexSnmpOid::oid_snmpTrap, OID_LENGTH(OrvexSnmpOid::oid_snmpTrap), ASN_OBJECT_ID,
                              name, length * sizeof(oid));
    trapSend.send_v2trap(list);
    journal::Clear();
    Agent().whileSending = [] { throw std::bad_alloc(); };
    EXPECT_NO_THROW(OrvexSnmpTrapSend::snmpMainCallback(0, nullptr));
    EXPECT_THAT(journal::Logged(3), ElementsAre("snmpMainCallback: given up after an exception: std::bad_alloc"));
    Agent().whileSending = nullptr;
    OrvexSnmpTrapSend::ForgetInstance();
}
