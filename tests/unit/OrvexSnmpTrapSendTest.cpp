#include <dlfcn.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <iostream>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "core/OrvexSnmpOid.h"
#include "core/OrvexSnmpTrapSend.h"
#include "support/ModuleTest.h"
#include "support/Opened.h"
#include "tavos/osa/Mutex.h"

struct QueueMutex {
    using Type = tavos::osa::Mutex OrvexSnmpTrapSend::*;
    friend Type MemberOf(QueueMutex);
};
template struct Opened<QueueMutex, &OrvexSnmpTrapSend::_mutex>;

struct QueueWriteDescriptor {
    using Type = int OrvexSnmpTrapSend::*;
    friend Type MemberOf(QueueWriteDescriptor);
};
template struct Opened<QueueWriteDescriptor, &OrvexSnmpTrapSend::_writeDescriptor>;

namespace {

std::atomic<bool> s_journalFrees{false};
std::atomic<bool> s_journalLocks{false};

}  // namespace

/// The linker redirects the queue's calls of Mutex::Lock to __wrap_..., and calls of __real_... to Mutex::Lock.
extern "C" {
bool __real__ZN5tavos3osa5Mutex4LockEj(tavos::osa::Mutex* mutex, std::uint32_t timeout);
bool __wrap__ZN5tavos3osa5Mutex4LockEj(tavos::osa::Mutex* mutex, std::uint32_t timeout) {
    if (s_journalLocks) journal::Add(journal::Join("lock", mutex->Name(), timeout));
    return __real__ZN5tavos3osa5Mutex4LockEj(mutex, timeout);
}
}

/// Records calls while a test of this file enables it, and calls the library's function.
extern "C" void snmp_free_varbind(netsnmp_variable_list* list) {
    static const auto original = reinterpret_cast<decltype(&snmp_free_varbind)>(dlsym(RTLD_NEXT, "snmp_free_varbind"));
    if (s_journalFrees) journal::Add("agent snmp_free_varbind");
    original(list);
}

namespace {

netsnmp_variable_list* Trap(int value) {
    netsnmp_variable_list* list = nullptr;
    const oid* const name = OrvexSnmpOid::oid_temperature;
    const std::size_t length = OID_LENGTH(OrvexSnmpOid::oid_temperature);
    snmp_varlist_add_variable(&list, OrvexSnmpOid::oid_snmpTrap, OID_LENGTH(OrvexSnmpOid::oid_snmpTrap), ASN_OBJECT_ID,
                              name, length * sizeof(oid));
    snmp_varlist_add_variable(&list, name, length, ASN_GAUGE, &value, sizeof value);
    return list;
}

bool Readable(int descriptor) {
    pollfd polled{descriptor, POLLIN, 0};
    return poll(&polled, 1, 0) == 1 && (polled.revents & POLLIN) != 0;
}

std::vector<int> OpenDescriptors() {
    std::vector<int> descriptors;
    for (int descriptor = 0; descriptor < 1024; ++descriptor) {
        if (fcntl(descriptor, F_GETFD) != -1) descriptors.push_back(descriptor);
    }
    return descriptors;
}

/// While it lives, the process can open no descriptor.
class NoMoreDescriptors {
public:
    NoMoreDescriptors() {
        getrlimit(RLIMIT_NOFILE, &_before);
        const rlimit none{0, _before.rlim_max};
        setrlimit(RLIMIT_NOFILE, &none);
    }
    ~NoMoreDescriptors() { setrlimit(RLIMIT_NOFILE, &_before); }
    NoMoreDescriptors(const NoMoreDescriptors&) = delete;
    NoMoreDescriptors& operator=(const NoMoreDescriptors&) = delete;

private:
    rlimit _before{};
};

class TrapSendTest : public ModuleTest {
protected:
    TrapSendTest() {
        // A queue that blocks its thread forever must fail the test.
        alarm(60);
    }
    ~TrapSendTest() override {
        s_journalFrees = false;
        s_journalLocks = false;
        Destroy();
        alarm(0);
    }

    void Construct() {
        _trapSend = std::make_unique<OrvexSnmpTrapSend>();
        _readDescriptor = Agent().readDescriptor;
    }

    void ConstructWithoutPipe() {
        std::unique_ptr<OrvexSnmpTrapSend> made;
        {
            const NoMoreDescriptors noMore;
            made = std::make_unique<OrvexSnmpTrapSend>();
        }
        _trapSend = std::move(made);
    }

    void Destroy() {
        _trapSend.reset();
        OrvexSnmpTrapSend::ForgetInstance();
    }

    /// Like the agent's main loop: calls back as long as the descriptor is readable.
    static void RunAgentLoop() {
        while (Readable(Agent().readDescriptor)) Agent().readCallback(Agent().readDescriptor, Agent().readData);
    }

    static std::vector<unsigned long> SentValues() {
        std::vector<unsigned long> values;
        for (const auto& trap : Agent().traps) values.push_back(trap.value);
        return values;
    }

    std::unique_ptr<OrvexSnmpTrapSend> _trapSend;
    int _readDescriptor = -1;
};

// --- construction ---

TEST_F(TrapSendTest, HasNoInstanceBeforeItsConstruction) {
    EXPECT_EQ(OrvexSnmpTrapSend::GetInstance(), nullptr);
}

TEST_F(TrapSendTest, RegistersItsPipeWithTheAgentsMainLoop) {
    Construct();
    EXPECT_THAT(journal::All(), ElementsAre("logger EnableDebugLogging", "log 8 OrvexSnmpTrapSend: Enter",
                                            "agent register_readfd", "log 8 OrvexSnmpTrapSend: Done."));
    EXPECT_EQ(OrvexSnmpTrapSend::GetInstance(), _trapSend.get());
    EXPECT_EQ(Agent().readCallback, &OrvexSnmpTrapSend::snmpMainCallback);
    EXPECT_EQ(Agent().readData, nullptr);
    EXPECT_NE(fcntl(_readDescriptor, F_GETFD), -1);
    EXPECT_EQ(fcntl(_readDescriptor, F_GETFL) & O_ACCMODE, O_RDONLY);
    EXPECT_FALSE(Readable(_readDescriptor));
}

TEST_F(TrapSendTest, KeepsItsPipeFromTheProgramsThatTheModuleStarts) {
    const auto before = OpenDescriptors();
    Construct();
    int added = 0;
    for (const int descriptor : OpenDescriptors()) {
        if (std::find(before.begin(), before.end(), descriptor) != before.end()) continue;
        ++added;
        EXPECT_NE(fcntl(descriptor, F_GETFD) & FD_CLOEXEC, 0);
    }
    EXPECT_EQ(added, 2);
}

TEST_F(TrapSendTest, GoesOnWithoutAPipe) {
    ConstructWithoutPipe();
    // The agent must not watch an invalid descriptor.
    EXPECT_THAT(journal::All(),
                ElementsAre("logger EnableDebugLogging", "log 8 OrvexSnmpTrapSend: Enter",
                            "log 3 OrvexSnmpTrapSend: Could not create pipe!",
                            "log 3 OrvexSnmpTrapSend: Couldn't register the callback function for sending traps!",
                            "log 8 OrvexSnmpTrapSend: Done."));
    EXPECT_EQ(OrvexSnmpTrapSend::GetInstance(), _trapSend.get());
    EXPECT_EQ(_trapSend->send_v2trap(Trap(1)), 0);
    EXPECT_THAT(Agent().traps, IsEmpty());
}

TEST_F(TrapSendTest, GoesOnWhenTheAgentRefusesTheDescriptor) {
    Agent().refusing = {"readfd"};
    Construct();
    EXPECT_THAT(journal::All(),
                ElementsAre("logger EnableDebugLogging", "log 8 OrvexSnmpTrapSend: Enter", "agent register_readfd",
                            "log 3 OrvexSnmpTrapSend: Couldn't register the callback function for sending traps!",
                            "log 8 OrvexSnmpTrapSend: Done."));
    EXPECT_EQ(_trapSend->send_v2trap(Trap(1)), 0);
    EXPECT_THAT(Agent().traps, IsEmpty());
}

TEST_F(TrapSendTest, SecondConstructionEndsTheProcessWithStatusMinusOneAfterItsErrorLine) {
    Construct();
    const auto constructAgain = [] {
        journal::Clear();
        // Prints the ending process's lines for the death test.
        std::atexit([] {
            std::string lines = "journal:";
            for (const auto& line : journal::All()) lines += "[" + line + "]";
            std::cerr << lines << ";" << std::endl;
        });
        const OrvexSnmpTrapSend second;
        std::cerr << "still running" << std::endl;
        _exit(0);
    };
    EXPECT_EXIT(constructAgain(), testing::ExitedWithCode(255),
                "^journal:\\[log 3 OrvexSnmpTrapSend: Duplicate instance, exiting!\\];\n");
    EXPECT_EQ(OrvexSnmpTrapSend::GetInstance(), _trapSend.get());
}

// --- queueing ---

TEST_F(TrapSendTest, ItsMutexHasAName) {
    Construct();
    EXPECT_EQ((_trapSend.get()->*MemberOf(QueueMutex())).Name(), "TrapSend");
}

TEST_F(TrapSendTest, QueueingOnlyWakesTheAgent) {
    Construct();
    journal::Clear();
    EXPECT_EQ(_trapSend->send_v2trap(Trap(1)), 0);
    EXPECT_THAT(journal::All(), ElementsAre("log 8 send_v2trap: enter...", "log 8 send_v2trap: Done."));
    ASSERT_TRUE(Readable(_readDescriptor));

    char bytes[8] = {};
    EXPECT_EQ(read(_readDescriptor, bytes, sizeof bytes), 1);
    EXPECT_EQ(bytes[0], '1');
}

TEST_F(TrapSendTest, WritesOneByteForEachTrap) {
    Construct();
    for (int value = 0; value < 5; ++value) _trapSend->send_v2trap(Trap(value));
    char bytes[8] = {};
    EXPECT_EQ(read(_readDescriptor, bytes, sizeof bytes), 5);
    EXPECT_STREQ(bytes, "11111");
}

// --- sending ---

TEST_F(TrapSendTest, CallbackSendsFreesAndRemovesEachTrapInTurn) {
    Construct();
    _trapSend->send_v2trap(Trap(1));
    _trapSend->send_v2trap(Trap(2));
    journal::Clear();
    s_journalFrees = true;

    Agent().readCallback(_readDescriptor, nullptr);

    EXPECT_THAT(journal::All(),
                ElementsAre("log 8 snmpMainCallback: enter...", "log 8 CallSnmpSendTrap: enter...",
                            "log 6 CallSnmpSendTrap: Calling into snmp code to send trap.", "agent send_v2trap",
                            "agent snmp_free_varbind", "log 6 CallSnmpSendTrap: Removing from queue...",
                            "log 6 CallSnmpSendTrap: Calling into snmp code to send trap.", "agent send_v2trap",
                            "agent snmp_free_varbind", "log 6 CallSnmpSendTrap: Removing from queue...",
                            "log 8 CallSnmpSendTrap: Done.", "log 8 snmpMainCallback: Done."));
    EXPECT_THAT(SentValues(), ElementsAre(1u, 2u));
}

TEST_F(TrapSendTest, TrapsOfAnotherThreadAreSentInTheirOrderInOneCallback) {
    Construct();
    netsnmp_variable_list* const traps[] = {Trap(1), Trap(2), Trap(3)};
    std::thread([&] {
        for (auto* trap : traps) OrvexSnmpTrapSend::GetInstance()->send_v2trap(trap);
    }).join();
    EXPECT_THAT(Agent().traps, IsEmpty());

    Agent().readCallback(_readDescriptor, nullptr);

    EXPECT_THAT(SentValues(), ElementsAre(1u, 2u, 3u));
    EXPECT_FALSE(Readable(_readDescriptor));
}

TEST_F(TrapSendTest, CallbackIgnoresItsArguments) {
    Construct();
    _trapSend->send_v2trap(Trap(7));
    int data = 0;
    OrvexSnmpTrapSend::snmpMainCallback(-1, &data);
    EXPECT_THAT(SentValues(), ElementsAre(7u));
    EXPECT_FALSE(Readable(_readDescriptor));
}

TEST_F(TrapSendTest, CallbackWithoutATrapReadsNothing) {
    Construct();
    journal::Clear();
    Agent().readCallback(_readDescriptor, nullptr);
    EXPECT_THAT(journal::All(), ElementsAre("log 8 snmpMainCallback: enter...", "log 8 CallSnmpSendTrap: enter...",
                                            "log 8 CallSnmpSendTrap: Done.", "log 8 snmpMainCallback: Done."));
    EXPECT_THAT(Agent().traps, IsEmpty());
}

TEST_F(TrapSendTest, DrainedQueueTakesNewTraps) {
    Construct();
    _trapSend->send_v2trap(Trap(1));
    RunAgentLoop();
    _trapSend->send_v2trap(Trap(2));
    RunAgentLoop();
    EXPECT_THAT(SentValues(), ElementsAre(1u, 2u));
}

TEST_F(TrapSendTest, NothingIsQueuedWhileTheAgentsThreadSends) {
    Construct();
    auto* const second = Trap(2);
    std::thread producer;
    Agent().whileSending = [&] {
        journal::Clear();
        producer = std::thread([&] { _trapSend->send_v2trap(second); });
        std::this_thread::sleep_for(std::chrono::milliseconds(250));
        EXPECT_THAT(journal::All(), ElementsAre("log 8 send_v2trap: enter..."));
        EXPECT_FALSE(Readable(_readDescriptor));
    };
    _trapSend->send_v2trap(Trap(1));
    Agent().readCallback(_readDescriptor, nullptr);
    EXPECT_THAT(SentValues(), ElementsAre(1u));

    Agent().whileSending = nullptr;
    producer.join();
    RunAgentLoop();
    EXPECT_THAT(SentValues(), ElementsAre(1u, 2u));
}

TEST_F(TrapSendTest, FullPipeHoldsUpTheProducerButNotTheAgent) {
    Construct();
    // One-byte writes fill a pipe exactly to its size.
    const int room = fcntl(_readDescriptor, F_GETPIPE_SZ);
    ASSERT_EQ(room, 4096);
    for (int value = 0; value < room; ++value) _trapSend->send_v2trap(Trap(value));
    journal::Clear();

    auto* const oneMore = Trap(room);
    std::thread producer([&] { _trapSend->send_v2trap(oneMore); });
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    EXPECT_THAT(journal::All(), ElementsAre("log 8 send_v2trap: enter..."));

    RunAgentLoop();
    producer.join();
    RunAgentLoop();

    const auto sent = SentValues();
    ASSERT_EQ(sent.size(), static_cast<std::size_t>(room) + 1);
    for (std::size_t i = 0; i < sent.size(); ++i) ASSERT_EQ(sent[i], i);
    EXPECT_FALSE(Readable(_readDescriptor));
}

TEST_F(TrapSendTest, ManyThreadsLoseNoTrap) {
    Construct();
    constexpr int kThreads = 4;
    constexpr int kTraps = 500;
    std::vector<netsnmp_variable_list*> traps;
    for (int value = 0; value < kThreads * kTraps; ++value) traps.push_back(Trap(value));

    std::atomic<int> running{kThreads};
    std::vector<std::thread> producers;
    for (int thread = 0; thread < kThreads; ++thread) {
        producers.emplace_back([&, thread] {
            for (int i = 0; i < kTraps; ++i)
                _trapSend->send_v2trap(traps[static_cast<std::size_t>(i * kThreads + thread)]);
            --running;
        });
    }
    while (running > 0) RunAgentLoop();
    for (auto& producer : producers) producer.join();
    RunAgentLoop();

    std::vector<unsigned long> nextOfThread = {0, 1, 2, 3};
    for (const auto value : SentValues()) {
        ASSERT_EQ(value, nextOfThread[value % kThreads]);
        nextOfThread[value % kThreads] += kThreads;
    }
    EXPECT_EQ(Agent().traps.size(), static_cast<std::size_t>(kThreads * kTraps));
    EXPECT_FALSE(Readable(_readDescriptor));
}

// --- unloading and loading again ---

TEST_F(TrapSendTest, SuspensionSendsWhatIsQueuedAndKeepsWhatComesLater) {
    Construct();
    _trapSend->send_v2trap(Trap(1));
    _trapSend->send_v2trap(Trap(2));
    journal::Clear();
    _trapSend->Suspend();
    EXPECT_THAT(SentValues(), ElementsAre(1u, 2u));
    EXPECT_FALSE(Readable(_readDescriptor));
    EXPECT_EQ(journal::All("agent unregister_readfd").size(), 1u);

    EXPECT_EQ(_trapSend->send_v2trap(Trap(3)), 0);
    EXPECT_THAT(SentValues(), ElementsAre(1u, 2u));
    _trapSend->Resume();
    EXPECT_EQ(Agent().readDescriptor, _readDescriptor);
    RunAgentLoop();
    EXPECT_THAT(SentValues(), ElementsAre(1u, 2u, 3u));
    EXPECT_FALSE(Readable(_readDescriptor));
}

TEST_F(TrapSendTest, SuspensionReleasesAProducerThatWaitsAtAFullPipe) {
    Construct();
    const int room = fcntl(_readDescriptor, F_GETPIPE_SZ);
    ASSERT_EQ(room, 4096);
    for (int value = 0; value < room; ++value) _trapSend->send_v2trap(Trap(value));
    auto* const oneMore = Trap(room);
    std::thread producer([&] { _trapSend->send_v2trap(oneMore); });
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    _trapSend->Suspend();
    producer.join();
    _trapSend->Resume();
    RunAgentLoop();
    EXPECT_EQ(Agent().traps.size(), static_cast<std::size_t>(room) + 1);
}

TEST_F(TrapSendTest, ResumptionCreatesThePipeThatTheStartCouldNotAndSendsWhatWaited) {
    ConstructWithoutPipe();
    for (int value = 0; value < 3; ++value) _trapSend->send_v2trap(Trap(value));
    journal::Clear();
    _trapSend->Resume();
    EXPECT_THAT(journal::Logged(3), IsEmpty());
    ASSERT_NE(Agent().readDescriptor, -1);
    RunAgentLoop();
    EXPECT_THAT(SentValues(), ElementsAre(0u, 1u, 2u));
    EXPECT_FALSE(Readable(Agent().readDescriptor));
    _trapSend->send_v2trap(Trap(3));
    RunAgentLoop();
    EXPECT_THAT(SentValues(), ElementsAre(0u, 1u, 2u, 3u));
}

TEST_F(TrapSendTest, ResumptionWithoutDescriptorsIsLoggedAndContinues) {
    ConstructWithoutPipe();
    journal::Clear();
    {
        const NoMoreDescriptors noMore;
        _trapSend->Resume();
    }
    EXPECT_THAT(journal::Logged(3),
                ElementsAre("OrvexSnmpTrapSend: Could not create pipe!",
                            "OrvexSnmpTrapSend: Couldn't register the callback function for sending traps!"));
}

TEST_F(TrapSendTest, WithoutAPipeTheQueueHasTheSizeOfAFullPipe) {
    ConstructWithoutPipe();
    for (int value = 0; value < 5000; ++value) _trapSend->send_v2trap(Trap(value));
    _trapSend->Suspend();
    EXPECT_EQ(Agent().traps.size(), 4096u);
    EXPECT_EQ(Agent().traps.back().value, 4095u);
}

TEST_F(TrapSendTest, ARefusedDescriptorHoldsUpNoProducerAndIsWatchedAtTheNextResume) {
    Agent().refusing = {"readfd"};
    Construct();
    for (int value = 0; value < 5000; ++value) _trapSend->send_v2trap(Trap(value));
    _trapSend->Suspend();
    EXPECT_EQ(Agent().traps.size(), 4096u);
    Agent().traps.clear();
    _trapSend->send_v2trap(Trap(1));
    Agent().refusing = {};
    _trapSend->Resume();
    _trapSend->send_v2trap(Trap(2));
    RunAgentLoop();
    EXPECT_THAT(SentValues(), ElementsAre(1u, 2u));
}

// --- the agent as a daemon: a fork of the process that has loaded the module ---

TEST_F(TrapSendTest, AForkedChildAndItsParentSendEachTheirOwn) {
    Construct();
    _trapSend->send_v2trap(Trap(1));
    int ready[2];
    ASSERT_EQ(pipe2(ready, O_CLOEXEC), 0);
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        alarm(20);
        char byte = 0;
        const bool heard = read(ready[0], &byte, 1) == 1;
        _trapSend->send_v2trap(Trap(3));
        for (int i = 0; i < 10; ++i) {
            if (Readable(_readDescriptor)) Agent().readCallback(_readDescriptor, nullptr);
        }
        const bool right = SentValues() == std::vector<unsigned long>{1, 3};
        _exit(heard && right && !Readable(_readDescriptor) ? 0 : 1);
    }
    _trapSend->send_v2trap(Trap(2));  // as from a thread of the parent that is still running
    EXPECT_EQ(write(ready[1], "x", 1), 1);
    int status = 0;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
    RunAgentLoop();
    EXPECT_THAT(SentValues(), ElementsAre(1u, 2u));
    close(ready[0]);
    close(ready[1]);
}

TEST_F(TrapSendTest, AForkedChildsPipeIsLikeTheParents) {
    Construct();
    const auto before = OpenDescriptors();
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        const bool same = OpenDescriptors() == before && fcntl(_readDescriptor, F_GETPIPE_SZ) == 4096 &&
                          (fcntl(_readDescriptor, F_GETFD) & FD_CLOEXEC) != 0;
        _exit(same ? 0 : 1);
    }
    int status = 0;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
}

// --- destruction ---

TEST_F(TrapSendTest, DestructionUnregistersTheDescriptorBeforeItClosesThePipe) {
    const auto before = OpenDescriptors();
    Construct();
    journal::Clear();
    _trapSend.reset();
    EXPECT_THAT(journal::All(), ElementsAre("agent unregister_readfd"));
    EXPECT_TRUE(Agent().unregisteredOpen);
    EXPECT_EQ(OpenDescriptors(), before);
}

TEST_F(TrapSendTest, DestructionFreesWhatIsQueuedAndSendsNothing) {
    Construct();
    for (int value = 0; value < 3; ++value) _trapSend->send_v2trap(Trap(value));
    journal::Clear();
    s_journalFrees = true;
    _trapSend.reset();
    EXPECT_THAT(journal::All(), ElementsAre("agent unregister_readfd", "agent snmp_free_varbind",
                                            "agent snmp_free_varbind", "agent snmp_free_varbind"));
    EXPECT_THAT(Agent().traps, IsEmpty());
}

TEST_F(TrapSendTest, DestructionWithoutAPipeUnregistersNothing) {
    ConstructWithoutPipe();
    _trapSend->send_v2trap(Trap(1));
    journal::Clear();
    s_journalFrees = true;
    _trapSend.reset();
    EXPECT_THAT(journal::All(), ElementsAre("agent snmp_free_varbind"));
}

TEST_F(TrapSendTest, DestructionLeavesTheInstancePointer) {
    Construct();
    const auto* const instance = _trapSend.get();
    _trapSend.reset();
    EXPECT_EQ(OrvexSnmpTrapSend::GetInstance(), instance);
    OrvexSnmpTrapSend::ForgetInstance();
    EXPECT_EQ(OrvexSnmpTrapSend::GetInstance(), nullptr);
}

// --- waiting ---

TEST_F(TrapSendTest, WaitsForItsMutexWithoutALimit) {
    Construct();
    journal::Clear();
    s_journalLocks = true;
    _trapSend->send_v2trap(Trap(1));
    EXPECT_THAT(journal::All(),
                ElementsAre("log 8 send_v2trap: enter...", "lock TrapSend 4294967295", "log 8 send_v2trap: Done."));
    journal::Clear();
    _trapSend->CallSnmpSendTrap();
    EXPECT_THAT(journal::All("lock"), ElementsAre("lock TrapSend 4294967295"));
    EXPECT_EQ(journal::All().at(1), "lock TrapSend 4294967295");
    EXPECT_THAT(SentValues(), ElementsAre(1u));
}

/// The kernel's state of one of the process's threads; 'S' is sleeping.
char StateOfThread(pid_t thread) {
    std::ifstream file("/proc/self/task/" + std::to_string(thread) + "/stat");
    std::string text;
    std::getline(file, text);
    const auto name = text.rfind(") ");
    return name == std::string::npos ? '?' : text[name + 2];
}

bool Comes(const std::function<bool()>& condition) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

TEST_F(TrapSendTest, TheAgentWaitsForTheByteOfATrapThatIsQueuedAlready) {
    Construct();
    _trapSend->send_v2trap(Trap(1));
    // Takes its byte, as if the sending thread had not written it yet.
    char byte = 0;
    ASSERT_EQ(read(_readDescriptor, &byte, 1), 1);

    std::atomic<pid_t> agent{0};
    std::atomic<bool> returned{false};
    std::thread consumer([&] {
        agent = gettid();
        _trapSend->CallSnmpSendTrap();
        returned = true;
    });
    EXPECT_TRUE(Comes([] { return !journal::All("log 8 CallSnmpSendTrap: enter...").empty(); }));
    // It must sleep for a while, not only between two steps.
    int asleep = 0;
    EXPECT_TRUE(Comes([&] {
        asleep = StateOfThread(agent) == 'S' ? asleep + 1 : 0;
        return returned || asleep == 20;
    }));
    EXPECT_FALSE(returned);
    EXPECT_THAT(journal::All("log 6"), IsEmpty());
    EXPECT_THAT(journal::All("agent send_v2trap"), IsEmpty());

    EXPECT_EQ(write(_trapSend.get()->*MemberOf(QueueWriteDescriptor()), "1", 1), 1);
    consumer.join();
    EXPECT_THAT(SentValues(), ElementsAre(1u));
    EXPECT_FALSE(Readable(_readDescriptor));
}

// --- lookups of the queue during its construction ---

TEST_F(TrapSendTest, CanBeFoundFromItsFirstStepOn) {
    std::vector<const OrvexSnmpTrapSend*> found;
    journal::Watch([&](const std::string&) { found.push_back(OrvexSnmpTrapSend::GetInstance()); });
    Construct();
    journal::Watch(nullptr);
    EXPECT_EQ(found, std::vector<const OrvexSnmpTrapSend*>(4, _trapSend.get()));
}

}  // namespace
