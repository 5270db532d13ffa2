#include <cstdio>

#include "lens/OrvexSnmpFocus.h"
#include "support/CameraTest.h"

namespace {

const CameraObject kPosition{"positionFocusLens"};
const CameraObject kControl{"systemLensFeatureControl"};
const CameraObject kStatus{"systemLensFeatureStatus"};
const CameraObject kEquipped{"systemLensEquipped"};
const std::string kMode = "[Imaging/Focus]Mode";

class FocusTest : public MotionTest<OrvexSnmpFocus> {
protected:
    FocusTest() : MotionTest(kPosition.name) {}

    std::vector<u_char> Get(const CameraObject& object) {
        SnmpRequest request(object.oidName, object.length);
        EXPECT_EQ(request.Call(object.handler, MODE_GET), SNMP_ERR_NOERROR);
        EXPECT_EQ(request.Type(), ASN_OCTET_STR);
        EXPECT_THAT(Agent().answers, ElementsAre(Answer{ASN_OCTET_STR, request.Length()}));
        return request.Octets();
    }

    /// Calls of services and changes of the settings, in order.
    static Lines Effects() {
        Lines effects;
        for (const auto& line : journal::All()) {
            if (line.compare(0, 4, "log ") != 0) effects.push_back(line);
        }
        return effects;
    }

    /// The position handler's first lines after entry and range end, followed by the given ones.
    static Lines Position(const std::string& text, const Lines& after) {
        Lines lines{"8 GetPosition: Enter.", "call focus2 GetPosition", "6 GetPosition: GetPosition()=" + text + "0000",
                    "8 GetPosition: Done.", "6 handle_positionFocusLens: current focus position " + text};
        return Handled("handle_positionFocusLens", lines + after);
    }

    static Lines SetTo(double position, const std::string& text) {
        return {"8 SetPosition: Enter.", journal::Join("call focus2 SetPosition", position),
                "6 SetPosition: SetPosition(" + text + ")", "8 SetPosition: Done."};
    }
};

using FocusConstructionTest = ModuleTest;

TEST_F(FocusConstructionTest, OpensTheSettingsBeforeItsClientsAndClosesThemAfter) {
    EXPECT_THAT(
        MadeAndUnmade<OrvexSnmpFocus>(),
        ElementsAre("settings Open 1", "8 OrvexSnmpFocus: Enter", "bus CreateClient focus", "bus CreateClient focus2",
                    "bus CreateClient iris", "8 OrvexSnmpFocus: Done.", "bus DeleteClient focus",
                    "bus DeleteClient focus2", "bus DeleteClient iris", "settings Close"));
}

TEST_F(FocusConstructionTest, ComesToNothingWithoutAClientAndClosesTheSettings) {
    for (const auto* service : {"focus", "focus2", "iris"}) {
        ExpectNoProviderWithout<OrvexSnmpFocus>(service);
        EXPECT_EQ(journal::All("settings Open").size(), 4U);
        EXPECT_EQ(journal::All("settings Close").size(), 4U);
        journal::Clear();
    }
}

TEST_F(FocusTest, EveryWrapperLogsCallsAndReportsFailure) {
    Camera().answers["iris.GetAutoIris"] = true;
    Camera().answers["focus2.GetPosition"] = 33.25;
    Camera().answers["focus2.GetMinPosition"] = -1.5;
    Camera().answers["focus2.GetMaxPosition"] = 101.0;
    Camera().answers["focus2.GetMinTranslation"] = -99.0;
    Camera().answers["focus2.GetMaxTranslation"] = 98.0;
    Camera().settings[kMode] = "Auto";
    using F = OrvexSnmpFocus;
    const Wrapper<F> wrappers[] = {
        {"SetAutoIrisEnabled",
         [](const F& focus) { return focus.SetAutoIrisEnabled(true); },
         {},
         {"call iris SetAutoIris true"},
         "6 SetAutoIrisEnabled(TRUE)"},
        {"SetAutoIrisEnabled",
         [](const F& focus) { return focus.SetAutoIrisEnabled(false); },
         {},
         {"call iris SetAutoIris false"},
         "6 SetAutoIrisEnabled(FALSE)"},
        {"SetAutoFocusEnabled",
         [](const F& focus) { return focus.SetAutoFocusEnabled(true); },
         {},
         {"call focus SetAutoFocus true", "settings SetValue [Imaging/Focus]Mode Auto"},
         "6 SetAutoFocusEnabled(TRUE)"},
        {"SetAutoFocusEnabled",
         [](const F& focus) { return focus.SetAutoFocusEnabled(false); },
         {},
         {"call focus SetAutoFocus false", "settings SetValue [Imaging/Focus]Mode Manual"},
         "6 SetAutoFocusEnabled(FALSE)"},
        {"MoveFocus",
         [](const F& focus) { return focus.MoveFocus(-1); },
         {},
         {"call focus MoveFocus -1"},
         "6 -1Near,0,+1Far MoveFocus(-1)"},
        {"AutoFocus",
         [](const F& focus) { return focus.AutoFocus(true); },
         {},
         {"call focus2 AutoFocus true"},
         "6 AutoFocus(TRUE)"},
        {"AutoFocus",
         [](const F& focus) { return focus.AutoFocus(false); },
         {},
         {"call focus2 AutoFocus false"},
         "6 AutoFocus(FALSE)"},
        Getter("GetMinPosition", &F::GetMinPosition, -1.5, "focus2", "6 GetMinPosition()=-1.500000"),
        Getter("GetMaxPosition", &F::GetMaxPosition, 101.0, "focus2", "6 GetMaxPosition()=101.000000"),
        Getter("GetMinTranslation", &F::GetMinTranslation, -99.0, "focus2", "6 GetMinTranslation()=-99.000000"),
        Getter("GetMaxTranslation", &F::GetMaxTranslation, 98.0, "focus2", "6 GetMaxTranslation()=98.000000"),
        Getter("GetPosition", &F::GetPosition, 33.25, "focus2", "6 GetPosition()=33.250000"),
        {"SetPosition",
         [](const F& focus) { return focus.SetPosition(12.5); },
         {},
         {"call focus2 SetPosition 12.5"},
         "6 SetPosition(12.500000)"},
        {"RelativeFocus",
         [](const F& focus) { return focus.RelativeFocus(-7.75); },
         {},
         {"call focus2 RelativeFocus -7.75"},
         "6 RelativeFocus(-7.750000)"},
    };
    for (const auto& wrapper : wrappers) ExpectProtocol(_provider, wrapper);
}

/// GetAutoIrisEnabled and GetAutoFocusEnabled. Tries both values as the untouched output, because a bool has no third.
int ReadsTruth(const OrvexSnmpFocus& focus, int (OrvexSnmpFocus::*getter)(bool&) const, bool expected) {
    int result = 0;
    for (const bool untouched : {!expected, expected}) {
        journal::Clear();
        bool output = untouched;
        result = (focus.*getter)(output);
        EXPECT_EQ(output, result == 0 ? expected : untouched);
    }
    return result;
}

TEST_F(FocusTest, AutoIrisIsReadFromItsService) {
    for (const bool enabled : {true, false}) {
        Camera().answers["iris.GetAutoIris"] = enabled;
        ExpectProtocol<OrvexSnmpFocus>(_provider,
                                       {"GetAutoIrisEnabled",
                                        [enabled](const OrvexSnmpFocus& focus) {
                                            return ReadsTruth(focus, &OrvexSnmpFocus::GetAutoIrisEnabled, enabled);
                                        },
                                        {},
                                        {"call iris GetAutoIris"},
                                        enabled ? "6 GetAutoIrisEnabled()=TRUE" : "6 GetAutoIrisEnabled()=FALSE"});
    }
}

TEST_F(FocusTest, AutoFocusIsOnUnlessTheSettingsSayExactlyManual) {
    for (const std::string mode : {"Auto", "Manual", "", "manual", "Manual ", "Manually", "On"}) {
        SCOPED_TRACE(mode);
        Camera().settings[kMode] = mode;
        const bool enabled = mode != "Manual";
        ExpectProtocol<OrvexSnmpFocus>(
            _provider, {"GetAutoFocusEnabled",
                        [enabled](const OrvexSnmpFocus& focus) {
                            return ReadsTruth(focus, &OrvexSnmpFocus::GetAutoFocusEnabled, enabled);
                        },
                        {},
                        {"settings GetValue [Imaging/Focus]Mode"},
                        "6 _settings.GetValue([Imaging/Focus/AutoFocus]Mode) = " + mode + (enabled ? ",1" : ",0"),
                        "_settings.GetValue"});
    }
}

TEST_F(FocusTest, TheSettingsStayWhenTheServiceRefusesAutoFocus) {
    for (const auto thrown : kEveryThrow) {
        Fail("focus.SetAutoFocus", thrown);
        journal::Clear();
        EXPECT_EQ(_provider.SetAutoFocusEnabled(true), -1);
        EXPECT_THAT(Done(), ElementsAre("8 SetAutoFocusEnabled: Enter.", "call focus SetAutoFocus true",
                                        "3 Exception while SetAutoFocusEnabled", "8 SetAutoFocusEnabled: Done."));
    }
    EXPECT_EQ(Camera().settings.count(kMode), 0U);
}

TEST_F(FocusTest, ScalingTruncatesAndLosesTheSign) {
    EXPECT_EQ(_provider.ScaleValues(32768, 0, 65535, 1000, 20000), 10500);
    EXPECT_EQ(_provider.ScaleValues(500, 1000, 20000, 0, 65535), 1724);
}

// --- positionFocusLens ---

TEST_F(FocusTest, EveryRequestReadsThePositionFirst) {
    Camera().answers["focus2.GetPosition"] = 42.5;
    for (const int mode : {static_cast<int>(MODE_GET), static_cast<int>(MODE_GETNEXT), MODE_SET_RESERVE1,
                           MODE_SET_RESERVE2, MODE_SET_ACTION, MODE_SET_FREE, MODE_SET_UNDO, 6, 162, -1}) {
        SCOPED_TRACE(mode);
        SnmpRequest request(OrvexSnmpOid::oid_positionFocusLens);
        journal::Clear();
        EXPECT_EQ(request.Call(OrvexSnmpFocus::handle_positionFocusLens, mode), SNMP_ERR_NOERROR);
        EXPECT_EQ(Done(), Position("42.50", {}));
    }
}

TEST_F(FocusTest, APositionThatCannotBeReadIsNotReported) {
    for (const auto thrown : kEveryThrow) {
        Fail("focus2.GetPosition", thrown);
        SnmpRequest request(OrvexSnmpOid::oid_positionFocusLens);
        journal::Clear();
        EXPECT_EQ(request.Call(OrvexSnmpFocus::handle_positionFocusLens, MODE_GET), SNMP_ERR_NOERROR);
        EXPECT_EQ(Done(),
                  Handled("handle_positionFocusLens", {"8 GetPosition: Enter.", "call focus2 GetPosition",
                                                       "3 Exception while GetPosition", "8 GetPosition: Done."}));
        EXPECT_THAT(request.Octets(), ElementsAre(0, 0, 0, 0));
    }
}

TEST_F(FocusTest, StopHoldsThePositionReadAtTheStart) {
    Camera().answers["focus2.GetPosition"] = 42.5;
    EXPECT_EQ(Command({0, 0, 0x12, 0x34}), SNMP_ERR_NOERROR);
    EXPECT_EQ(Done(),
              Position("42.50", Lines{"6 handle_positionFocusLens: stop focus (0)"} + SetTo(42.5, "42.500000")));
}

TEST_F(FocusTest, StopMovesToZeroWhenThePositionCannotBeRead) {
    Camera().answers["focus2.GetPosition"] = 42.5;
    for (const auto thrown : kEveryThrow) {
        Fail("focus2.GetPosition", thrown);
        EXPECT_EQ(Command({0, 0, 0, 0}), SNMP_ERR_NOERROR);
        EXPECT_THAT(journal::Calls(), ElementsAre("focus2 GetPosition", "focus2 SetPosition 0"));
    }
}

TEST_F(FocusTest, StopWithASpeedIsRefusedWithTheSignedSpeed) {
    EXPECT_EQ(Command({0, 1, 0, 0}), SNMP_ERR_GENERR);
    EXPECT_EQ(Done(), Position("0.00", {"6 handle_positionFocusLens: stop focus (0)",
                                        "3 handle_positionFocusLens: stop focus speed not zero(1)"}));
    EXPECT_EQ(Command({0, 0x80, 0, 0}), SNMP_ERR_GENERR);
    EXPECT_THAT(journal::Logged(3), ElementsAre("handle_positionFocusLens: stop focus speed not zero(-128)"));
}

TEST_F(FocusTest, AbsoluteCommandsReachFromZeroToAHundredPercent) {
    EXPECT_EQ(Command({2, 0, 0, 0}), SNMP_ERR_NOERROR);
    EXPECT_EQ(Done(),
              Position("0.00", Lines{"6 handle_positionFocusLens: Absolute focus newFocusPosition -> 0.000000"} +
                                   SetTo(0.0, "0.000000")));
    EXPECT_EQ(Command({2, 0x80, 0xFF, 0xFF}), SNMP_ERR_NOERROR);
    EXPECT_EQ(Done(),
              Position("0.00", Lines{"6 handle_positionFocusLens: Absolute focus newFocusPosition -> 100.000000"} +
                                   SetTo(100.0, "100.000000")));
    EXPECT_EQ(Command({2, 1, 0x80, 0x00}), SNMP_ERR_NOERROR);
    EXPECT_EQ(Done(),
              Position("0.00", Lines{"6 handle_positionFocusLens: Absolute focus newFocusPosition -> 50.000763"} +
                                   SetTo(32768 * 100.0 / 65535.0, "50.000763")));
}

TEST_F(FocusTest, PercentagesAreMultipliedBeforeTheyAreDivided) {
    for (int position = 0; position <= 65535; ++position) {
        journal::Clear();
        Commit(kPosition, {2, 0, static_cast<u_char>(position / 256), static_cast<u_char>(position % 256)});
        ASSERT_EQ(journal::Calls().back(), journal::Join("focus2 SetPosition", position * 100.0 / 65535.0));
    }
}

struct Step {
    double from;
    int speed;
    int position;
    double sent;
    const char* logged;
};

TEST_F(FocusTest, DeltaStepsByPercentAndStaysWithinTheRange) {
    const Step steps[] = {
        {99.0, 1, 6554, 100.0, "100.000000"},
        {99.0, -1, 6554, 99.0 - 6554 * 100.0 / 65535.0, "88.999237"},
        {99.0, -128, 6554, 99.0 - 6554 * 100.0 / 65535.0, "88.999237"},
        {10.0, 0, 6554, 6554 * 100.0 / 65535.0 + 10.0, "20.000763"},
        {10.0, 127, 0x8000, 32768 * 100.0 / 65535.0 + 10.0, "60.000763"},
        {10.0, -10, 6554, 0.0, "0.000000"},
        {0.0, 1, 65535, 100.0, "100.000000"},
        {100.0, -1, 65535, 0.0, "0.000000"},
        {150.0, -1, 0, 100.0, "100.000000"},
        {-3.0, 1, 0, 0.0, "0.000000"},
    };
    for (const auto& step : steps) {
        SCOPED_TRACE(journal::Join(step.from, step.speed, step.position));
        Camera().answers["focus2.GetPosition"] = step.from;
        EXPECT_EQ(Command(1, step.speed, step.position), SNMP_ERR_NOERROR);
        char current[32];
        std::snprintf(current, sizeof current, "%0.2f", step.from);
        EXPECT_EQ(Done(), Position(current, Lines{"6 handle_positionFocusLens: delta focus (1)",
                                                  "6 handle_positionFocusLens: Delta focus newFocusPosition -> " +
                                                      std::string(step.logged)} +
                                                SetTo(step.sent, step.logged)));
    }
}

TEST_F(FocusTest, DeltaStartsAtZeroWhenThePositionCannotBeRead) {
    Camera().answers["focus2.GetPosition"] = 42.5;
    Fail("focus2.GetPosition", Thrown::kInt);
    EXPECT_EQ(Command({1, 1, 0xFF, 0xFF}), SNMP_ERR_NOERROR);
    EXPECT_THAT(journal::Calls(), ElementsAre("focus2 GetPosition", "focus2 SetPosition 100"));
}

TEST_F(FocusTest, ContinuousMovesToTheEndOfTheRange) {
    EXPECT_EQ(Command({3, 10, 0, 0}), SNMP_ERR_NOERROR);
    EXPECT_EQ(Done(), Position("0.00", SetTo(0.0, "0.000000") +
                                           Lines{"6 handle_positionFocusLens: continuous focus=3, speed=10"}));
    EXPECT_EQ(Command({3, 0xF6, 0, 0}), SNMP_ERR_NOERROR);
    EXPECT_EQ(Done(), Position("0.00", SetTo(100.0, "100.000000") +
                                           Lines{"6 handle_positionFocusLens: continuous focus=3, speed=-10"}));
    EXPECT_EQ(Command({3, 0, 0, 0}), SNMP_ERR_NOERROR);
    EXPECT_EQ(Done(), Position("0.00", SetTo(0.0, "0.000000") +
                                           Lines{"6 handle_positionFocusLens: continuous focus=3, speed=0"}));
}

TEST_F(FocusTest, ContinuousAtMinus128IsRefusedAndStillLoggedAndAnswered) {
    SnmpRequest request(OrvexSnmpOid::oid_positionFocusLens);
    request.WithOctets({3, 0x80, 1, 2, 9});
    EXPECT_EQ(request.Call(OrvexSnmpFocus::handle_positionFocusLens, MODE_SET_COMMIT), SNMP_ERR_GENERR);
    EXPECT_EQ(Done(), Position("0.00", {"6 handle_positionFocusLens: NTCIP speed -128 outside range of -127 to +127",
                                        "6 handle_positionFocusLens: continuous focus=3, speed=-128"}));
    EXPECT_THAT(request.Octets(), ElementsAre(3, 0x80, 1, 2));
    EXPECT_THAT(Get(kPosition), ElementsAre(3, 0x80, 1, 2));
}

TEST_F(FocusTest, AnUnknownModeIsReportedByItsSpeed) {
    EXPECT_EQ(Command({8, 0xFE, 0, 0}), SNMP_ERR_GENERR);
    EXPECT_EQ(Done(), Position("0.00", {"3 handle_positionFocusLens: unknown focus mode (-2)"}));
}

// --- systemLensFeatureControl ---

TEST_F(FocusTest, ControlSwitchesWhatItsFirstOctetSelects) {
    for (int select = 0; select <= 255; ++select) {
        for (const int state : {0x00, 0x01, 0x40, 0x7F, 0x80, 0xC0, 0xFF}) {
            SCOPED_TRACE(journal::Join(select, state));
            const bool enable = (state & 0x80) != 0;
            Lines expected;
            if ((select & 0x40) != 0) {
                expected.push_back(enable ? "call focus SetAutoFocus true" : "call focus SetAutoFocus false");
                expected.push_back("settings SetValue [Imaging/Focus]Mode " + std::string(enable ? "Auto" : "Manual"));
                if (enable) expected.emplace_back("call focus2 AutoFocus true");
            }
            if ((select & 0x80) != 0) {
                expected.push_back(enable ? "call iris SetAutoIris true" : "call iris SetAutoIris false");
            }
            const std::vector<u_char> octets{static_cast<u_char>(select), static_cast<u_char>(state)};
            SnmpRequest request(OrvexSnmpOid::oid_systemLensFeatureControl);
            request.WithOctets(octets);
            journal::Clear();

            EXPECT_EQ(request.Call(OrvexSnmpFocus::handle_systemLensFeatureControl, MODE_SET_COMMIT), SNMP_ERR_NOERROR);

            EXPECT_EQ(Effects(), expected);
            EXPECT_THAT(Agent().answers, IsEmpty());
            EXPECT_EQ(request.Octets(), octets);
            EXPECT_EQ(Get(kControl), octets);
        }
    }
}

TEST_F(FocusTest, ControlLogsWhatWasStoredBeforeEveryRequest) {
    EXPECT_EQ(Command({0x3F, 0x80, 0xAA}, kControl), SNMP_ERR_NOERROR);
    EXPECT_EQ(Done(), Handled("handle_systemLensFeatureControl", {"6 handle_systemLensFeatureControl: last=00 00"}));
    for (const int mode : {static_cast<int>(MODE_GET), static_cast<int>(MODE_GETNEXT), MODE_SET_RESERVE1,
                           MODE_SET_RESERVE2, MODE_SET_ACTION, MODE_SET_FREE, MODE_SET_UNDO, 6, 162, -1}) {
        SCOPED_TRACE(mode);
        SnmpRequest request(OrvexSnmpOid::oid_systemLensFeatureControl);
        request.WithOctets({0xC0, 0x80});
        journal::Clear();
        EXPECT_EQ(request.Call(OrvexSnmpFocus::handle_systemLensFeatureControl, mode), SNMP_ERR_NOERROR);
        EXPECT_EQ(Done(),
                  Handled("handle_systemLensFeatureControl", {"6 handle_systemLensFeatureControl: last=3f 80"}));
        EXPECT_EQ(Agent().answers.size(), mode == static_cast<int>(MODE_GET) ? 1U : 0U);
        EXPECT_EQ(request.Mark(), SNMP_ERR_NOERROR);
        EXPECT_THAT(Get(kControl), ElementsAre(0x3F, 0x80));
    }
}

TEST_F(FocusTest, ControlIsTwoZeroOctetsAtFirst) {
    EXPECT_THAT(Get(kControl), ElementsAre(0, 0));
}

TEST_F(FocusTest, ControlGoesOnWhereAServiceThrows) {
    for (const auto thrown : kEveryThrow) {
        for (const auto* operation : {"focus.SetAutoFocus", "focus2.AutoFocus", "iris.SetAutoIris"}) {
            Fail(operation, thrown);
        }
        EXPECT_EQ(Command({0xC0, 0x80}, kControl), SNMP_ERR_NOERROR);
        EXPECT_THAT(journal::Calls(),
                    ElementsAre("focus SetAutoFocus true", "focus2 AutoFocus true", "iris SetAutoIris true"));
        EXPECT_THAT(journal::Logged(3), ElementsAre("Exception while SetAutoFocusEnabled", "Exception while AutoFocus",
                                                    "Exception while SetAutoIrisEnabled"));
        EXPECT_THAT(Get(kControl), ElementsAre(0xC0, 0x80));
    }
}

// --- systemLensFeatureStatus ---

TEST_F(FocusTest, StatusIsMadeOfTheSettingsAndTheIris) {
    struct Row {
        const char* mode;
        bool autoIris;
        int status;
        const char* logged;
    };
    const Row rows[] = {
        {"Manual", true, 0x80, "autoIris=TRUE,autoFocus=FALSE"},
        {"Manual", false, 0x00, "autoIris=FALSE,autoFocus=FALSE"},
        {"Auto", true, 0xC0, "autoIris=TRUE,autoFocus=TRUE"},
        {"Auto", false, 0x40, "autoIris=FALSE,autoFocus=TRUE"},
        {"", false, 0x40, "autoIris=FALSE,autoFocus=TRUE"},
        {"Anything", false, 0x40, "autoIris=FALSE,autoFocus=TRUE"},
    };
    for (const auto& row : rows) {
        Camera().settings[kMode] = row.mode;
        Camera().answers["iris.GetAutoIris"] = row.autoIris;
        for (const int mode : {static_cast<int>(MODE_GET), static_cast<int>(MODE_GETNEXT)}) {
            SnmpRequest request(OrvexSnmpOid::oid_systemLensFeatureStatus);
            journal::Clear();
            EXPECT_EQ(request.Call(OrvexSnmpFocus::handle_systemLensFeatureStatus, mode), SNMP_ERR_NOERROR);
            EXPECT_THAT(Effects(), ElementsAre("settings GetValue [Imaging/Focus]Mode", "call iris GetAutoIris"));
            EXPECT_EQ(request.Type(), ASN_OCTET_STR);
            EXPECT_THAT(request.Octets(), ElementsAre(row.status));
            const auto lines = Done();
            ASSERT_GE(lines.size(), 4U);
            EXPECT_EQ(lines[0], "8 handle_systemLensFeatureStatus: Enter.");
            EXPECT_EQ(lines[1], "7 handle_systemLensFeatureStatus: Received OID ");
            EXPECT_EQ(lines[lines.size() - 2], "6 handle_systemLensFeatureStatus: " + std::string(row.logged));
            EXPECT_EQ(lines.back(), "8 handle_systemLensFeatureStatus: Done.");
        }
    }
}

TEST_F(FocusTest, StatusLeavesABitOutThatCannotBeRead) {
    Camera().settings[kMode] = "Auto";
    Camera().answers["iris.GetAutoIris"] = true;
    for (const auto thrown : kEveryThrow) {
        Fail("settings.GetValue", thrown);
        EXPECT_THAT(Get(kStatus), ElementsAre(0x80));
        Fail("iris.GetAutoIris", thrown);
        EXPECT_THAT(Get(kStatus), ElementsAre(0x00));
        Camera().failing.erase("settings.GetValue");
        EXPECT_THAT(Get(kStatus), ElementsAre(0x40));
        Camera().failing.clear();
    }
}

// --- systemLensEquipped ---

TEST_F(FocusTest, EquippedIsAutoFocusAtFirst) {
    EXPECT_THAT(Get(kEquipped), ElementsAre(0x40));
    EXPECT_EQ(Done(), Handled("handle_systemLensEquipped", {}));
}

TEST_F(FocusTest, EquippedTakesNoBitButAutoFocus) {
    for (const u_char kept : {u_char{0x00}, u_char{0x40}}) {
        for (int octet = 0; octet <= 255; ++octet) {
            SCOPED_TRACE(octet);
            ASSERT_EQ(Command({kept}, kEquipped), SNMP_ERR_NOERROR);
            SnmpRequest request(OrvexSnmpOid::oid_systemLensEquipped);
            request.WithOctets({static_cast<u_char>(octet), 2, 3, 4, 5});
            journal::Clear();
            const int result = request.Call(OrvexSnmpFocus::handle_systemLensEquipped, MODE_SET_COMMIT);
            EXPECT_EQ(request.Mark(), SNMP_ERR_NOERROR);
            if (octet == 0x00 || octet == 0x40) {
                EXPECT_EQ(result, SNMP_ERR_NOERROR);
                EXPECT_EQ(Done(), Handled("handle_systemLensEquipped", {}));
                EXPECT_EQ(request.Type(), ASN_OCTET_STR);
                EXPECT_THAT(request.Octets(), ElementsAre(octet, 2, 3, 4));
                EXPECT_THAT(Get(kEquipped), ElementsAre(octet));
            } else {
                EXPECT_EQ(result, SNMP_ERR_GENERR);
                EXPECT_THAT(journal::Logged(3), IsEmpty());
                EXPECT_THAT(journal::Logged(6), IsEmpty());
                EXPECT_THAT(Agent().answers, IsEmpty());
                EXPECT_THAT(Get(kEquipped), ElementsAre(kept));
            }
        }
    }
}

TEST_F(FocusTest, EquippedDoesNothingInOtherModes) {
    for (const int mode : {static_cast<int>(MODE_GETNEXT), MODE_SET_RESERVE1, MODE_SET_RESERVE2, MODE_SET_ACTION,
                           MODE_SET_FREE, MODE_SET_UNDO, 6, 162, -1}) {
        SCOPED_TRACE(mode);
        SnmpRequest request(OrvexSnmpOid::oid_systemLensEquipped);
        request.WithOctets({0x00});
        journal::Clear();
        EXPECT_EQ(request.Call(OrvexSnmpFocus::handle_systemLensEquipped, mode), SNMP_ERR_NOERROR);
        EXPECT_EQ(Done(), Handled("handle_systemLensEquipped", {}));
        EXPECT_THAT(Agent().answers, IsEmpty());
        EXPECT_EQ(request.Mark(), SNMP_ERR_NOERROR);
        EXPECT_THAT(Get(kEquipped), ElementsAre(0x40));
    }
}

TEST_F(FocusConstructionTest, WhatWasSetIsForgottenWithTheProvider) {
    tavos::msgbus::MsgBus bus;
    {
        const OrvexSnmpFocus focus{bus};
        Commit(kPosition, {2, 1, 2, 3});
        Commit(kControl, {0x3F, 0xFF});
        Commit(kEquipped, {0x00});
    }
    const OrvexSnmpFocus focus{bus};
    for (const auto& [object, octets] :
         {std::pair{kPosition, std::vector<u_char>{0, 0, 0, 0}}, std::pair{kControl, std::vector<u_char>{0, 0}},
          std::pair{kEquipped, std::vector<u_char>{0x40}}}) {
        SnmpRequest request(object.oidName, object.length);
        request.Call(object.handler, MODE_GET);
        EXPECT_EQ(request.Octets(), octets);
    }
}

TEST_F(FocusTest, ARefusedEquippedOctetIsTracedToItsEnd) {
    for (const u_char octet : {u_char{0x80}, u_char{0x41}, u_char{0xC0}, u_char{0x01}}) {
        EXPECT_EQ(Command({octet}, kEquipped), SNMP_ERR_GENERR);
        EXPECT_EQ(Done(), Handled("handle_systemLensEquipped", {}));
    }
}

}  // namespace
