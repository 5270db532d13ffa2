#include <dlfcn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <string>
#include <vector>

#include "core/OrvexSnmpOid.h"
#include "frame/RebootHandler.h"
#include "support/StartedModule.h"

namespace {

/// What the test makes of the program that the module starts.
enum class Exec { kReal, kRecorded, kFailing };
Exec s_exec = Exec::kReal;
pid_t s_agent = -1;  // the process that must keep running

}  // namespace

static void JournalExecution(const char* program, char* const* arguments) {
    std::string line = std::string("execv ") + program;
    for (; *arguments != nullptr; ++arguments) line += std::string(" [") + *arguments + "]";
    journal::Add(line);
}

/// Until here the module's child shares the test's memory, including the journal.
extern "C" int execv(const char* program, char* const* arguments) {
    static const auto original = reinterpret_cast<decltype(&execv)>(dlsym(RTLD_NEXT, "execv"));
    if (getpid() == s_agent) {
        std::cerr << "the agent itself runs " << program << std::endl;
        std::abort();
    }
    if (s_exec == Exec::kReal) return original(program, arguments);
    JournalExecution(program, arguments);
    if (s_exec == Exec::kRecorded) _exit(0);
    errno = ENOENT;
    return -1;
}

namespace {

const std::string kScript = ORVEX_RESTART_SCRIPT;
const std::string kExecuted =
    "execv /bin/sh [/bin/sh] [-c] [/bin/chmod +x " + kScript + " && /bin/sleep 3 && " + kScript + " -s -k]";
const std::string kOid = "log 7 handle_rebootDevice: Received OID \n";
const std::string kRebooting =
    "log 3 handle_rebootDevice: rebootDevice variable set for this camera using snmpset, rebooting system now!!!!";
const std::string kFallback = "log 3 handle_rebootDevice: error with execve, calling system()...";

class RebootTest : public StartedModuleTest {
protected:
    RebootTest() {
        s_exec = Exec::kRecorded;
        s_agent = getpid();
        // The first call of dlsym must not be the child's.
        dlsym(RTLD_NEXT, "execv");
    }
    ~RebootTest() override {
        // Resets the value, which would affect the next test.
        SnmpRequest request(OrvexSnmpOid::oid_rebootDevice);
        request.Call(handle_rebootDevice, MODE_SET_UNDO);
        while (WaitForChild() != -1) {
        }
        for (const auto& [number, callback] : std::map(Agent().alarms)) callback(number, nullptr);
        s_exec = Exec::kReal;
    }

    static int Call(SnmpRequest& request, int mode) { return request.Call(handle_rebootDevice, mode); }

    static long Value() {
        SnmpRequest request(OrvexSnmpOid::oid_rebootDevice);
        EXPECT_EQ(Call(request, MODE_GET), SNMP_ERR_NOERROR);
        EXPECT_EQ(request.Type(), ASN_INTEGER);
        return request.Integer();
    }

    /// Waits until the module's child ends; its exit status, or -1 when there is none.
    static int WaitForChild() {
        int status = 0;
        return waitpid(-1, &status, 0) > 0 && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

    static Lines Executed() { return journal::All("execv"); }
};

// --- GET ---

TEST_F(RebootTest, GetBeforeAnySetIsZero) {
    SnmpRequest request(OrvexSnmpOid::oid_rebootDevice);
    EXPECT_EQ(Call(request, MODE_GET), SNMP_ERR_NOERROR);
    EXPECT_EQ(request.Type(), ASN_INTEGER);
    EXPECT_EQ(request.Integer(), 0);
    EXPECT_THAT(Agent().answers, ElementsAre(FakeAgent::Answer{ASN_INTEGER, 4}));
    EXPECT_THAT(journal::All(), ElementsAre(kOid));
}

TEST_F(RebootTest, LogsTheEndOfTheRangeInEveryMode) {
    for (const int mode : {0, 1, 2, 3, 4, 5, 160, 161}) {
        journal::Clear();
        SnmpRequest request(OrvexSnmpOid::oid_rebootDevice);
        request.WithInteger(0).WithRangeEnd({1, 3, 6, 9});
        Call(request, mode);
        EXPECT_EQ(journal::All().front(), "log 7 handle_rebootDevice: Received OID .1.3.6.9\n") << mode;
    }
}

TEST_F(RebootTest, GetAnswersTheFirstRequestOnly) {
    SnmpRequest request(OrvexSnmpOid::oid_rebootDevice);
    SnmpRequest next(OrvexSnmpOid::oid_rebootDevice);
    request.Chain(next);
    EXPECT_EQ(Call(request, MODE_GET), SNMP_ERR_NOERROR);
    EXPECT_EQ(request.Type(), ASN_INTEGER);
    EXPECT_EQ(next.Type(), ASN_NULL);
}

// --- SET, phase by phase ---

TEST_F(RebootTest, ReserveAcceptsEveryInteger) {
    for (const long value : {0L, 1L, -1L, 2147483647L, -2147483647L - 1}) {
        SnmpRequest request(OrvexSnmpOid::oid_rebootDevice);
        request.WithInteger(value);
        EXPECT_EQ(Call(request, MODE_SET_RESERVE1), SNMP_ERR_NOERROR);
        EXPECT_EQ(request.Mark(), SNMP_ERR_NOERROR);
    }
}

TEST_F(RebootTest, ReserveMarksEveryOtherTypeAsWrong) {
    const long value = 1;
    const std::vector<int> types = {ASN_OCTET_STR, ASN_NULL,   ASN_OBJECT_ID, ASN_IPADDRESS, ASN_COUNTER, ASN_GAUGE,
                                    ASN_TIMETICKS, ASN_OPAQUE, ASN_COUNTER64, 0x80,          0x81,        0x82};
    for (const int type : types) {
        journal::Clear();
        SnmpRequest request(OrvexSnmpOid::oid_rebootDevice);
        request.With(static_cast<u_char>(type), &value, sizeof value);
        EXPECT_EQ(Call(request, MODE_SET_RESERVE1), SNMP_ERR_NOERROR) << type;
        EXPECT_EQ(request.Mark(), SNMP_ERR_WRONGTYPE) << type;
        EXPECT_THAT(journal::All(), ElementsAre(kOid));
    }
}

TEST_F(RebootTest, ReserveAndFreeDoNothingElse) {
    for (const int mode : {MODE_SET_RESERVE1, MODE_SET_RESERVE2, MODE_SET_FREE}) {
        journal::Clear();
        SnmpRequest request(OrvexSnmpOid::oid_rebootDevice);
        request.WithInteger(5);
        EXPECT_EQ(Call(request, mode), SNMP_ERR_NOERROR);
        EXPECT_EQ(request.Mark(), SNMP_ERR_NOERROR);
        EXPECT_THAT(Agent().answers, IsEmpty());
        EXPECT_THAT(journal::All(), ElementsAre(kOid));
        EXPECT_EQ(Value(), 0);
    }
}

TEST_F(RebootTest, Reserve2DoesNotLookAtTheType) {
    SnmpRequest request(OrvexSnmpOid::oid_rebootDevice);
    request.WithOctets({1});
    EXPECT_EQ(Call(request, MODE_SET_RESERVE2), SNMP_ERR_NOERROR);
    EXPECT_EQ(request.Mark(), SNMP_ERR_NOERROR);
}

TEST_F(RebootTest, ActionStoresTheValueAndStartsNothing) {
    for (const long value : {1L, -1L, 2147483647L, -2147483647L - 1, 0L}) {
        journal::Clear();
        SnmpRequest request(OrvexSnmpOid::oid_rebootDevice);
        request.WithInteger(value);
        EXPECT_EQ(Call(request, MODE_SET_ACTION), SNMP_ERR_NOERROR);
        EXPECT_THAT(journal::All(), ElementsAre(kOid));
        EXPECT_EQ(Value(), value);
    }
}

TEST_F(RebootTest, ActionTakesMissingOctetsAsZero) {
    SnmpRequest request(OrvexSnmpOid::oid_rebootDevice);
    request.WithInteger(7);
    Call(request, MODE_SET_ACTION);

    SnmpRequest empty(OrvexSnmpOid::oid_rebootDevice);
    EXPECT_EQ(Call(empty, MODE_SET_ACTION), SNMP_ERR_NOERROR);
    EXPECT_EQ(Value(), 0);

    SnmpRequest oneOctet(OrvexSnmpOid::oid_rebootDevice);
    oneOctet.WithOctets({9});
    EXPECT_EQ(Call(oneOctet, MODE_SET_ACTION), SNMP_ERR_NOERROR);
    EXPECT_EQ(Value(), 9);
}

TEST_F(RebootTest, UndoSetsTheValueBackToZero) {
    SnmpRequest request(OrvexSnmpOid::oid_rebootDevice);
    request.WithInteger(3);
    Call(request, MODE_SET_ACTION);
    ASSERT_EQ(Value(), 3);
    journal::Clear();
    EXPECT_EQ(Call(request, MODE_SET_UNDO), SNMP_ERR_NOERROR);
    EXPECT_THAT(journal::All(), ElementsAre(kOid));
    EXPECT_EQ(Value(), 0);
}

TEST_F(RebootTest, CommitAnswersTheValueAndStartsTheRestartScript) {
    SnmpRequest request(OrvexSnmpOid::oid_rebootDevice);
    request.WithInteger(6);
    Call(request, MODE_SET_ACTION);
    journal::Clear();

    EXPECT_EQ(Call(request, MODE_SET_COMMIT), SNMP_ERR_NOERROR);

    EXPECT_THAT(Agent().answers, ElementsAre(FakeAgent::Answer{ASN_INTEGER, 4}));
    EXPECT_EQ(request.Type(), ASN_INTEGER);
    EXPECT_EQ(request.Integer(), 6);
    EXPECT_EQ(request.Mark(), SNMP_ERR_NOERROR);
    EXPECT_THAT(journal::All(), ElementsAre(kOid, kRebooting, kExecuted));
    EXPECT_EQ(Value(), 6);
}

TEST_F(RebootTest, CommitAnswersWhatActionStoredAndNotWhatItFinds) {
    SnmpRequest request(OrvexSnmpOid::oid_rebootDevice);
    request.WithInteger(6);
    EXPECT_EQ(Call(request, MODE_SET_COMMIT), SNMP_ERR_NOERROR);
    EXPECT_EQ(request.Integer(), 0);
}

TEST_F(RebootTest, RefusesUnknownModes) {
    for (const int mode : {161, 162, 165, 6, 1000, -1}) {
        journal::Clear();
        SnmpRequest request(OrvexSnmpOid::oid_rebootDevice);
        request.WithInteger(4);
        EXPECT_EQ(Call(request, mode), SNMP_ERR_GENERR);
        EXPECT_EQ(request.Mark(), SNMP_ERR_NOERROR);
        EXPECT_THAT(Agent().answers, IsEmpty());
        EXPECT_THAT(journal::All(),
                    ElementsAre(kOid, "log 3 handle_rebootDevice: unknown mode (" + std::to_string(mode) + ")"));
        EXPECT_EQ(Value(), 0);
    }
}

// --- whole SETs ---

TEST_F(RebootTest, EveryIntegerReboots) {
    for (const long value : {0L, 1L, -7L}) {
        journal::Clear();
        SnmpRequest request(OrvexSnmpOid::oid_rebootDevice);
        request.WithInteger(value);
        EXPECT_EQ(request.Set(handle_rebootDevice), SNMP_ERR_NOERROR);
        EXPECT_THAT(Executed(), ElementsAre(kExecuted));
        EXPECT_EQ(request.Integer(), value);
        EXPECT_EQ(Value(), value);
    }
}

TEST_F(RebootTest, AnOctetStringIsTheWrongTypeAndStartsNothing) {
    SnmpRequest request(OrvexSnmpOid::oid_rebootDevice);
    request.WithOctets({1, 0, 0, 0});
    EXPECT_EQ(request.Set(handle_rebootDevice), SNMP_ERR_WRONGTYPE);
    EXPECT_THAT(Executed(), IsEmpty());
    EXPECT_THAT(journal::Logged(3), IsEmpty());
    EXPECT_EQ(Value(), 0);
}

// --- the agent's debug facility ---

class RebootDebugTest : public RebootTest {
protected:
    static constexpr auto kAgentLog = "agent.log";

    RebootDebugTest() {
        snmp_disable_log();
        snmp_enable_filelog(kAgentLog, 0);
    }
    ~RebootDebugTest() override {
        snmp_set_do_debugging(0);
        snmp_debug_shutdown();  // forgets the tokens
        snmp_disable_log();
    }

    /// ACTION's lines in the agent's log.
    std::string Debugged(long value) {
        const auto before = _folder.Read(kAgentLog);
        SnmpRequest request(OrvexSnmpOid::oid_rebootDevice);
        request.WithInteger(value);
        EXPECT_EQ(Call(request, MODE_SET_ACTION), SNMP_ERR_NOERROR);
        return _folder.Read(kAgentLog).substr(before.size());
    }
};

TEST_F(RebootDebugTest, ActionNamesTheNewValueWhenDebuggingIsOn) {
    debug_register_tokens("handle_rebootDevice");
    snmp_set_do_debugging(1);
    EXPECT_EQ(Debugged(-4), "handle_rebootDevice: The new value of rebootDevice is -4 \n");
}

TEST_F(RebootDebugTest, ActionWritesTheAgentsUsualTraceLineToo) {
    debug_register_tokens("handle_rebootDevice,trace");
    snmp_set_do_debugging(1);
    const auto text = Debugged(2);
    EXPECT_EQ(text.find("trace: handle_rebootDevice(): "), 0u) << text;
    EXPECT_THAT(text, testing::EndsWith("\nhandle_rebootDevice: The new value of rebootDevice is 2 \n"));
}

TEST_F(RebootDebugTest, ActionWritesNothingWhenDebuggingIsOff) {
    debug_register_tokens("handle_rebootDevice");
    snmp_set_do_debugging(0);
    EXPECT_EQ(Debugged(4), "");
}

TEST_F(RebootDebugTest, ActionWritesUnderItsOwnTokenOnly) {
    debug_register_tokens("something_else");
    snmp_set_do_debugging(1);
    EXPECT_EQ(Debugged(4), "");
}

// --- the restart itself ---

TEST_F(RebootTest, WithoutAShellTheScriptRunsAtOnceThroughSystem) {
    _folder.RestartScript("echo \"$# $*\" > restarted", 0644);
    s_exec = Exec::kFailing;
    SnmpRequest request(OrvexSnmpOid::oid_rebootDevice);
    request.WithInteger(1);
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(Call(request, MODE_SET_COMMIT), SNMP_ERR_NOERROR);

    EXPECT_EQ(WaitForChild(), 2);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(3));
    EXPECT_THAT(journal::All(), ElementsAre(kOid, kRebooting, kExecuted, kFallback));
    EXPECT_EQ(_folder.Read("restarted"), "2 -s -k\n");
}

TEST_F(RebootTest, ChildEndsWithTwoAlsoWhenTheFallbackFails) {
    s_exec = Exec::kFailing;
    SnmpRequest request(OrvexSnmpOid::oid_rebootDevice);
    request.WithInteger(1);
    // chmod reports a missing script.
    testing::internal::CaptureStderr();
    EXPECT_EQ(Call(request, MODE_SET_COMMIT), SNMP_ERR_NOERROR);
    EXPECT_EQ(WaitForChild(), 2);
    testing::internal::GetCapturedStderr();
    EXPECT_THAT(journal::All(), ElementsAre(kOid, kRebooting, kExecuted, kFallback));
}

TEST_F(RebootTest, TheScriptRunsThreeSecondsLaterWhileTheAgentGoesOn) {
    _folder.RestartScript("echo \"$# $*\" > restarting && mv restarting restarted", 0644);
    s_exec = Exec::kReal;
    const auto begin = std::chrono::steady_clock::now();
    SnmpRequest request(OrvexSnmpOid::oid_rebootDevice);
    request.WithInteger(1);
    EXPECT_EQ(request.Set(handle_rebootDevice), SNMP_ERR_NOERROR);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(2));

    EXPECT_EQ(WaitForChild(), 0);
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::seconds(3));
    EXPECT_EQ(_folder.Read("restarted"), "2 -s -k\n");
    EXPECT_THAT(journal::Logged(3), Each(HasSubstr("rebooting system now")));
}

/// The children of this process that still run or are zombies.
int Children() {
    int count = 0;
    for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
        std::ifstream file(entry.path() / "stat");
        std::string id, name, state;
        pid_t parent = 0;
        if (file >> id >> name >> state >> parent && parent == getpid()) ++count;
    }
    return count;
}

TEST_F(RebootTest, EveryChildIsCollectedWhateverComesNext) {
    for (int i = 0; i < 20; ++i) {
        SnmpRequest request(OrvexSnmpOid::oid_rebootDevice);
        request.WithInteger(1);
        EXPECT_EQ(Call(request, MODE_SET_COMMIT), SNMP_ERR_NOERROR);
    }
    EXPECT_EQ(Children(), 20);
    EXPECT_EQ(Agent().alarms.size(), 1u);
    // The agent calls its alarms once a second, even without requests.
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (!Agent().alarms.empty() && std::chrono::steady_clock::now() < deadline) {
        const auto [number, callback] = *Agent().alarms.begin();
        callback(number, nullptr);
    }
    EXPECT_EQ(Children(), 0);
    EXPECT_THAT(Agent().alarms, IsEmpty());
}

TEST_F(RebootTest, AChildThatStillRunsKeepsTheAlarm) {
    _folder.RestartScript("exit 0");
    s_exec = Exec::kReal;
    SnmpRequest request(OrvexSnmpOid::oid_rebootDevice);
    request.WithInteger(1);
    EXPECT_EQ(Call(request, MODE_SET_COMMIT), SNMP_ERR_NOERROR);
    ASSERT_EQ(Agent().alarms.size(), 1u);
    Agent().alarms.begin()->second(1, nullptr);
    EXPECT_EQ(Agent().alarms.size(), 1u);
    EXPECT_EQ(WaitForChild(), 0);
    Agent().alarms.begin()->second(1, nullptr);
    EXPECT_THAT(Agent().alarms, IsEmpty());
}

TEST_F(RebootTest, TheSetSucceedsWhenThereCanBeNoChild) {
    const auto commitWithoutChildren = [] {
        s_agent = getpid();
        // The limit on processes does not apply to root.
        const rlimit none{0, 0};
        setrlimit(RLIMIT_NPROC, &none);
        if (geteuid() == 0 && setuid(65534) != 0) _exit(90);
        const pid_t child = fork();
        if (child == 0) _exit(0);
        if (child != -1) _exit(91);

        journal::Clear();
        SnmpRequest request(OrvexSnmpOid::oid_rebootDevice);
        request.WithInteger(1);
        const int result = Call(request, MODE_SET_COMMIT);
        for (const auto& line : journal::All()) std::cerr << "[" << line << "]";
        std::cerr << ";" << std::endl;
        _exit(result == SNMP_ERR_NOERROR && request.Mark() == 0 ? 0 : 92);
    };
    EXPECT_EXIT(
        commitWithoutChildren(), testing::ExitedWithCode(0),
        "^\\[log 7 handle_rebootDevice: Received OID \n\\]\\[log 3 handle_rebootDevice: rebootDevice variable set "
        "for this camera using snmpset, rebooting system now!!!!\\];\n$");
}

// --- requests with several bindings ---

TEST_F(RebootTest, ASetActsOnTheFirstRequestOfItsListAlone) {
    SnmpRequest first(OrvexSnmpOid::oid_rebootDevice);
    SnmpRequest next(OrvexSnmpOid::oid_rebootDevice);
    first.WithInteger(6).Chain(next);
    next.WithOctets({1});
    EXPECT_EQ(Call(first, MODE_SET_RESERVE1), SNMP_ERR_NOERROR);
    EXPECT_EQ(first.Mark(), SNMP_ERR_NOERROR);
    EXPECT_EQ(next.Mark(), SNMP_ERR_NOERROR);

    next.WithInteger(9);
    EXPECT_EQ(Call(first, MODE_SET_ACTION), SNMP_ERR_NOERROR);
    EXPECT_EQ(Value(), 6);
    journal::Clear();
    EXPECT_EQ(Call(first, MODE_SET_COMMIT), SNMP_ERR_NOERROR);
    EXPECT_EQ(first.Integer(), 6);
    EXPECT_EQ(next.Integer(), 9);
    EXPECT_THAT(Agent().answers, ElementsAre(FakeAgent::Answer{ASN_INTEGER, 4}));
    EXPECT_THAT(journal::All(), ElementsAre(kOid, kRebooting, kExecuted));
}

TEST_F(RebootTest, AWrongTypeOfTheFirstRequestIsMarkedThereAlone) {
    SnmpRequest first(OrvexSnmpOid::oid_rebootDevice);
    SnmpRequest next(OrvexSnmpOid::oid_rebootDevice);
    first.WithOctets({1}).Chain(next);
    next.WithInteger(9);
    EXPECT_EQ(Call(first, MODE_SET_RESERVE1), SNMP_ERR_NOERROR);
    EXPECT_EQ(first.Mark(), SNMP_ERR_WRONGTYPE);
    EXPECT_EQ(next.Mark(), SNMP_ERR_NOERROR);
}

}  // namespace
