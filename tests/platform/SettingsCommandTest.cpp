#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <cstdlib>
#include <sstream>

#include "TemporaryFolder.h"

using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

struct Outcome {
    int status;
    std::string output;
    std::string errors;
};

class SettingsCommandTest : public testing::Test {
protected:
    SettingsCommandTest() { setenv("TAVOS_SETTINGS_STORE", "/nonexistent/never", 1); }

    /// `words` as a shell reads them, after the store's name.
    Outcome Run(const std::string& words) { return RunWith("--store '" + store + "' " + words); }

    Outcome RunWith(const std::string& words) {
        const std::string line = std::string("timeout 20 ") + TAVOS_SETTINGS_COMMAND + " " + words + " >'" +
                                 folder.File("out") + "' 2>'" + folder.File("err") + "'";
        const int status = std::system(line.c_str());
        return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, FileText(folder.File("out")),
                FileText(folder.File("err"))};
    }

    void ExpectFailure(const std::string& words, const std::string& reason) {
        const Outcome outcome = Run(words);
        EXPECT_EQ(outcome.status, 1) << words;
        EXPECT_EQ(outcome.output, "") << words;
        EXPECT_THAT(outcome.errors, AllOf(StartsWith("tavos-settings: "), HasSubstr(reason)));
        EXPECT_EQ(outcome.errors.find('\n'), outcome.errors.size() - 1) << outcome.errors;
    }

    void Import(const std::string& text) {
        WriteFile(folder.File("in"), text);
        const Outcome outcome = Run("import '" + folder.File("in") + "'");
        ASSERT_EQ(outcome.status, 0) << outcome.errors;
    }

    TemporaryFolder folder;
    const std::string store = folder.File("settings.db");
};

TEST_F(SettingsCommandTest, ImportGetSetListExport) {
    Import("[Device/ReadOnly]\nModel = D1\nEmpty =\n[App]\nk = a\\nb\n");
    EXPECT_EQ(Run("get '[Device/ReadOnly]Model'").output, "D1\n");
    EXPECT_EQ(Run("get '[App]k'").output, "a\nb\n");
    const Outcome empty = Run("get '[Device/ReadOnly]Empty'");
    EXPECT_EQ(empty.status, 0);
    EXPECT_EQ(empty.output, "\n");
    EXPECT_EQ(Run("set '[Device/ReadOnly]Model' 'D 2'").status, 0);
    EXPECT_EQ(Run("list").output, "[App]k = a\\nb\n[Device/ReadOnly]Empty = \n[Device/ReadOnly]Model = D 2\n");
    EXPECT_EQ(Run("list Device").output, "[Device/ReadOnly]Empty = \n[Device/ReadOnly]Model = D 2\n");
    const std::string all = "[App]\nk = a\\nb\n[Device/ReadOnly]\nEmpty = \nModel = D 2\n";
    EXPECT_EQ(Run("export").output, all);
    EXPECT_EQ(Run("export -").output, all);
    EXPECT_EQ(Run("export '" + folder.File("copy") + "'").status, 0);
    EXPECT_EQ(FileText(folder.File("copy")), all);

    const std::string second = folder.File("second.db");
    EXPECT_EQ(RunWith("--store '" + second + "' import - <'" + folder.File("copy") + "'").status, 0);
    EXPECT_EQ(RunWith("--store '" + second + "' export").output, all);
}

TEST_F(SettingsCommandTest, TheEnvironmentNamesTheStore) {
    Import("[a]\nb = 1\n");
    setenv("TAVOS_SETTINGS_STORE", store.c_str(), 1);
    EXPECT_EQ(RunWith("get '[a]b'").output, "1\n");
}

TEST_F(SettingsCommandTest, ImportIsAllOrNothing) {
    Import("[a]\nb = 1\n");
    WriteFile(folder.File("in"), "[a]\nb = 2\nc = 3\nthis is no setting\n");
    ExpectFailure("import '" + folder.File("in") + "'", "line 4");
    EXPECT_EQ(Run("export").output, "[a]\nb = 1\n");
}

TEST_F(SettingsCommandTest, FailuresAreOneLine) {
    ExpectFailure("get '[a]b'", store + ": unable to open");
    ExpectFailure("set '[a]b' 1", store + ": unable to open");
    ExpectFailure("list", store + ": unable to open");
    ExpectFailure("export", store + ": unable to open");
    ExpectFailure("import /nonexistent/file", "/nonexistent/file: cannot be opened");
    EXPECT_FALSE(std::filesystem::exists(store));
    Import("[a]\nb = 1\n");
    ExpectFailure("get '[a]c'", "[a]c: no such value");
    ExpectFailure("get '[x]b'", "[x]b: no such value");
    ExpectFailure("get b", "\"b\" is not a key of the form [Section]Key");
    ExpectFailure("set '[a]' 1", "\"[a]\" is not a key of the form [Section]Key");
    ExpectFailure("import '" + folder.File("") + "'", "cannot be read");
    ExpectFailure("export /nonexistent/file", "/nonexistent/file: cannot be written");
}

TEST_F(SettingsCommandTest, AnUnknownKeyIsRefusedUnlessForced) {
    Import("[a]\nb = 1\n");
    const Outcome outcome = Run("set '[Imaging/focus]Mod' Manual");
    EXPECT_EQ(outcome.status, 2);
    EXPECT_EQ(outcome.output, "");
    EXPECT_THAT(outcome.errors, StartsWith("tavos-settings: unknown key '[Imaging/focus]Mod', nearest are "
                                           "[Imaging/Focus]Mode, "));
    EXPECT_THAT(outcome.errors, EndsWith(" (set --force stores it)\n"));
    EXPECT_EQ(outcome.errors.find('\n'), outcome.errors.size() - 1) << outcome.errors;
    EXPECT_EQ(Run("export").output, "[a]\nb = 1\n");

    EXPECT_EQ(Run("set --force '[x]y' 1").status, 0);
    EXPECT_EQ(Run("set '[x]z' --force --force").status, 0);
    EXPECT_EQ(Run("set '[x]y' 2").status, 0) << "the store has it now";
    EXPECT_EQ(Run("export").output, "[a]\nb = 1\n[x]\ny = 2\nz = --force\n");
}

TEST_F(SettingsCommandTest, AKnownKeyNeedsNoForce) {
    Import("[a]\nb = 1\n");
    const Outcome keys = Run("keys");
    EXPECT_EQ(keys.status, 0);
    std::istringstream lines(keys.output);
    int count = 0;
    for (std::string line; std::getline(lines, line); ++count) {
        const std::string key = line.substr(0, line.find(' '));
        EXPECT_EQ(Run("set '" + key + "' 1").status, 0) << key;
    }
    EXPECT_GT(count, 10);
}

TEST_F(SettingsCommandTest, DeleteRemovesAValueAndSaysWhenThereIsNone) {
    Import("[a]\nb = 1\nc =\n");
    EXPECT_EQ(Run("delete '[a]b'").status, 0);
    EXPECT_EQ(Run("export").output, "[a]\nc = \n");
    ExpectFailure("delete '[a]b'", "[a]b: no such value");
    EXPECT_EQ(Run("delete '[a]c'").status, 0) << "an empty value is one";
    ExpectFailure("delete b", "\"b\" is not a key of the form [Section]Key");
    std::filesystem::remove(store);
    ExpectFailure("delete '[a]c'", store + ": unable to open");
}

TEST_F(SettingsCommandTest, AFifoInsteadOfTheStoreIsRefused) {
    Import("[a]\nb = 1\n");
    std::filesystem::remove(store);
    ASSERT_EQ(mkfifo(store.c_str(), 0600), 0);
    for (const char* words : {"get '[a]b'", "set '[a]b' 2", "delete '[a]b'", "list", "export", "import -"}) {
        ExpectFailure(words, "settings store " + store + ": it is no regular file");
    }
}

TEST_F(SettingsCommandTest, WrongUsage) {
    for (const char* words :
         {"", "get", "get a b", "set a", "set a b c d", "delete", "delete a b", "keys a", "list a b", "import",
          "import a b", "export a b", "other", "--store", "--store x", "--stores=x list"}) {
        const Outcome outcome = RunWith(words);
        EXPECT_EQ(outcome.status, 2) << words;
        EXPECT_EQ(outcome.output, "") << words;
        EXPECT_THAT(outcome.errors, StartsWith("tavos-settings: ")) << words;
        EXPECT_THAT(outcome.errors, EndsWith("(tavos-settings --help shows the usage)\n")) << words;
        EXPECT_EQ(outcome.errors.find('\n'), outcome.errors.size() - 1) << outcome.errors;
    }
    for (const char* words : {"set a b c", "set --force a"}) {
        const Outcome outcome = RunWith(words);
        EXPECT_EQ(outcome.status, 2) << words;
        EXPECT_THAT(outcome.errors, StartsWith("tavos-settings: set")) << words;
    }
    EXPECT_THAT(RunWith("other").errors,
                HasSubstr("unknown word 'other', expected get, set, delete, keys, list, import, export,"));
}

TEST_F(SettingsCommandTest, AnyValueIsTakenAsItIs) {
    Import("[a]\nb = 1\n");
    for (const char* value : {"-5", "-x", "--store", "--help", "--", "[x]", "{}", "%%", ""}) {
        EXPECT_EQ(Run(std::string("set '[a]b' '") + value + "'").status, 0) << value;
        EXPECT_EQ(RunWith("--store='" + store + "' get '[a]b'").output, std::string(value) + "\n");
    }
}

}  // namespace
