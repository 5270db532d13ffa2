// What many motion and lens objects share: constants, refusal of all modes but reads, the range end in the log, and
// SETs of every type and length on all writable objects.
#include <cstring>

#include "support/CameraTest.h"

namespace {

using Octets = std::vector<u_char>;

// --- constants ---

struct Constant : CameraObject {
    Constant(const char* itsName, long itsValue, std::size_t itsWidth, const char* itsLine = nullptr)
        : CameraObject(itsName), value(itsValue), width(itsWidth), line(itsLine) {}

    long value;
    std::size_t width;  ///< of the answer, in bytes; 0: not checked
    const char* line;   ///< logged before the answer
};

const std::vector<Constant>& Constants() {
    static const std::vector<Constant> constants{
        {"rangePanLeftLimit", 0, 4},
        {"rangePanRightLimit", 0, 4},
        {"rangePanHomePosition", 65535, 4},
        {"rangeMinimumPanStepAngle", 65535, 4},
        {"timeoutPan", 0, 2},
        {"rangeTiltUpLimit", 0, 2},
        {"rangeTiltDownLimit", 0, 2},
        {"rangeMinimumTiltStepAngle", 65535, 4},
        {"timeoutTilt", 0, 4},
        {"rangeZoomLimit", 0, 4},
        {"timeoutZoom", 0, 4},
        {"rangeFocusLimit", 0, 0, "focusLimit=0..."},
        {"timeoutFocus", 0, 0, "timeoutFocus=0..."},
        {"rangeIrisLimit", 0, 1},
        {"timeoutIris", 0, 4, "timeoutIris=0"},
    };
    return constants;
}

class ConstantTest : public CameraTest, public testing::WithParamInterface<Constant> {};

TEST_P(ConstantTest, ReadsAnswerItWithItsWidthAndAskNoService) {
    for (const int mode : {static_cast<int>(MODE_GET), static_cast<int>(MODE_GETNEXT)}) {
        SnmpRequest request(GetParam().oidName, GetParam().length);
        journal::Clear();

        EXPECT_EQ(request.Call(GetParam().handler, mode), SNMP_ERR_NOERROR);

        Lines line;
        if (GetParam().line != nullptr) line.push_back("6 " + GetParam().Handler() + ": " + GetParam().line);
        EXPECT_EQ(Done(), Handled(GetParam().Handler(), line));
        EXPECT_EQ(request.Type(), ASN_INTEGER);
        EXPECT_EQ(request.Integer(), GetParam().value);
        ASSERT_EQ(Agent().answers.size(), 1U);
        EXPECT_EQ(request.Mark(), SNMP_ERR_NOERROR);
        if (GetParam().width == 0) continue;
        EXPECT_EQ(Agent().answers[0].width, GetParam().width);
    }
}

INSTANTIATE_TEST_SUITE_P(All, ConstantTest, testing::ValuesIn(Constants()), NameOfObject<Constant>);

// --- objects that can only be read ---

std::vector<CameraObject> OnlyRead() {
    std::vector<CameraObject> objects(Constants().begin(), Constants().end());
    objects.emplace_back("rangeMaximumPreset");
    objects.emplace_back("systemLensFeatureStatus");
    objects.emplace_back("systemCameraFeatureStatus");
    return objects;
}

class OnlyReadTest : public CameraTest, public testing::WithParamInterface<CameraObject> {};

TEST_P(OnlyReadTest, EveryOtherModeEndsAtOnceWithGenErr) {
    std::vector<int> modes{MODE_SET_COMMIT};
    modes.insert(modes.end(), std::begin(kPhasesBeforeAndAfterCommit), std::end(kPhasesBeforeAndAfterCommit));
    modes.insert(modes.end(), std::begin(kUnknownModes), std::end(kUnknownModes));
    for (const int mode : modes) {
        SCOPED_TRACE(mode);
        SnmpRequest request(GetParam().oidName, GetParam().length);
        request.WithInteger(5).WithRangeEnd({1, 3, 6});
        journal::Clear();

        EXPECT_EQ(request.Call(GetParam().handler, mode), SNMP_ERR_GENERR);

        const auto name = GetParam().Handler();
        EXPECT_THAT(Done(), ElementsAre("8 " + name + ": Enter.",
                                        "3 " + name + ": unknown mode (" + std::to_string(mode) + ")"));
        EXPECT_THAT(Agent().answers, IsEmpty());
        EXPECT_EQ(request.Integer(), 5);
        EXPECT_EQ(request.Mark(), SNMP_ERR_NOERROR);
    }
}

TEST_P(OnlyReadTest, ASetFailsInItsFirstPhase) {
    SnmpRequest request(GetParam().oidName, GetParam().length);
    request.WithInteger(5);
    EXPECT_EQ(request.Set(GetParam().handler), SNMP_ERR_GENERR);
    EXPECT_THAT(journal::Logged(3),
                ElementsAre(GetParam().Handler() + ": unknown mode (0)", GetParam().Handler() + ": unknown mode (4)"));
}

INSTANTIATE_TEST_SUITE_P(All, OnlyReadTest, testing::ValuesIn(OnlyRead()), NameOfObject<CameraObject>);

// --- SETs of every type and of any length ---

constexpr u_char kSpeed = 0x81;  // -127

/// The result of a SET of a value, in all its phases.
struct Outcome {
    int result = SNMP_ERR_NOERROR;  ///< the handler's result or the request's mark
    Lines calls;
    Octets answer;  ///< the variable's octets after a success; empty: unchanged
};

/// `octets`: the value, padded with zeros.
using Expected = Outcome (*)(u_char type, const Octets& value, const Octets& octets);

struct Writable : CameraObject {
    Writable(const char* itsName, const Octets& firstOctets, Expected outcome, std::size_t itsStored = 0)
        : CameraObject(itsName), first(firstOctets), expected(outcome), stored(itsStored) {}

    Octets first;  ///< the start of the values that are tried
    Expected expected;
    std::size_t stored;  ///< octets in the answer of the next GET after a commit
};

Octets First(std::size_t count, const Octets& octets) {
    return {octets.begin(), octets.begin() + static_cast<std::ptrdiff_t>(count)};
}

/// The expected call of a truncated motion command: stop, continuous without speed, or the whole command.
Outcome Motion(const Octets& octets, const char* stop, const char* speedZero, const char* backwards) {
    const bool continuous = octets[0] == 3;
    return {SNMP_ERR_NOERROR, {!continuous ? stop : octets[1] == kSpeed ? backwards : speedZero}, First(4, octets)};
}

Outcome Refused(u_char, const Octets&, const Octets&) {
    return {SNMP_ERR_GENERR, {}, {}};
}

Outcome Preset(u_char, const Octets&, const Octets&) {
    return {SNMP_ERR_NOERROR, {}, Octets(sizeof(long), 0)};
}

std::vector<Writable> Writables() {
    const Octets command{3, kSpeed, 0x12, 0x34, 0x56};
    return {
        {"positionPan", command,
         [](u_char, const Octets&, const Octets& octets) {
             return Motion(octets, "pan SetRelativeVelocity 0 300", "pan SetRelativeVelocity 0 300",
                           "pan SetRelativeVelocity -1 300");
         },
         4},
        {"positionTilt", command,
         [](u_char, const Octets&, const Octets& octets) {
             return Motion(octets, "tilt SetRelativeVelocity 0 300", "tilt SetRelativeVelocity 0 300",
                           "tilt SetRelativeVelocity -1 300");
         },
         4},
        {"positionZoomLens", command,
         [](u_char, const Octets&, const Octets& octets) {
             return Motion(octets, "zoom ZoomRelative 0 300", "zoom ZoomRelative 1 300", "zoom ZoomRelative -1 300");
         },
         4},
        {"positionFocusLens", command,
         [](u_char, const Octets&, const Octets& octets) {
             auto outcome = Motion(octets, "focus2 SetPosition 50", "focus2 SetPosition 0", "focus2 SetPosition 100");
             outcome.calls.insert(outcome.calls.begin(), 4, "focus2 GetPosition");
             return outcome;
         },
         4},
        {"positionIrisLens", command,
         [](u_char, const Octets&, const Octets& octets) {
             return Motion(octets, "iris MoveIris 0", "iris MoveIris -1", "iris MoveIris 1");
         },
         4},
        {"rangeTrueNorthOffset",
         // The start of 65535 in an INTEGER's buffer; its first octet alone is 255.
         {0xFF, 0xFF, 0, 0},
         [](u_char type, const Octets& value, const Octets&) {
             if (type != ASN_INTEGER) return Outcome{SNMP_ERR_WRONGTYPE, {}, {}};
             return Outcome{value.size() == 1 ? SNMP_ERR_GENERR : SNMP_ERR_NOERROR, {}, {}};
         }},
        {"timeoutPan", {1}, Refused},
        {"timeoutTilt", {1}, Refused},
        {"timeoutZoom", {1}, Refused},
        {"timeoutFocus", {1}, Refused},
        {"timeoutIris", {1}, Refused},
        {"presetGotoPosition", {9}, Preset},
        {"presetStorePosition", {9}, Preset},
        {"systemCameraFeatureControl",
         {1, 2, 3},
         [](u_char type, const Octets&, const Octets&) {
             return Outcome{type == ASN_OCTET_STR ? SNMP_ERR_NOERROR : SNMP_ERR_WRONGTYPE, {}, {}};
         },
         2},
        {"systemCameraEquipped",
         {1, 2},
         [](u_char type, const Octets&, const Octets&) {
             return Outcome{type == ASN_OCTET_STR ? SNMP_ERR_GENERR : SNMP_ERR_WRONGTYPE, {}, {}};
         },
         1},
        {"systemLensFeatureControl",
         {0x80, 0x80, 3},
         [](u_char, const Octets&, const Octets& octets) {
             Lines calls;
             if (octets[0] == 0x80) {
                 calls.emplace_back(octets[1] == 0x80 ? "iris SetAutoIris true" : "iris SetAutoIris false");
             }
             return Outcome{SNMP_ERR_NOERROR, calls, {}};
         },
         2},
        {"systemLensEquipped",
         {0x40, 2, 3, 4, 5},
         [](u_char, const Octets&, const Octets& octets) {
             return Outcome{SNMP_ERR_NOERROR, {}, First(4, octets)};
         },
         1},
    };
}

class WritableTest : public CameraTest, public testing::WithParamInterface<Writable> {
protected:
    WritableTest() { Camera().answers["focus2.GetPosition"] = 50.0; }

    Octets Get() {
        SnmpRequest request(GetParam().oidName, GetParam().length);
        EXPECT_EQ(request.Call(GetParam().handler, MODE_GET), SNMP_ERR_NOERROR);
        return request.Octets();
    }

    void ExpectSet(u_char type, std::size_t length, bool withBuffer) {
        SCOPED_TRACE(journal::Join("type", static_cast<int>(type), "length", length, "with buffer", withBuffer));
        Octets value = GetParam().first;
        value.resize(withBuffer ? length : 0, 0xA5);
        Octets padded = value;
        padded.resize(std::max<std::size_t>(length, 8), 0);
        const auto expected = GetParam().expected(type, value, padded);
        const Octets before = Get();

        SnmpRequest request(GetParam().oidName, GetParam().length);
        request.With(type, value.data(), value.size());
        auto& variable = *request.Raw().requestvb;
        if (!withBuffer) {
            variable.val.string = nullptr;
            variable.val_len = length;
        } else if (variable.val.string == variable.buf) {
            // Octets that an earlier, longer value left in the buffer.
            std::memset(variable.buf + length, 0xEE, sizeof variable.buf - length);
        }
        journal::Clear();

        ASSERT_EQ(request.Set(GetParam().handler), expected.result);

        ASSERT_EQ(journal::Calls(), expected.calls);
        if (!expected.answer.empty()) {
            ASSERT_EQ(request.Octets(), expected.answer);
        } else if (withBuffer) {
            ASSERT_EQ(request.Octets(), value);
            ASSERT_EQ(request.Type(), type);
        }
        if (GetParam().stored == 0) return;
        const bool committed = expected.result != SNMP_ERR_WRONGTYPE;
        ASSERT_EQ(Get(), committed ? First(GetParam().stored, padded) : before);
    }
};

TEST_P(WritableTest, EveryTypeAtAnyLengthIsReadWithZerosBehindItsEnd) {
    for (int type = 0; type <= 255; ++type) {
        for (const std::size_t length : {0, 1, 2, 3, 4, 5, 600}) ExpectSet(static_cast<u_char>(type), length, true);
        // Values of the exception types arrive without octets, perhaps with a length.
        for (const std::size_t length : {0, 1, 4, 600}) ExpectSet(static_cast<u_char>(type), length, false);
        if (HasFatalFailure()) return;
    }
}

INSTANTIATE_TEST_SUITE_P(All, WritableTest, testing::ValuesIn(Writables()), NameOfObject<Writable>);

// --- the range end ---

std::vector<CameraObject> Everything() {
    auto objects = OnlyRead();
    for (const auto& object : Writables()) {
        const bool known = std::any_of(objects.begin(), objects.end(),
                                       [&](const CameraObject& other) { return other.handler == object.handler; });
        if (!known) objects.push_back(object);
    }
    return objects;
}

class EveryObjectTest : public CameraTest, public testing::WithParamInterface<CameraObject> {};

TEST_P(EveryObjectTest, LogsTheRangeEndAndNotItsName) {
    // Every object but this one.
    if (GetParam().name == std::string("rangeTrueNorthOffset")) {
        SnmpRequest request(GetParam().oidName, GetParam().length);
        request.WithRangeEnd({1, 3, 6, 1, 4, 1, 1206, 4, 2, 7, 9}).Call(GetParam().handler, MODE_GET);
        EXPECT_THAT(journal::Logged(), Not(Contains(HasSubstr("Received OID"))));
        return;
    }
    for (const int mode : {static_cast<int>(MODE_GET), static_cast<int>(MODE_GETNEXT)}) {
        SnmpRequest request(GetParam().oidName, GetParam().length);
        request.WithRangeEnd({1, 3, 6, 1, 4, 1, 1206, 4, 2, 7, 9});
        journal::Clear();
        EXPECT_EQ(request.Call(GetParam().handler, mode), SNMP_ERR_NOERROR);
        ASSERT_GE(journal::Logged().size(), 3U);
        EXPECT_EQ(journal::Logged()[0], "8 " + GetParam().Handler() + ": Enter.");
        EXPECT_EQ(journal::Logged()[1], "7 " + GetParam().Handler() + ": Received OID .1.3.6.1.4.1.1206.4.2.7.9");
        EXPECT_EQ(journal::Logged().back().substr(2), GetParam().Handler() + ": Done.");
    }
}

INSTANTIATE_TEST_SUITE_P(All, EveryObjectTest, testing::ValuesIn(Everything()), NameOfObject<CameraObject>);

/// One instance per class, found by its class. A second one is refused, and the first one stays.
template <class Provider>
void ExpectOneInstance(tavos::msgbus::MsgBus& bus, const Provider& instance) {
    EXPECT_EQ(Provider::GetInstance(), &instance);
    journal::Clear();
    try {
        const Provider second{bus};
        ADD_FAILURE() << "a second instance was made";
    } catch (const tavos::osa::Exception& exception) {
        EXPECT_STREQ(exception.what(), "Duplicate Instance");
    }
    EXPECT_THAT(journal::Logged(3), ElementsAre("OrvexSnmpBaseProvider: Duplicate instance, exiting!"));
    EXPECT_THAT(journal::All("bus CreateClient"), IsEmpty());
    EXPECT_EQ(Provider::GetInstance(), &instance);
}

TEST_F(CameraTest, ThereIsOneProviderOfEachClass) {
    ExpectOneInstance(_bus, _presets);
    ExpectOneInstance(_bus, _focus);
    ExpectOneInstance(_bus, _iris);
    ExpectOneInstance(_bus, _zoom);
    ExpectOneInstance(_bus, _pan);
    ExpectOneInstance(_bus, _tilt);
    ExpectOneInstance(_bus, _wiper);
}

}  // namespace
