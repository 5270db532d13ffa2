// Every service interface, from its client through the bus to the service and back.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>

#include "FakeServices.h"
#include "HostThread.h"
#include "PrivateBus.h"
#include "Waiting.h"
#include "tavos/interfaces/Serve.h"
#include "tavos/msgbus/MsgBus.h"

using namespace tavos::interfaces;
using testing::ElementsAre;

namespace {

class ServicesTest : public testing::Test {
protected:
    ServicesTest() { setenv("TAVOS_CALL_TIMEOUT_MS", "5000", 1); }

    template <class Service, class... More>
    std::string Serving(Service& service, More... more) {
        std::string name;
        host.Do([&](tavos::msgbus::ServiceHost& h) { name = Serve(h, service, more...); });
        return name;
    }

    template <class Interface, class... More>
    std::unique_ptr<Interface> Client(More... more) {
        return std::unique_ptr<Interface>(Interface::CreateClient(&clientBus(), more...));
    }

    tavos::msgbus::MsgBus& clientBus() {
        if (!messages) messages = std::make_unique<tavos::msgbus::MsgBus>();
        return *messages;
    }

    PrivateBus bus;
    // Order of destruction: messages, host, services, bus.
    fake::Pan pan;
    fake::Axis axis;
    fake::Zoom zoom;
    fake::Focus focus;
    fake::FocusV2 focusV2;
    fake::Iris iris;
    fake::Presets presets;
    fake::PresetsV2 presetsV2;
    fake::Alarm alarm;
    fake::Relay relay;
    fake::Temperature temperature;
    fake::Voltage voltage;
    fake::Power power;
    fake::Fan fan;
    HostThread host{bus.Address()};
    std::unique_ptr<tavos::msgbus::MsgBus> messages;
};

TEST_F(ServicesTest, Pan) {
    EXPECT_EQ(Serving<IPanProvider>(pan), "org.tavos.Pan1");
    const auto client = Client<IPanProvider>();
    client->SetPosition(-1, 300);
    client->SetPositionAtSpeed(359999, -0.5, 7);
    client->SetRelativeVelocity(0.25, 60);
    EXPECT_THAT(pan.Take(),
                ElementsAre("SetPosition -1 300", "SetPositionAtSpeed 359999 -0.5 7", "SetRelativeVelocity 0.25 60"));
    EXPECT_EQ(client->GetPosition(), 4294967295U);
    EXPECT_EQ(client->GetMinPosition(), 1U);
    EXPECT_EQ(client->GetMaxPosition(), 359999U);
    EXPECT_EQ(client->GetRelativeVelocity(), -0.1);
}

TEST_F(ServicesTest, AxesHaveNames) {
    fake::Axis roll;
    EXPECT_EQ(Serving<IAxisProvider>(axis, "tilt"), "org.tavos.Axis1.tilt");
    const auto client = Client<IAxisProvider>("tilt");
    client->SetPosition(-90000, 300);
    client->SetPositionAtSpeed(45000, 1.0, 5);
    client->SetRelativeVelocity(-1.0, 60);
    EXPECT_THAT(axis.Take(),
                ElementsAre("SetPosition -90000 300", "SetPositionAtSpeed 45000 1 5", "SetRelativeVelocity -1 60"));
    EXPECT_EQ(static_cast<int>(client->GetPosition()), -45000);
    EXPECT_EQ(client->GetMinPosition(), -2147483647 - 1);
    EXPECT_EQ(client->GetMaxPosition(), 2147483647);
    EXPECT_EQ(client->GetRelativeVelocity(), 1.0 / 3);
    EXPECT_ANY_THROW(Client<IAxisProvider>("roll")->GetMinPosition());
}

TEST_F(ServicesTest, Zoom) {
    EXPECT_EQ(Serving<IZoomProvider>(zoom), "org.tavos.Zoom1");
    const auto client = Client<IZoomProvider>();
    client->SetMagnificationThousandthsX(4294967295U, -1);
    client->SetMaxMagnificationThousandthsX(30000);
    client->ZoomRelative(-1, 60);
    EXPECT_THAT(zoom.Take(), ElementsAre("SetMagnificationThousandthsX 4294967295 -1",
                                         "SetMaxMagnificationThousandthsX 30000", "ZoomRelative -1 60"));
    EXPECT_EQ(client->GetMagnificationThousandthsX(), 1U);
    EXPECT_EQ(client->GetMaxMagnificationThousandthsX(), 2U);
    EXPECT_EQ(client->GetMaxDigitalMagnificationThousandthsX(), 3U);
    EXPECT_EQ(client->GetMaxOpticalMagnificationThousandthsX(), 4U);
}

TEST_F(ServicesTest, BothFocuses) {
    EXPECT_EQ(Serving<IFocusProvider>(focus), "org.tavos.Focus1");
    EXPECT_EQ(Serving<IFocusV2Provider>(focusV2), "org.tavos.Focus2");
    const auto first = Client<IFocusProvider>();
    first->SetAutoFocus(true);
    first->SetAutoFocus(false);
    first->MoveFocus(-1);
    EXPECT_THAT(focus.Take(), ElementsAre("SetAutoFocus true", "SetAutoFocus false", "MoveFocus -1"));
    const auto second = Client<IFocusV2Provider>();
    second->AutoFocus(true);
    second->SetPosition(12.5);
    second->RelativeFocus(-0.75);
    EXPECT_THAT(focusV2.Take(), ElementsAre("AutoFocus true", "SetPosition 12.5", "RelativeFocus -0.75"));
    EXPECT_EQ(second->GetMinPosition(), 0.5);
    EXPECT_EQ(second->GetMaxPosition(), 99.5);
    EXPECT_EQ(second->GetMinTranslation(), -100);
    EXPECT_EQ(second->GetMaxTranslation(), 100);
    EXPECT_EQ(second->GetPosition(), 1e-300);
}

TEST_F(ServicesTest, Iris) {
    EXPECT_EQ(Serving<IIrisProvider>(iris), "org.tavos.Iris1");
    const auto client = Client<IIrisProvider>();
    client->SetAutoIris(true);
    client->MoveIris(1);
    EXPECT_THAT(iris.Take(), ElementsAre("SetAutoIris true", "MoveIris 1"));
    EXPECT_TRUE(client->GetAutoIris());
}

TEST_F(ServicesTest, PresetsAndFan) {
    EXPECT_EQ(Serving<IPresetsProvider>(presets), "org.tavos.Presets1");
    EXPECT_EQ(Serving<IPresetsV2Provider>(presetsV2), "org.tavos.Presets2");
    EXPECT_EQ(Serving<IFanV2Provider>(fan), "org.tavos.Fan2");
    EXPECT_NE(Client<IPresetsProvider>(), nullptr);
    EXPECT_EQ(Client<IPresetsV2Provider>()->GetMaxPresets(), 256U);
    EXPECT_TRUE(Client<IFanV2Provider>()->IsRunning());
}

TEST_F(ServicesTest, Alarm) {
    EXPECT_EQ(Serving<IAlarmV3Provider>(alarm), "org.tavos.Alarm3");
    const auto client = Client<IAlarmV3Provider>();
    EXPECT_THAT(client->GetBankNames(), ElementsAre("door", "", "Tür \xE2\x82\xAC"));
    EXPECT_EQ(client->GetBankAlarmCount("front door"), 7);
    EXPECT_EQ(client->GetAlarmCount(), 9);
    EXPECT_TRUE(client->GetAlarmState("", 1));
    EXPECT_FALSE(client->GetAlarmState("door", 2));
    EXPECT_THAT(alarm.Take(), ElementsAre("GetBankAlarmCount front door", "GetAlarmState  1", "GetAlarmState door 2"));
}

TEST_F(ServicesTest, Relay) {
    EXPECT_EQ(Serving<IRelayV3Provider>(relay), "org.tavos.Relay3");
    const auto client = Client<IRelayV3Provider>();
    EXPECT_THAT(client->GetBankNames(), ElementsAre());
    EXPECT_EQ(client->GetBankRelayCount("a"), 3);
    EXPECT_EQ(client->GetRelayCount(), 4);
    EXPECT_TRUE(client->GetRelayState("a", 0));
    EXPECT_FALSE(client->GetRelayState("a", 1));
    client->ClearRelay("a", 1, 2);
    client->SetRelay("b", 3, 4);
    EXPECT_THAT(relay.Take(), ElementsAre("GetBankRelayCount a", "GetRelayState a 0", "GetRelayState a 1",
                                          "ClearRelay a 1 2", "SetRelay b 3 4"));
}

struct Listener {
    void Pair(int a, int b) { journal.Note("Pair", a, b); }
    void Single(int a) { journal.Note("Single", a); }
    Journal journal;
};

TEST_F(ServicesTest, SensorsAndTheirEvents) {
    EXPECT_EQ(Serving<ITemperatureV2Provider>(temperature), "org.tavos.Temperature2");
    EXPECT_EQ(Serving<IVoltageV2Provider>(voltage), "org.tavos.Voltage2");
    EXPECT_EQ(Serving<IPowerV2Provider>(power), "org.tavos.Power2");
    clientBus().StartServer();
    Listener hot;
    Listener volts;
    Listener watts;
    const auto temperatures = Client<ITemperatureV2Provider>();
    const auto voltages = Client<IVoltageV2Provider>();
    const auto powers = Client<IPowerV2Provider>();
    EXPECT_EQ(temperatures->GetTemperatureDegreesCelsius(3), -40);
    EXPECT_THAT(temperature.Take(), ElementsAre("GetTemperatureDegreesCelsius 3"));
    EXPECT_EQ(voltages->GetVoltageStatus(), 2);
    EXPECT_EQ(powers->GetPowerStatus(), 1);

    temperatures->OnTemperatureChange().AddHandler(tavos::core::CreateDelegate(&hot, &Listener::Pair));
    voltages->OnVoltageStatusChange().AddHandler(tavos::core::CreateDelegate(&volts, &Listener::Single));
    powers->OnPowerStatusChange().AddHandler(tavos::core::CreateDelegate(&watts, &Listener::Single));
    // The subscriptions reach the bus asynchronously: fire until each event has arrived.
    const auto heard = [&](Listener& listener, const std::string& line, const std::function<void()>& fire) {
        return Eventually([&] {
            host.Do([&](tavos::msgbus::ServiceHost&) { fire(); });
            const auto lines = listener.journal.Take();
            for (const auto& got : lines) EXPECT_EQ(got, line);
            return !lines.empty();
        });
    };
    EXPECT_TRUE(heard(hot, "Pair 2 -41", [&] { temperature.change.Fire(2, -41); }));
    EXPECT_TRUE(heard(volts, "Single 1", [&] { voltage.change.Fire(1); }));
    EXPECT_TRUE(heard(watts, "Single -2147483648", [&] { power.change.Fire(-2147483647 - 1); }));
}

}  // namespace
