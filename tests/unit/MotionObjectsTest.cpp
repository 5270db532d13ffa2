// What the five motion objects share: the four octets, what they store and answer, and which phase acts. The sweeps try
// every mode octet with every speed octet.
#include "position/PositionCommand.h"
#include "support/CameraTest.h"

namespace {

using Octets = std::vector<u_char>;

/// The expected effect of one committed command.
struct Outcome {
    int result = SNMP_ERR_NOERROR;
    Lines calls;
    Lines errors;
    bool answered = true;
};

constexpr unsigned kPosition = 4096;  // of every command of the sweeps: the octets 10 00

std::string AtSpeed(const char* service, int position, int speed) {
    return journal::Join(service, "SetPositionAtSpeed", position, speed / 127.0, 300);
}

std::string Velocity(const char* service, int speed) {
    return journal::Join(service, "SetRelativeVelocity", speed / 127.0, 300);
}

/// Pan starts at 100000, tilt at 45000: the platform positions that a step and an absolute command target.
Outcome Axis(const char* service, int mode, int speed, int forward, int backward, int absolute, int unknown) {
    const auto handler = "handle_position" + std::string(service == std::string("pan") ? "Pan" : "Tilt");
    const bool refused = speed == -128;
    switch (mode) {
        case 0:
            if (speed == 0) return {0, {Velocity(service, 0)}, {}};
            return {5, {}, {handler + ": stop " + service + " speed not zero(" + std::to_string(speed) + ")"}};
        case 1: {
            const std::string read = std::string(service) + " GetPosition";
            if (refused) return {0, {read}, {}};
            return {0, {read, AtSpeed(service, speed >= 0 ? forward : backward, speed)}, {}};
        }
        case 2:
            return refused ? Outcome{} : Outcome{0, {AtSpeed(service, absolute, speed)}, {}};
        case 3:
            return refused ? Outcome{} : Outcome{0, {Velocity(service, speed)}, {}};
        default:
            return {5, {}, {handler + ": unknown " + service + " mode (" + std::to_string(unknown) + ")"}};
    }
}

Outcome Pan(int mode, int speed) {
    return Axis("pan", mode, speed, 140960, 59040, 40960, speed);
}

Outcome Tilt(int mode, int speed) {
    return Axis("tilt", mode, speed, 85960, 4040, 40960, mode);
}

Outcome Zoom(int mode, int speed) {
    const std::string name = "handle_positionZoomLens: ";
    const std::string set = "zoom SetMagnificationThousandthsX ";
    const std::string readMaximum = "zoom GetMaxMagnificationThousandthsX";
    switch (mode) {
        case 0:
            if (speed == 0) return {0, {"zoom ZoomRelative 0 300"}, {}};
            return {5, {}, {name + "stop zoom speed not zero(" + std::to_string(speed) + ")"}};
        case 1:
            return {0,
                    {readMaximum, "zoom GetMagnificationThousandthsX", set + (speed >= 0 ? "11187 300" : "8812 300")},
                    {}};
        case 2:
            return {0, {readMaximum, set + "2187 300"}, {}};
        case 3:
            if (speed == -128) return {5, {}, {}, false};
            return {0, {speed < 0 ? "zoom ZoomRelative -1 300" : "zoom ZoomRelative 1 300"}, {}};
        default:
            return {5, {}, {name + "unknown zoom mode (" + std::to_string(speed) + ")"}};
    }
}

Outcome Focus(int mode, int speed) {
    const std::string name = "handle_positionFocusLens: ";
    const std::string read = "focus2 GetPosition";
    const double step = 6.250095368887;  // 4096 of 65535 in percent, to twelve decimals
    const auto set = [](double position) { return journal::Join("focus2 SetPosition", position); };
    const double exact = kPosition * 100.0 / 65535.0;
    EXPECT_NEAR(exact, step, 1e-11);
    switch (mode) {
        case 0:
            if (speed == 0) return {0, {read, set(50.0)}, {}};
            return {5, {read}, {name + "stop focus speed not zero(" + std::to_string(speed) + ")"}};
        case 1:
            return {0, {read, set(speed < 0 ? 50.0 - exact : 50.0 + exact)}, {}};
        case 2:
            return {0, {read, set(exact)}, {}};
        case 3:
            if (speed == -128) return {5, {read}, {}};
            return {0, {read, set(speed < 0 ? 100.0 : 0.0)}, {}};
        default:
            return {5, {read}, {name + "unknown focus mode (" + std::to_string(speed) + ")"}};
    }
}

Outcome Iris(int mode, int speed) {
    const std::string name = "handle_positionIrisLens: ";
    switch (mode) {
        case 0:
            if (speed == 0) return {0, {"iris MoveIris 0"}, {}};
            return {5, {}, {name + "stop iris speed not zero(" + std::to_string(speed) + ")"}};
        case 1:
            return {0, {}, {name + "delta iris (1), NOT IMPLEMENTED"}};
        case 2:
            return {0, {}, {name + "absolute iris (2), NOT IMPLEMENTED"}};
        case 3:
            if (speed == -128) return {5, {}, {}};
            return {0, {speed < 0 ? "iris MoveIris 1" : "iris MoveIris -1"}, {}};
        default:
            return {5, {}, {name + "unknown iris mode (" + std::to_string(speed) + ")"}};
    }
}

struct MotionObject : CameraObject {
    MotionObject(const char* itsName, Outcome (*outcome)(int, int), const Lines& always, const Lines& operations)
        : CameraObject(itsName), expected(outcome), callsOfEveryRequest(always), failingOperations(operations) {}

    Outcome (*expected)(int mode, int speed);
    Lines callsOfEveryRequest;
    Lines failingOperations;
};

const std::vector<MotionObject>& Objects() {
    static const std::vector<MotionObject> objects{
        {"positionPan", Pan, {}, {"pan.GetPosition", "pan.SetPositionAtSpeed", "pan.SetRelativeVelocity"}},
        {"positionTilt", Tilt, {}, {"tilt.GetPosition", "tilt.SetPositionAtSpeed", "tilt.SetRelativeVelocity"}},
        {"positionZoomLens",
         Zoom,
         {},
         {"zoom.GetMagnificationThousandthsX", "zoom.GetMaxMagnificationThousandthsX",
          "zoom.SetMagnificationThousandthsX", "zoom.ZoomRelative"}},
        {"positionFocusLens", Focus, {"focus2 GetPosition"}, {"focus2.GetPosition", "focus2.SetPosition"}},
        {"positionIrisLens", Iris, {}, {"iris.MoveIris"}},
    };
    return objects;
}

class MotionObjectsTest : public CameraTest, public testing::WithParamInterface<MotionObject> {
protected:
    MotionObjectsTest() {
        Camera().answers["pan.GetPosition"] = 100000;
        Camera().answers["tilt.GetPosition"] = 45000;
        Camera().answers["zoom.GetMagnificationThousandthsX"] = 10000;
        Camera().answers["focus2.GetPosition"] = 50.0;
    }

    Octets Last() {
        SnmpRequest request(GetParam().oidName, GetParam().length);
        EXPECT_EQ(request.Call(GetParam().handler, MODE_GET), SNMP_ERR_NOERROR);
        EXPECT_EQ(request.Type(), ASN_OCTET_STR);
        EXPECT_THAT(Agent().answers, ElementsAre(Answer{ASN_OCTET_STR, 4}));
        EXPECT_EQ(request.Mark(), SNMP_ERR_NOERROR);
        return request.Octets();
    }
};

TEST_P(MotionObjectsTest, EverySpeedInEveryModeDoesWhatTheAxisSaysAndIsRemembered) {
    const Answer echo{ASN_OCTET_STR, 4};
    for (int mode = 0; mode <= 255; ++mode) {
        for (int octet = 0; octet <= 255; ++octet) {
            SCOPED_TRACE(journal::Join("mode", mode, "speed octet", octet));
            const int speed = octet < 128 ? octet : octet - 256;
            const auto expected = GetParam().expected(mode, speed);
            const Octets command{static_cast<u_char>(mode), static_cast<u_char>(octet), kPosition / 256, 0};
            SnmpRequest request(GetParam().oidName, GetParam().length);
            request.WithOctets(command);
            journal::Clear();

            ASSERT_EQ(request.Call(GetParam().handler, MODE_SET_COMMIT), expected.result);

            ASSERT_EQ(journal::Calls(), expected.calls);
            ASSERT_EQ(journal::Logged(3), expected.errors);
            ASSERT_EQ(Agent().answers, expected.answered ? std::vector<Answer>{echo} : std::vector<Answer>{});
            ASSERT_EQ(request.Type(), ASN_OCTET_STR);
            ASSERT_EQ(request.Octets(), command);
            ASSERT_EQ(request.Mark(), SNMP_ERR_NOERROR);
            ASSERT_EQ(Last(), command);
        }
    }
}

TEST_P(MotionObjectsTest, GetBeforeAnySetAnswersFourZeroOctets) {
    EXPECT_THAT(Last(), ElementsAre(0, 0, 0, 0));
    EXPECT_EQ(journal::Calls(), GetParam().callsOfEveryRequest);
    EXPECT_THAT(journal::Logged(3), IsEmpty());
}

TEST_P(MotionObjectsTest, GetReportsEnterRangeEndAndDone) {
    SnmpRequest request(GetParam().oidName, GetParam().length);
    request.WithRangeEnd({1, 3, 6, 1, 4, 1, 1206});

    request.Call(GetParam().handler, MODE_GET);

    const auto name = GetParam().Handler();
    EXPECT_EQ(journal::Logged().at(0), "8 " + name + ": Enter.");
    EXPECT_EQ(journal::Logged().at(1), "7 " + name + ": Received OID .1.3.6.1.4.1.1206");
    EXPECT_EQ(journal::Logged().back(), "8 " + name + ": Done.");
}

TEST_P(MotionObjectsTest, OnlyTheCommitActsRemembersOrAnswers) {
    std::vector<int> modes{MODE_GETNEXT};
    modes.insert(modes.end(), std::begin(kPhasesBeforeAndAfterCommit), std::end(kPhasesBeforeAndAfterCommit));
    modes.insert(modes.end(), std::begin(kUnknownModes), std::end(kUnknownModes));
    const auto name = GetParam().Handler();
    for (const int mode : modes) {
        for (const Octets& command : {Octets{3, 20, 0, 0}, Octets{0, 5, 1, 2}, Octets{9, 9, 9, 9}}) {
            SCOPED_TRACE(journal::Join("request mode", mode, "command", command[0]));
            SnmpRequest request(GetParam().oidName, GetParam().length);
            request.WithOctets(command);
            journal::Clear();

            EXPECT_EQ(request.Call(GetParam().handler, mode), SNMP_ERR_NOERROR);

            EXPECT_EQ(journal::Calls(), GetParam().callsOfEveryRequest);
            EXPECT_THAT(journal::Logged(3), IsEmpty());
            EXPECT_EQ(journal::Logged().front(), "8 " + name + ": Enter.");
            EXPECT_EQ(journal::Logged().back(), "8 " + name + ": Done.");
            EXPECT_THAT(Agent().answers, IsEmpty());
            EXPECT_EQ(request.Octets(), command);
            EXPECT_EQ(request.Mark(), SNMP_ERR_NOERROR);
            EXPECT_THAT(Last(), ElementsAre(0, 0, 0, 0));
        }
    }
}

TEST_P(MotionObjectsTest, ASetPassesItsReservePhasesAndIsEchoed) {
    SnmpRequest request(GetParam().oidName, GetParam().length);
    request.WithOctets({3, 20, 0xAB, 0xCD});

    EXPECT_EQ(request.Set(GetParam().handler), SNMP_ERR_NOERROR);

    EXPECT_THAT(request.Octets(), ElementsAre(3, 20, 0xAB, 0xCD));
    EXPECT_THAT(Last(), ElementsAre(3, 20, 0xAB, 0xCD));
}

TEST_P(MotionObjectsTest, ARefusedCommandIsAnsweredByTheNextGet) {
    SnmpRequest request(GetParam().oidName, GetParam().length);
    request.WithOctets({7, 5, 0, 0});

    EXPECT_EQ(request.Set(GetParam().handler), SNMP_ERR_GENERR);

    EXPECT_THAT(Last(), ElementsAre(7, 5, 0, 0));
}

TEST_P(MotionObjectsTest, OctetsAreReadByThemselvesAndTheOnesBehindThemLeftAlone) {
    SnmpRequest request(GetParam().oidName, GetParam().length);
    request.WithOctets({9, 1, 2, 3, 4, 5, 6, 7, 8});

    EXPECT_EQ(request.Set(GetParam().handler), SNMP_ERR_GENERR);

    EXPECT_THAT(request.Octets(), ElementsAre(9, 1, 2, 3));
    EXPECT_THAT(Last(), ElementsAre(9, 1, 2, 3));
}

TEST_P(MotionObjectsTest, AnIntegerIsReadFromItsBuffer) {
    SnmpRequest request(GetParam().oidName, GetParam().length);
    request.WithInteger(0x04030209);  // a buffer of 09 02 03 04 and zeros

    EXPECT_EQ(request.Set(GetParam().handler), SNMP_ERR_GENERR);

    EXPECT_EQ(request.Type(), ASN_OCTET_STR);
    EXPECT_THAT(request.Octets(), ElementsAre(9, 2, 3, 4));
    EXPECT_THAT(Last(), ElementsAre(9, 2, 3, 4));
}

TEST_P(MotionObjectsTest, AServiceThatThrowsDoesNotFailTheSet) {
    for (const auto thrown : kEveryThrow) {
        for (const auto& operation : GetParam().failingOperations) Fail(operation, thrown);
        for (u_char mode = 0; mode <= 3; ++mode) {
            SCOPED_TRACE(journal::Join("thrown", static_cast<int>(thrown), "mode", static_cast<int>(mode)));
            const Octets command{mode, static_cast<u_char>(mode == 0 ? 0 : 10), 0x10, 0};
            SnmpRequest request(GetParam().oidName, GetParam().length);
            request.WithOctets(command);

            EXPECT_EQ(request.Set(GetParam().handler), SNMP_ERR_NOERROR);

            EXPECT_EQ(request.Octets(), command);
            EXPECT_EQ(request.Mark(), SNMP_ERR_NOERROR);
            EXPECT_EQ(Last(), command);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(All, MotionObjectsTest, testing::ValuesIn(Objects()), NameOfObject<MotionObject>);

struct Decoded {
    std::array<std::uint8_t, 4> octets;
    int mode;
    int speed;
    unsigned position;
};

TEST(PositionCommandTest, SpeedIsSignedAndPositionBigEndian) {
    const Decoded table[] = {
        {{0x02, 0x00, 0x8C, 0x9F}, 2, 0, 35999},      {{0x02, 0x7F, 0x23, 0x28}, 2, 127, 9000},
        {{0x03, 0x81, 0x00, 0xFF}, 3, -127, 255},     {{0x01, 0xFF, 0xFF, 0x00}, 1, -1, 65280},
        {{0xFF, 0x80, 0xFF, 0xFF}, 255, -128, 65535},
    };
    for (const auto& row : table) {
        const PositionCommand command(row.octets);
        EXPECT_EQ(command.octets, row.octets);
        EXPECT_EQ(command.mode, row.mode);
        EXPECT_EQ(command.speed, row.speed);
        EXPECT_EQ(command.position, row.position);
    }
}

}  // namespace
