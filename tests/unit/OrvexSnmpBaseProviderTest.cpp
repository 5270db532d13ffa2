#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

#include "core/OrvexSnmpBaseProvider.h"
#include "io/OrvexSnmpAlarm.h"
#include "io/OrvexSnmpPressure.h"
#include "io/OrvexSnmpRelay.h"
#include "sensors/OrvexSnmpPower.h"
#include "sensors/OrvexSnmpTemp.h"
#include "sensors/OrvexSnmpVoltage.h"
#include "support/CameraTest.h"
#include "tavos/core/Delegate.h"
#include "tavos/core/Event.h"

namespace {

/// A minimal provider.
class Sample : public OrvexSnmpBaseProvider<Sample> {
public:
    Sample() { journal::Add("Sample is being made"); }
};

class Other final : public OrvexSnmpBaseProvider<Other> {};

template <class Made>
std::string FailureOf(Made&& made) {
    try {
        made();
    } catch (const tavos::osa::Exception& exception) {
        return exception.what();
    }
    return "no exception";
}

// --- one instance per class ---

using BaseProviderTest = ModuleTest;

TEST_F(BaseProviderTest, ResetsLoggingToStandardOutputAtTheErrorLevelBeforeAnythingElse) {
    const Sample sample;
    EXPECT_THAT(journal::All(),
                ElementsAre("logger ClearAppenders", "logger ConfigureLogging log log.level=3 log.stdout=true",
                            "Sample is being made"));
    EXPECT_EQ(tavos::core::kError, 3);
}

TEST_F(BaseProviderTest, LogsAsTheModule) {
    const Sample sample;
    EXPECT_EQ(sample.GetLogger().Name(), "OrvexSnmp");
    EXPECT_EQ(&sample.GetLogger(), tavos::core::Logger::GetLogger("OrvexSnmp"));
}

TEST_F(BaseProviderTest, FindsTheInstanceAndNeverMakesOne) {
    EXPECT_EQ(Sample::GetInstance(), nullptr);
    EXPECT_THAT(journal::All(), IsEmpty());
    const Sample sample;
    EXPECT_EQ(Sample::GetInstance(), &sample);
}

TEST_F(BaseProviderTest, RefusesASecondInstanceAndKeepsTheFirst) {
    const Sample first;
    journal::Clear();
    EXPECT_EQ(FailureOf([] { const Sample second; }), "Duplicate Instance");
    EXPECT_THAT(journal::All(),
                ElementsAre("logger ClearAppenders", "logger ConfigureLogging log log.level=3 log.stdout=true",
                            "log 3 OrvexSnmpBaseProvider: Duplicate instance, exiting!"));
    EXPECT_EQ(Sample::GetInstance(), &first);
}

TEST_F(BaseProviderTest, GivesEveryClassItsOwnInstance) {
    const Sample sample;
    EXPECT_EQ(Other::GetInstance(), nullptr);
    const Other other;
    EXPECT_EQ(Other::GetInstance(), &other);
    EXPECT_EQ(Sample::GetInstance(), &sample);
}

TEST_F(BaseProviderTest, DestructionAllowsAnotherInstance) {
    { const Sample first; }
    EXPECT_EQ(Sample::GetInstance(), nullptr);
    const Sample second;
    EXPECT_EQ(Sample::GetInstance(), &second);
}

TEST_F(BaseProviderTest, IsDestroyedThroughItsBase) {
    static_assert(std::has_virtual_destructor_v<OrvexSnmpBaseProvider<Sample>>);
    std::unique_ptr<OrvexSnmpBaseProvider<Sample>> sample = std::make_unique<Sample>();
    sample.reset();
    EXPECT_EQ(Sample::GetInstance(), nullptr);
}

TEST_F(BaseProviderTest, LetsAFailureOfTheLoggerPassUnchanged) {
    Camera().failing = {"logger.ConfigureLogging"};
    EXPECT_EQ(FailureOf([] { const Sample sample; }), "logger.ConfigureLogging fails");
    EXPECT_EQ(Sample::GetInstance(), nullptr);

    Camera().throwsRuntimeError = true;
    EXPECT_THROW({ const Sample sample; }, std::runtime_error);
    Camera().throwsRuntimeError = false;

    Camera().throwsInt = true;
    EXPECT_THROW({ const Sample sample; }, int);
    EXPECT_EQ(Sample::GetInstance(), nullptr);
    EXPECT_THAT(journal::Logged(), IsEmpty());
}

TEST_F(BaseProviderTest, OnlyDerivedClassesAreConstructed) {
    static_assert(!std::is_default_constructible_v<OrvexSnmpBaseProvider<Sample>>);
    static_assert(!std::is_copy_constructible_v<Sample>);
    static_assert(!std::is_copy_assignable_v<Sample>);
}

// --- the module's providers ---

template <class Provider>
class EveryProviderTest : public ModuleTest {
protected:
    tavos::msgbus::MsgBus _bus;
};

using Providers = testing::Types<OrvexSnmpTemp, OrvexSnmpAlarm, OrvexSnmpRelay, OrvexSnmpPower, OrvexSnmpVoltage,
                                 OrvexSnmpPresets, OrvexSnmpFocus, OrvexSnmpIris, OrvexSnmpZoom, OrvexSnmpPan,
                                 OrvexSnmpTilt, OrvexSnmpWiper, OrvexSnmpPressure>;

struct ProviderNames {
    template <class Provider>
    static std::string GetName(int index) {
        constexpr const char* kNames[] = {"Temp", "Alarm", "Relay", "Power", "Voltage", "Presets", "Focus",
                                          "Iris", "Zoom",  "Pan",   "Tilt",  "Wiper",   "Pressure"};
        return kNames[index];
    }
};
TYPED_TEST_SUITE(EveryProviderTest, Providers, ProviderNames);

TYPED_TEST(EveryProviderTest, ThereIsOneInstance) {
    static_assert(std::is_base_of_v<OrvexSnmpBaseProvider<TypeParam>, TypeParam>);
    EXPECT_EQ(TypeParam::GetInstance(), nullptr);
    const TypeParam first(this->_bus);
    EXPECT_EQ(TypeParam::GetInstance(), &first);
    journal::Clear();
    EXPECT_EQ(FailureOf([&] { const TypeParam second(this->_bus); }), "Duplicate Instance");
    EXPECT_EQ(TypeParam::GetInstance(), &first);
    EXPECT_THAT(journal::Logged(), ElementsAre("3 OrvexSnmpBaseProvider: Duplicate instance, exiting!"));
    EXPECT_THAT(journal::All("bus"), IsEmpty());
}

TYPED_TEST(EveryProviderTest, ComesToNothingWithoutOneOfItsClients) {
    std::vector<std::pair<std::string, const tavos::msgbus::IMsgBus*>> clients;
    {
        const TypeParam provider(this->_bus);
        clients = Camera().clientBuses;
    }
    ASSERT_THAT(clients, Not(IsEmpty()));
    for (const auto& [service, bus] : clients) ExpectNoProviderWithout<TypeParam>(service);
}

TYPED_TEST(EveryProviderTest, BeginsWithTheFixedLoggingSetup) {
    const TypeParam provider(this->_bus);
    const auto lines = journal::All();
    ASSERT_GE(lines.size(), 3u);
    EXPECT_EQ(lines[0], "bus Open");
    EXPECT_EQ(lines[1], "logger ClearAppenders");
    EXPECT_EQ(lines[2], "logger ConfigureLogging log log.level=3 log.stdout=true");
    EXPECT_EQ(journal::All("logger ").size(), 2u);
}

TYPED_TEST(EveryProviderTest, DestructionAllowsAnotherInstance) {
    { const TypeParam first(this->_bus); }
    EXPECT_EQ(TypeParam::GetInstance(), nullptr);
    const TypeParam second(this->_bus);
    EXPECT_EQ(TypeParam::GetInstance(), &second);
}

TEST_F(BaseProviderTest, PanAndTiltExistTogether) {
    tavos::msgbus::MsgBus bus;
    const OrvexSnmpPan pan(bus);
    const OrvexSnmpTilt tilt(bus);
    EXPECT_EQ(OrvexSnmpPan::GetInstance(), &pan);
    EXPECT_EQ(OrvexSnmpTilt::GetInstance(), &tilt);
}

// --- traps ---

class SendTrapTest : public ModuleTest {
protected:
    ~SendTrapTest() override {
        _trapSend.reset();
        OrvexSnmpTrapSend::ForgetInstance();
    }

    /// The one trap that the agent sends in the next run of its main loop.
    static FakeAgent::SentTrap Sent() {
        Agent().readCallback(Agent().readDescriptor, nullptr);
        EXPECT_EQ(Agent().traps.size(), 1u);
        return Agent().traps.empty() ? FakeAgent::SentTrap{} : Agent().traps.back();
    }

    std::unique_ptr<OrvexSnmpTrapSend> _trapSend = std::make_unique<OrvexSnmpTrapSend>();
    Sample _sample;
};

const oid kTrapOid[] = {1, 3, 6, 1, 4, 1, 32473, 9, 8, 7, 6, 5};
constexpr auto kTrapText = ".1.3.6.1.4.1.32473.9.8.7.6.5";

TEST_F(SendTrapTest, SendsTheTrapOidAndOneGaugeThatItNames) {
    _sample.SendTrap(kTrapOid, 12, 7);
    const auto trap = Sent();
    EXPECT_EQ(trap.bindings, 2u);
    EXPECT_EQ(trap.firstName, ".1.3.6.1.6.3.1.1.4.1.0");
    EXPECT_EQ(trap.firstType, ASN_OBJECT_ID);
    EXPECT_EQ(trap.trapOid, kTrapText);
    EXPECT_EQ(trap.name, kTrapText);
    EXPECT_EQ(trap.type, ASN_GAUGE);
    EXPECT_EQ(trap.type, 0x42);
    EXPECT_EQ(trap.value, 7u);
}

TEST_F(SendTrapTest, TakesItsLengthInSubIdentifiers) {
    _sample.SendTrap(kTrapOid, 8, 1);
    const auto trap = Sent();
    EXPECT_EQ(trap.trapOid, ".1.3.6.1.4.1.32473.9");
    EXPECT_EQ(trap.name, ".1.3.6.1.4.1.32473.9");
}

TEST_F(SendTrapTest, SendsThe32BitsOfASignedValue) {
    const std::pair<int, unsigned long> cases[] = {
        {0, 0}, {-5, 4294967291}, {-1, 4294967295}, {2147483647, 2147483647}, {-2147483647 - 1, 2147483648}};
    for (const auto& [value, sent] : cases) {
        Agent().traps.clear();
        _sample.SendTrap(kTrapOid, 12, value);
        EXPECT_EQ(Sent().value, sent);
    }
}

TEST_F(SendTrapTest, QueuesAndThenLogs) {
    journal::Clear();
    _sample.SendTrap(kTrapOid, 12, 7);
    EXPECT_THAT(journal::All(), ElementsAre("log 8 send_v2trap: enter...", "log 8 send_v2trap: Done.",
                                            "log 6 SendTrap: trap sent to TrapSend object."));
    EXPECT_THAT(Agent().traps, IsEmpty());
}

TEST_F(SendTrapTest, MayBeCalledFromAnotherThread) {
    std::thread([this] { _sample.SendTrap(kTrapOid, 12, 3); }).join();
    EXPECT_THAT(Agent().traps, IsEmpty());
    EXPECT_EQ(Sent().value, 3u);
}

TEST_F(SendTrapTest, IsCalledOnTheObject) {
    class Quiet final : public OrvexSnmpBaseProvider<Quiet> {
    public:
        void SendTrap(const oid*, std::size_t, int) override { journal::Add("quiet"); }
    } quiet;
    journal::Clear();
    static_cast<OrvexSnmpBaseProvider<Quiet>&>(quiet).SendTrap(kTrapOid, 12, 7);
    EXPECT_THAT(journal::All(), ElementsAre("quiet"));
}

// --- delegates ---

struct Listener {
    void Heard(int value) { values.push_back(value); }
    void HeardBoth(int first, int second) { values.insert(values.end(), {first, second}); }
    std::vector<int> values;
};

TEST(DelegateTest, CallsTheMemberFunctionOfItsObjectWithTheEventsArgument) {
    Listener listener;
    Listener bystander;
    const std::unique_ptr<tavos::core::IVoidDelegate1<int>> delegate(
        tavos::core::CreateDelegate(&listener, &Listener::Heard));
    delegate->Call(5);
    delegate->Call(-6);
    EXPECT_THAT(listener.values, ElementsAre(5, -6));
    EXPECT_THAT(bystander.values, IsEmpty());
    using Expected = tavos::core::VoidObjectMethodDelegate1<Listener, void (Listener::*)(int), int>;
    EXPECT_NE(dynamic_cast<Expected*>(delegate.get()), nullptr);
}

TEST(DelegateTest, CallsTheMemberFunctionWithBothArgumentsInTheirOrder) {
    Listener listener;
    const std::unique_ptr<tavos::core::IVoidDelegate2<int, int>> delegate(
        tavos::core::CreateDelegate(&listener, &Listener::HeardBoth));
    delegate->Call(1, 2);
    EXPECT_THAT(listener.values, ElementsAre(1, 2));
    using Expected = tavos::core::VoidObjectMethodDelegate2<Listener, void (Listener::*)(int, int), int, int>;
    EXPECT_NE(dynamic_cast<Expected*>(delegate.get()), nullptr);
}

TEST(DelegateTest, MatchesItsObjectAlone) {
    Listener listener;
    Listener other;
    const std::unique_ptr<tavos::core::IVoidDelegate1<int>> one(
        tavos::core::CreateDelegate(&listener, &Listener::Heard));
    const std::unique_ptr<tavos::core::IVoidDelegate2<int, int>> two(
        tavos::core::CreateDelegate(&listener, &Listener::HeardBoth));
    EXPECT_TRUE(one->Matches(&listener));
    EXPECT_TRUE(two->Matches(&listener));
    for (void* const pointer : {static_cast<void*>(&other), static_cast<void*>(nullptr)}) {
        EXPECT_FALSE(one->Matches(pointer));
        EXPECT_FALSE(two->Matches(pointer));
    }
}

TEST(DelegateTest, AnEventCallsWhatWasAddedUntilItIsRemoved) {
    Listener first;
    Listener second;
    tavos::core::Event1<int> event;
    event.AddHandler(tavos::core::CreateDelegate(&first, &Listener::Heard));
    event.AddHandler(tavos::core::CreateDelegate(&second, &Listener::Heard));
    event.Fire(1);
    event.RemoveHandlers(&first);
    event.Fire(2);
    EXPECT_THAT(first.values, ElementsAre(1));
    EXPECT_THAT(second.values, ElementsAre(1, 2));
}

// --- lookups of the instance during its construction ---

template <class Provider>
class MakingTest : public ModuleTest {};

TYPED_TEST_SUITE(MakingTest, Providers, ProviderNames);

TYPED_TEST(MakingTest, AProviderIsFoundOnceLoggingIsSetUpAndBeforeItsClientsAreMade) {
    tavos::msgbus::MsgBus bus;
    std::vector<std::pair<std::string, TypeParam*>> found;
    journal::Watch([&](const std::string& line) { found.emplace_back(line, TypeParam::GetInstance()); });
    const TypeParam provider(bus);
    journal::Watch(nullptr);
    ASSERT_GT(found.size(), 4u);
    for (std::size_t i = 0; i < found.size(); ++i) {
        EXPECT_EQ(found[i].second, i < 2 ? nullptr : &provider) << found[i].first;
    }
    EXPECT_THAT(found[0].first, testing::StartsWith("logger ClearAppenders"));
    EXPECT_THAT(found[1].first, testing::StartsWith("logger ConfigureLogging"));
    EXPECT_EQ(Camera().clientBuses.at(0).second, &bus);
}

}  // namespace
