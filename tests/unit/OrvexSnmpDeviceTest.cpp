#include <sys/stat.h>
#include <sys/wait.h>

#include <algorithm>
#include <filesystem>
#include <memory>
#include <ostream>
#include <string>
#include <type_traits>

#include "frame/OrvexSnmpDevice.h"
#include "support/CameraFolder.h"
#include "support/ModuleTest.h"
#include "support/Providers.h"
#include "tavos/osa/Exception.h"

namespace {

class DeviceTest : public ModuleTest {
protected:
    DeviceTest() {
        _folder.Identity("MODEL-1", "SERIAL-1", "1234-05");
        _folder.Version("02.01.00-20120531b\n");
        Camera().settings["[Device/ReadOnly]ProductFamily"] = "Family";
        Camera().settings["[Device/ReadOnly]Manufacturer"] = "Maker";
    }
    ~DeviceTest() override {
        DeleteProviders();
        _device.reset();
        OrvexSnmpDevice::ForgetInstance();
    }

    const OrvexSnmpDevice& Construct() {
        _device = std::make_unique<OrvexSnmpDevice>();
        return *_device;
    }

    /// The text of the constructor's exception.
    std::string FailedConstruction() {
        try {
            Construct();
        } catch (const tavos::osa::Exception& exception) {
            return exception.what();
        } catch (const std::exception&) {
            return "another exception";
        } catch (int) {
            return "an int";
        }
        return "no exception";
    }

    CameraFolder _folder;
    std::unique_ptr<OrvexSnmpDevice> _device;
};

// --- construction ---

TEST_F(DeviceTest, GathersTheIdentityFromTheCommandTheFileAndTheStore) {
    EXPECT_EQ(OrvexSnmpDevice::GetInstance(), nullptr);
    const auto& device = Construct();
    EXPECT_EQ(OrvexSnmpDevice::GetInstance(), &device);
    EXPECT_EQ(device.GetModelName(), "Family");
    EXPECT_EQ(device.GetModelNumber(), "MODEL-1");
    EXPECT_EQ(device.GetSerialNumber(), "SERIAL-1");
    EXPECT_EQ(device.GetAssyId(), "1234");
    EXPECT_EQ(device.GetAssyVer(), "05");
    EXPECT_EQ(device.GetFwVer(), "02.01.00-20120531b");
    EXPECT_EQ(device.GetHwVer(), "1234-05");
    EXPECT_EQ(device.GetManufacturer(), "Maker");
    EXPECT_EQ(device.GetModuleVersion(), "20120531 - v02.01.00");
}

TEST_F(DeviceTest, DoesEverythingUpToTheProvidersInItsOrder) {
    Camera().settings["[Applications/OrvexSnmp]log.level"] = "7";
    Camera().settings["[Applications/OrvexSnmp]log.stdout"] = "true";
    Construct();
    auto lines = journal::All();
    const auto firstProvider = std::find(lines.begin(), lines.end(), "bus CreateClient temperature");
    ASSERT_NE(firstProvider, lines.end());
    lines.erase(firstProvider, lines.end());
    EXPECT_THAT(lines, ElementsAre("bus Open", "settings Open 1", "log 8 OrvexSnmpDevice: Enter.",
                                   "log 7 LoadModelInfo: Read Model Number MODEL-1",
                                   "log 7 LoadModelInfo: Read Serial Number SERIAL-1",
                                   "log 7 LoadModelInfo: Read Assembly ID 1234",
                                   "log 7 LoadModelInfo: Read Assembly Version 05",
                                   "log 6 LoadFwVersion: firmware version = 02.01.00-20120531b",
                                   "settings GetSettings Applications/OrvexSnmp", "logger ClearAppenders",
                                   "logger ConfigureLogging Applications/OrvexSnmp log.level=7 log.stdout=true",
                                   "log 6 just reconfigured!", "settings GetValue [Device/ReadOnly]ProductFamily",
                                   "settings GetValue [Device/ReadOnly]Manufacturer",
                                   // The lines after these are the first provider's constructor.
                                   "logger ClearAppenders", "logger ConfigureLogging log log.level=3 log.stdout=true",
                                   "log 8 OrvexSnmpTemp: Enter"));
}

TEST_F(DeviceTest, MakesTheThirteenProvidersInTheirOrderAndThenStartsTheBusServer) {
    Construct();
    Lines made;
    for (const auto& line : journal::All()) {
        const std::string prefix = "log 8 OrvexSnmp";
        const std::string end = ": Enter";
        if (line.compare(0, prefix.size(), prefix) == 0 && line.size() > end.size() &&
            line.compare(line.size() - end.size(), end.size(), end) == 0) {
            made.push_back(line.substr(prefix.size(), line.size() - prefix.size() - end.size()));
        }
        if (line == "bus StartServer") made.push_back(line);
    }
    EXPECT_THAT(made, ElementsAre("Temp", "Alarm", "Relay", "Power", "Voltage", "Presets", "Focus", "Iris", "Zoom",
                                  "Pan", "Tilt", "Wiper", "Pressure", "bus StartServer"));
    EXPECT_EQ(journal::All().back(), "bus StartServer");
    EXPECT_THAT(
        journal::All("bus CreateClient"),
        ElementsAre("bus CreateClient temperature", "bus CreateClient alarm", "bus CreateClient relay",
                    "bus CreateClient power", "bus CreateClient voltage", "bus CreateClient presets",
                    "bus CreateClient presets2", "bus CreateClient focus", "bus CreateClient focus2",
                    "bus CreateClient iris", "bus CreateClient iris", "bus CreateClient zoom", "bus CreateClient pan",
                    "bus CreateClient tilt", "bus CreateClient fan", "bus CreateClient alarm"));
}

TEST_F(DeviceTest, TheProvidersLoggingSetupWinsOverTheStores) {
    Camera().settings["[Applications/OrvexSnmp]log.level"] = "8";
    Construct();
    const auto setups = journal::All("logger ConfigureLogging");
    ASSERT_EQ(setups.size(), 14u);
    EXPECT_EQ(setups.front(), "logger ConfigureLogging Applications/OrvexSnmp log.level=8");
    for (std::size_t i = 1; i < setups.size(); ++i) {
        EXPECT_EQ(setups[i], "logger ConfigureLogging log log.level=3 log.stdout=true");
    }
}

TEST_F(DeviceTest, RefusesASecondInstanceAndKeepsTheFirst) {
    const auto& first = Construct();
    journal::Clear();
    std::string text;
    try {
        const OrvexSnmpDevice second;
    } catch (const tavos::osa::Exception& exception) {
        text = exception.what();
    }
    EXPECT_EQ(text, "Duplicate Instance");
    EXPECT_THAT(journal::All(),
                ElementsAre("bus Open", "settings Open 1", "log 3 OrvexSnmpDevice: Duplicate instance, exiting!",
                            "settings Close", "bus Close"));
    EXPECT_EQ(OrvexSnmpDevice::GetInstance(), &first);
}

TEST_F(DeviceTest, FieldsAreFixedAfterConstruction) {
    const auto& device = Construct();
    _folder.Identity("MODEL-2", "SERIAL-2", "9-9");
    _folder.Version("9-9\n");
    Camera().settings.clear();
    journal::Clear();
    EXPECT_EQ(device.GetModelNumber(), "MODEL-1");
    EXPECT_EQ(device.GetFwVer(), "02.01.00-20120531b");
    EXPECT_EQ(device.GetModelName(), "Family");
    EXPECT_THAT(journal::All(), IsEmpty());
}

TEST_F(DeviceTest, DestructionClosesTheSettingsAndThenTheBus) {
    Construct();
    DeleteProviders();
    journal::Clear();
    _device.reset();
    EXPECT_THAT(journal::All(), ElementsAre("settings Close", "bus Close"));
    static_assert(std::has_virtual_destructor_v<OrvexSnmpDevice>);
}

// --- the identity command ---

TEST_F(DeviceTest, AsksTheIdentityCommandForModelSerialNumberAndAssembly) {
    _folder.Identity("echo \"$# $1\" >> asked");
    Construct();
    EXPECT_EQ(_folder.Read("asked"), "1 -m\n1 -s\n1 -w\n");
}

TEST_F(DeviceTest, TrimsSpacesTabsAndNewlinesFromBothEnds) {
    _folder.Identity("printf ' \\t\\n a b\\tc \\r\\t\\n\\n'");
    const auto& device = Construct();
    EXPECT_EQ(device.GetModelNumber(), "a b\tc \r");
    EXPECT_EQ(device.GetSerialNumber(), "a b\tc \r");
    EXPECT_EQ(device.GetAssyId(), "a b\tc \r");
}

TEST_F(DeviceTest, KeepsSeveralLinesOfTheIdentityCommand) {
    _folder.Identity("echo first; echo; echo second");
    EXPECT_EQ(Construct().GetModelNumber(), "first\n\nsecond");
}

TEST_F(DeviceTest, JoinsAnOutputOfSeveralPieces) {
    for (const std::size_t length : {126, 127, 128, 129, 254, 255, 1000}) {
        const std::string text = std::string(length - 1, 'x') + "y";
        _folder.Identity(text, "", "");
        EXPECT_EQ(Construct().GetModelNumber(), text) << length;
        DeleteProviders();
        _device.reset();
        OrvexSnmpDevice::ForgetInstance();
    }
}

TEST_F(DeviceTest, PiecesAre127CharactersLong) {
    // A NUL hides the rest of its piece, but no other piece.
    _folder.Identity("printf '" + std::string(70, 'x') + "\\000" + std::string(56, 'y') + std::string(50, 'z') + "'");
    EXPECT_EQ(Construct().GetModelNumber(), std::string(70, 'x') + std::string(50, 'z'));
}

TEST_F(DeviceTest, KeepsBlanksWhereTwoPiecesMeet) {
    const std::string text = std::string(120, 'x') + std::string(20, ' ') + std::string(120, 'y');
    _folder.Identity(text, "", "");
    EXPECT_EQ(Construct().GetModelNumber(), text);
}

TEST_F(DeviceTest, TakesWhatAFailingIdentityCommandHasPrinted) {
    _folder.Identity("echo some; echo complaint >&2; exit 3");
    testing::internal::CaptureStderr();
    EXPECT_EQ(Construct().GetModelNumber(), "some");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "complaint\ncomplaint\ncomplaint\n");
}

TEST_F(DeviceTest, IdentityCommandThatPrintsNothingLeavesTheFieldsEmpty) {
    _folder.Identity("exit 0");
    const auto& device = Construct();
    EXPECT_EQ(device.GetModelNumber(), "");
    EXPECT_EQ(device.GetSerialNumber(), "");
    EXPECT_EQ(device.GetAssyId(), "");
    EXPECT_EQ(device.GetAssyVer(), "");
    EXPECT_EQ(device.GetHwVer(), "-");
    EXPECT_THAT(journal::Logged(3), IsEmpty());
}

TEST_F(DeviceTest, MissingIdentityCommandLeavesTheFieldsEmptyAndLogsNothing) {
    std::filesystem::remove("myname");
    _folder.HideOtherPrograms();
    testing::internal::CaptureStderr();
    const auto& device = Construct();
    testing::internal::GetCapturedStderr();
    EXPECT_EQ(device.GetModelNumber(), "");
    EXPECT_EQ(device.GetSerialNumber(), "");
    EXPECT_EQ(device.GetHwVer(), "-");
    EXPECT_THAT(journal::Logged(3), IsEmpty());
}

TEST_F(DeviceTest, FieldsHoldErrorWhenTheIdentityCommandCannotBeStarted) {
    _folder.RefuseCommands();
    const auto& device = Construct();
    EXPECT_EQ(device.GetModelNumber(), "ERROR");
    EXPECT_EQ(device.GetSerialNumber(), "ERROR");
    EXPECT_EQ(device.GetAssyId(), "ERROR");
    EXPECT_EQ(device.GetAssyVer(), "ERROR");
    EXPECT_EQ(device.GetHwVer(), "ERROR-ERROR");
    EXPECT_EQ(device.GetFwVer(), "02.01.00-20120531b");
    EXPECT_THAT(journal::Logged(3), IsEmpty());
}

TEST_F(DeviceTest, RunsTheIdentityCommandForReadingOnceForEachOption) {
    _folder.RefuseCommands();
    Construct();
    EXPECT_THAT(journal::All("popen"), ElementsAre("popen myname -m r", "popen myname -s r", "popen myname -w r"));
}

struct AssemblyCase {
    const char* name;
    const char* printed;
    const char* id;
    const char* version;
    const char* hardware;
    friend void PrintTo(const AssemblyCase& shown, std::ostream* out) { *out << shown.name; }
};

class AssemblyTest : public DeviceTest, public testing::WithParamInterface<AssemblyCase> {};

TEST_P(AssemblyTest, IsSplitAtItsFirstDash) {
    const auto& expected = GetParam();
    _folder.Identity("M", "S", expected.printed);
    const auto& device = Construct();
    EXPECT_EQ(device.GetAssyId(), expected.id);
    EXPECT_EQ(device.GetAssyVer(), expected.version);
    EXPECT_EQ(device.GetHwVer(), expected.hardware);
    EXPECT_THAT(journal::Logged(7),
                ElementsAre("LoadModelInfo: Read Model Number M", "LoadModelInfo: Read Serial Number S",
                            std::string("LoadModelInfo: Read Assembly ID ") + expected.id,
                            std::string("LoadModelInfo: Read Assembly Version ") + expected.version));
}

INSTANTIATE_TEST_SUITE_P(All, AssemblyTest,
                         testing::Values(AssemblyCase{"OneDash", "1234-05", "1234", "05", "1234-05"},
                                         AssemblyCase{"NoDash", "ABC", "ABC", "ABC", "ABC-ABC"},
                                         AssemblyCase{"TwoDashes", "A-B-C", "A", "B-C", "A-B-C"},
                                         AssemblyCase{"DashFirst", "-05", "", "05", "-05"},
                                         AssemblyCase{"DashLast", "12-", "12", "", "12-"},
                                         AssemblyCase{"DashAlone", "-", "", "", "-"},
                                         AssemblyCase{"Blanks", "1 - 2", "1 ", " 2", "1 - 2"},
                                         AssemblyCase{"Nothing", "", "", "", "-"}),
                         [](const auto& assembly) { return std::string(assembly.param.name); });

// --- the version file ---

struct VersionCase {
    const char* name;
    const char* file;
    const char* firmware;
    const char* module;
    friend void PrintTo(const VersionCase& shown, std::ostream* out) { *out << shown.name; }
};

class VersionTest : public DeviceTest, public testing::WithParamInterface<VersionCase> {};

TEST_P(VersionTest, FirstWordIsTheFirmwareAndItsPartsTheModulesVersion) {
    const auto& expected = GetParam();
    _folder.Version(expected.file);
    const auto& device = Construct();
    EXPECT_EQ(device.GetFwVer(), expected.firmware);
    EXPECT_EQ(device.GetModuleVersion(), expected.module);
    EXPECT_THAT(journal::Logged(6),
                Contains(std::string("LoadFwVersion: firmware version = ") + expected.firmware).Times(1));
    EXPECT_THAT(journal::Logged(3), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(
    All, VersionTest,
    testing::Values(VersionCase{"NoNewline", "02.01.00-20120531b", "02.01.00-20120531b", "20120531 - v02.01.00"},
                    VersionCase{"TwoWords", "1.2.3-456789012 rest\n", "1.2.3-456789012", "45678901 - v1.2.3"},
                    VersionCase{"TwoLines", "1.2.3-4567\nmore-lines\n", "1.2.3-4567", "4567 - v1.2.3"},
                    VersionCase{"LeadingBlanks", " \t\n 1-12345678\t9", "1-12345678", "12345678 - v1"},
                    VersionCase{"TwoDashes", "1-2-3\n", "1-2-3", "2-3 - v1"},
                    VersionCase{"NoDash", "1.2.3\n", "1.2.3", " - v"},
                    VersionCase{"DashFirst", "-12\n", "-12", "12 - v"}, VersionCase{"DashLast", "1-\n", "1-", " - v1"},
                    VersionCase{"DashAlone", "-", "-", " - v"}, VersionCase{"EmptyFile", "", "", " - v"},
                    VersionCase{"BlankFile", " \n", "", " - v"}),
    [](const auto& version) { return std::string(version.param.name); });

TEST_F(DeviceTest, MissingVersionFileIsAnErrorLineAndAnEmptyFirmwareVersion) {
    std::filesystem::remove(ORVEX_VERSION_FILE);
    const auto& device = Construct();
    EXPECT_EQ(device.GetFwVer(), "");
    EXPECT_EQ(device.GetModuleVersion(), " - v");
    EXPECT_THAT(journal::Logged(3), ElementsAre(journal::Join("LoadFwVersion: could not open", ORVEX_VERSION_FILE)));
    EXPECT_THAT(journal::Logged(6), Not(Contains(HasSubstr("firmware version"))));
}

// --- the settings store ---

TEST_F(DeviceTest, MissingDeviceKeysLeaveTheFieldsEmpty) {
    Camera().settings.clear();
    const auto& device = Construct();
    EXPECT_EQ(device.GetModelName(), "");
    EXPECT_EQ(device.GetManufacturer(), "");
}

TEST_F(DeviceTest, ConfiguresLoggingFromItsOwnSectionAlone) {
    Camera().settings["[Applications/Other]log.level"] = "1";
    Construct();
    EXPECT_EQ(journal::All("logger ConfigureLogging").front(), "logger ConfigureLogging Applications/OrvexSnmp");
}

TEST_F(DeviceTest, UnreadableStoreIsAnInvalidConfiguration) {
    Camera().failing = {"settings.GetSettings"};
    EXPECT_EQ(FailedConstruction(), "invalid configuration");
    EXPECT_THAT(journal::Logged(3), ElementsAre("Error reloading, invalid configuration"));
    EXPECT_THAT(journal::All("logger"), IsEmpty());
    EXPECT_THAT(journal::Logged(6), Not(Contains("just reconfigured!")));
    EXPECT_THAT(journal::All("settings"),
                ElementsAre("settings Open 1", "settings GetSettings Applications/OrvexSnmp", "settings Close"));
    EXPECT_THAT(journal::All("bus"), ElementsAre("bus Open", "bus Close"));
}

TEST_F(DeviceTest, AVersionFileThatIsNoFileIsNotWaitedFor) {
    std::filesystem::remove(ORVEX_VERSION_FILE);
    ASSERT_EQ(mkfifo(ORVEX_VERSION_FILE, 0600), 0);
    EXPECT_EQ(Construct().GetFwVer(), "");
    EXPECT_THAT(journal::Logged(3), ElementsAre("LoadFwVersion: could not open " ORVEX_VERSION_FILE));
}

TEST_F(DeviceTest, RefusedLoggingSetupIsAnInvalidConfiguration) {
    Camera().failing = {"logger.ConfigureLogging"};
    EXPECT_EQ(FailedConstruction(), "invalid configuration");
    EXPECT_THAT(journal::Logged(3), ElementsAre("Error reloading, invalid configuration"));
    EXPECT_THAT(journal::All("logger"),
                ElementsAre("logger ClearAppenders", "logger ConfigureLogging Applications/OrvexSnmp"));
    EXPECT_THAT(journal::Logged(6), Not(Contains("just reconfigured!")));
}

TEST_F(DeviceTest, EveryStandardExceptionIsAnInvalidConfiguration) {
    Camera().throwsRuntimeError = true;
    for (const char* operation : {"settings.GetSettings", "logger.ConfigureLogging"}) {
        Camera().failing = {operation};
        journal::Clear();
        EXPECT_EQ(FailedConstruction(), "invalid configuration");
        EXPECT_THAT(journal::Logged(3), ElementsAre("Error reloading, invalid configuration"));
        OrvexSnmpDevice::ForgetInstance();
    }
}

TEST_F(DeviceTest, OtherExceptionsOfTheConfigurationPassUnchanged) {
    Camera().throwsInt = true;
    for (const char* operation : {"settings.GetSettings", "logger.ConfigureLogging"}) {
        Camera().failing = {operation};
        journal::Clear();
        EXPECT_EQ(FailedConstruction(), "an int");
        EXPECT_THAT(journal::Logged(3), IsEmpty());
        OrvexSnmpDevice::ForgetInstance();
    }
}

TEST_F(DeviceTest, UnreadableDeviceKeyEndsTheConstruction) {
    Camera().failing = {"settings.GetValue"};
    EXPECT_EQ(FailedConstruction(), "settings.GetValue fails");
    EXPECT_THAT(journal::All("bus"), ElementsAre("bus Open", "bus Close"));
}

// --- failing providers and bus ---

class FailingClientTest : public DeviceTest, public testing::WithParamInterface<const char*> {};

TEST_P(FailingClientTest, EndsTheConstructionBeforeTheBusServerStarts) {
    const std::string operation = std::string(GetParam()) + ".CreateClient";
    Camera().failing = {operation};
    EXPECT_EQ(FailedConstruction(), operation + " fails");
    EXPECT_THAT(journal::All("bus StartServer"), IsEmpty());
    EXPECT_EQ(journal::All("bus CreateClient").back(), std::string("bus CreateClient ") + GetParam());
    EXPECT_THAT(journal::All(), Contains("bus Close"));
}

INSTANTIATE_TEST_SUITE_P(All, FailingClientTest,
                         testing::Values("temperature", "alarm", "relay", "power", "voltage", "presets", "presets2",
                                         "focus", "focus2", "iris", "zoom", "pan", "tilt", "fan"),
                         [](const auto& service) { return std::string(service.param); });

TEST_F(DeviceTest, AFailureOfTheBusServersStartPassesUnchanged) {
    Camera().failing = {"bus.StartServer"};
    EXPECT_EQ(FailedConstruction(), "bus.StartServer fails");
}

// --- the device's accessors ---

TEST_F(DeviceTest, EveryClientIsMadeWithTheOneBusThatTheDeviceHasOpened) {
    Construct();
    ASSERT_EQ(Camera().openedBuses.size(), 1u);
    EXPECT_EQ(Camera().clientBuses.size(), 16u);
    for (const auto& [service, bus] : Camera().clientBuses) EXPECT_EQ(bus, Camera().openedBuses[0]) << service;
}

// --- an identity command that cannot be read ---

TEST_F(DeviceTest, FieldsHoldErrorWhateverThrowsWhileTheIdentityCommandIsRead) {
    // Piece 2 is read after piece 1 was stored; piece 3 is the end.
    _folder.Identity("printf '%0200d' 7");
    for (const bool throwsInt : {false, true}) {
        for (const int piece : {0, 1, 2, 3}) {
            SCOPED_TRACE(journal::Join(throwsInt, piece));
            _folder.ThrowInCommands(piece, throwsInt);
            journal::Clear();
            const auto& device = Construct();
            EXPECT_EQ(device.GetModelNumber(), "ERROR");
            EXPECT_EQ(device.GetSerialNumber(), "ERROR");
            EXPECT_EQ(device.GetAssyId(), "ERROR");
            EXPECT_EQ(device.GetAssyVer(), "ERROR");
            EXPECT_EQ(device.GetHwVer(), "ERROR-ERROR");
            EXPECT_THAT(journal::Logged(3), IsEmpty());
            // The started commands are still waited for.
            EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1);
            DeleteProviders();
            _device.reset();
            OrvexSnmpDevice::ForgetInstance();
        }
    }
}

// --- each step of the logging configuration ---

class FailingConfigurationTest : public DeviceTest, public testing::WithParamInterface<int> {
protected:
    /// The steps in order, as the journal names them and as they fail.
    struct Step {
        std::string line;
        std::string failing;
    };
    const Step _steps[4] = {
        {"settings GetSettings Applications/OrvexSnmp", "settings.GetSettings"},
        {"logger ClearAppenders", "logger.ClearAppenders"},
        {"logger ConfigureLogging Applications/OrvexSnmp", "logger.ConfigureLogging"},
        {"log 6 just reconfigured!", "log 6 just reconfigured!"},
    };

    /// The steps up to the one that fails, and none after it.
    Lines UpToTheFailure() const {
        Lines lines;
        for (int step = 0; step <= GetParam(); ++step) lines.push_back(_steps[step].line);
        return lines;
    }
    static Lines FromTheStoreOn() {
        const auto all = journal::All();
        return {std::find(all.begin(), all.end(), "settings GetSettings Applications/OrvexSnmp"), all.end()};
    }
    const std::string& Failing() const { return _steps[GetParam()].failing; }
};

TEST_P(FailingConfigurationTest, AStandardExceptionIsAnInvalidConfiguration) {
    for (const bool runtimeError : {false, true}) {
        Camera().throwsRuntimeError = runtimeError;
        Camera().failing = {Failing()};
        journal::Clear();
        EXPECT_EQ(FailedConstruction(), "invalid configuration");
        auto expected = UpToTheFailure();
        expected.insert(expected.end(),
                        {"log 3 Error reloading, invalid configuration", "settings Close", "bus Close"});
        EXPECT_EQ(FromTheStoreOn(), expected);
        OrvexSnmpDevice::ForgetInstance();
    }
}

TEST_P(FailingConfigurationTest, AnotherExceptionPassesUnchangedAndWithoutALine) {
    Camera().throwsInt = true;
    Camera().failing = {Failing()};
    EXPECT_EQ(FailedConstruction(), "an int");
    auto expected = UpToTheFailure();
    expected.insert(expected.end(), {"settings Close", "bus Close"});
    EXPECT_EQ(FromTheStoreOn(), expected);
}

INSTANTIATE_TEST_SUITE_P(EveryStep, FailingConfigurationTest, testing::Range(0, 4));

// --- the instance ---

TEST_F(DeviceTest, CanBeFoundFromItsFirstLineOn) {
    bool first = true;
    int lines = 0;
    journal::Watch([&](const std::string& line) {
        if (first && line != "log 8 OrvexSnmpDevice: Enter.") return;
        first = false;
        ++lines;
        EXPECT_NE(OrvexSnmpDevice::GetInstance(), nullptr) << line;
    });
    const auto& device = Construct();
    journal::Watch(nullptr);
    EXPECT_EQ(OrvexSnmpDevice::GetInstance(), &device);
    EXPECT_GT(lines, 60);
}

}  // namespace
