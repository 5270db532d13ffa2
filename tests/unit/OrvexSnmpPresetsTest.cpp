#include "motion/OrvexSnmpPresets.h"
#include "support/CameraTest.h"

namespace {

using PresetsTest = ProviderTest<OrvexSnmpPresets>;
using PresetsConstructionTest = ModuleTest;

TEST_F(PresetsConstructionTest, TracesTheMakingOfItsClientsAndDeletesThemInTheirOrder) {
    EXPECT_THAT(MadeAndUnmade<OrvexSnmpPresets>(),
                ElementsAre("8 OrvexSnmpPresets: Enter", "bus CreateClient presets", "bus CreateClient presets2",
                            "8 OrvexSnmpPresets: Done.", "bus DeleteClient presets", "bus DeleteClient presets2"));
}

TEST_F(PresetsConstructionTest, ComesToNothingWithoutAClient) {
    ExpectNoProviderWithout<OrvexSnmpPresets>("presets");
    ExpectNoProviderWithout<OrvexSnmpPresets>("presets2");
}

TEST_F(PresetsTest, TheNumberOfPresetsIsLoggedAtTrace) {
    Camera().answers["presets2.GetMaxPresets"] = 96;
    ExpectProtocol<OrvexSnmpPresets>(
        _provider, Getter("GetMaxPresets", &OrvexSnmpPresets::GetMaxPresets, 96U, "presets2", "8 count=96"));
}

TEST_F(PresetsTest, TheMaxPresetIsZeroWhateverTheServiceReturns) {
    for (const unsigned presets : {0U, 64U, 0xFFFFFFFFU}) {
        Camera().answers["presets2.GetMaxPresets"] = presets;
        for (const int mode : {static_cast<int>(MODE_GET), static_cast<int>(MODE_GETNEXT)}) {
            SnmpRequest request(OrvexSnmpOid::oid_rangeMaximumPreset);
            journal::Clear();
            EXPECT_EQ(request.Call(OrvexSnmpPresets::handle_rangeMaximumPreset, mode), SNMP_ERR_NOERROR);
            EXPECT_EQ(request.Type(), ASN_INTEGER);
            EXPECT_EQ(request.Integer(), 0);
            EXPECT_THAT(Agent().answers, ElementsAre(Answer{ASN_INTEGER, 1}));
            EXPECT_THAT(Done(),
                        ElementsAre("8 handle_rangeMaximumPreset: Enter.", "7 handle_rangeMaximumPreset: Received OID ",
                                    "6 handle_rangeMaximumPreset: Done."));
        }
    }
}

struct Command {
    const char* name;
    Netsnmp_Node_Handler* handler;
    const oid* oidName;
};

class PresetCommandTest : public PresetsTest, public testing::WithParamInterface<Command> {};

TEST_P(PresetCommandTest, EveryModeAnswersZeroAndLogsAlike) {
    std::vector<int> modes{MODE_GET, MODE_GETNEXT, MODE_SET_COMMIT};
    modes.insert(modes.end(), std::begin(kPhasesBeforeAndAfterCommit), std::end(kPhasesBeforeAndAfterCommit));
    modes.insert(modes.end(), std::begin(kUnknownModes), std::end(kUnknownModes));
    for (const int mode : modes) {
        SCOPED_TRACE(mode);
        SnmpRequest request(GetParam().oidName, 13);
        request.WithInteger(3).WithRangeEnd({1, 3, 6});
        journal::Clear();

        EXPECT_EQ(request.Call(GetParam().handler, mode), SNMP_ERR_NOERROR);

        const std::string name = std::string("handle_") + GetParam().name;
        EXPECT_THAT(Done(), ElementsAre("8 " + name + ": Enter.", "7 " + name + ": Received OID .1.3.6",
                                        "8 " + name + ": Done."));
        EXPECT_EQ(request.Type(), ASN_INTEGER);
        EXPECT_EQ(request.Integer(), 0);
        EXPECT_THAT(Agent().answers, ElementsAre(Answer{ASN_INTEGER, 4}));
        EXPECT_EQ(request.Mark(), SNMP_ERR_NOERROR);
    }
}

TEST_P(PresetCommandTest, ASetSucceedsInEveryPhaseWithoutEffect) {
    SnmpRequest request(GetParam().oidName, 13);
    request.WithInteger(7);

    EXPECT_EQ(request.Set(GetParam().handler), SNMP_ERR_NOERROR);

    const std::string name = std::string("handle_") + GetParam().name;
    const Lines phase = Handled(name, {});
    Lines phases;
    for (int i = 0; i < 4; ++i) phases.insert(phases.end(), phase.begin(), phase.end());
    EXPECT_EQ(Done(), phases);
    EXPECT_EQ(request.Integer(), 0);

    SnmpRequest get(GetParam().oidName, 13);
    EXPECT_EQ(get.Call(GetParam().handler, MODE_GET), SNMP_ERR_NOERROR);
    EXPECT_EQ(get.Type(), ASN_INTEGER);
    EXPECT_EQ(get.Integer(), 0);
}

INSTANTIATE_TEST_SUITE_P(All, PresetCommandTest,
                         testing::Values(Command{"presetGotoPosition", OrvexSnmpPresets::handle_presetGotoPosition,
                                                 OrvexSnmpOid::oid_presetGotoPosition},
                                         Command{"presetStorePosition", OrvexSnmpPresets::handle_presetStorePosition,
                                                 OrvexSnmpOid::oid_presetStorePosition}),
                         NameOfObject<Command>);

}  // namespace
