#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>

#include "Failure.h"
#include "tavos/core/IniFile.h"
#include "tavos/osa/Exception.h"

using tavos::core::IniFile;
using testing::HasSubstr;

namespace {

IniFile Parsed(const std::string& text) {
    IniFile ini;
    std::istringstream stream(text);
    ini.Read(stream);
    return ini;
}

std::string Written(const IniFile& ini) {
    std::ostringstream stream;
    ini.Write(stream);
    return stream.str();
}

std::string Refusal(const std::string& text) {
    return Failure([&] { Parsed(text); });
}

TEST(IniFileTest, MissingIsEmpty) {
    IniFile ini;
    ini.SetValue("Device/ReadOnly", "Model", "D1");
    ini.SetValue("Device/ReadOnly", "Empty", "");
    EXPECT_EQ(ini.GetValue("Device/ReadOnly", "Model"), "D1");
    EXPECT_EQ(ini.GetValue("Device/ReadOnly", "Other"), "");
    EXPECT_EQ(ini.GetValue("Device", "Model"), "");
    EXPECT_TRUE(ini.HasValue("Device/ReadOnly", "Empty"));
    EXPECT_FALSE(ini.HasValue("Device/ReadOnly", "Other"));
    EXPECT_FALSE(ini.HasValue("Other", "Model"));
}

TEST(IniFileTest, ReadsWhatPeopleWrite) {
    const IniFile ini = Parsed(
        "# a comment\r\n"
        "; another\n"
        "\n"
        "  [Applications/OrvexSnmp]  \n"
        "log.level=7\r\n"
        "\tmodel name \t = \t Orvex = 5 # no comment  \n"
        "none =\n"
        "[Other]\n"
        "escapes = \\ a\\tb\\n\\r\\\\\\ \n"
        "[Applications/OrvexSnmp]\n"
        "log.level = 8");
    EXPECT_EQ(ini.GetValue("Applications/OrvexSnmp", "log.level"), "8");
    EXPECT_EQ(ini.GetValue("Applications/OrvexSnmp", "model name"), "Orvex = 5 # no comment");
    EXPECT_TRUE(ini.HasValue("Applications/OrvexSnmp", "none"));
    EXPECT_EQ(ini.GetValue("Other", "escapes"), " a\tb\n\r\\ ");
    EXPECT_EQ(ini.Sections().size(), 2U);
}

TEST(IniFileTest, EveryValueSurvivesARoundTrip) {
    IniFile ini;
    std::string all;
    for (int octet = 0; octet < 256; ++octet) all += static_cast<char>(octet);
    int number = 0;
    for (const std::string& value :
         {all, std::string(), std::string(" "), std::string("  "), std::string("\\"), std::string("\\ "),
          std::string(" \\"), std::string("a \\\\ "), std::string("\t"), std::string("\n"), std::string("\r\n"),
          std::string("= x"), std::string("[x]"), std::string("# x"), std::string(" \t inner  blanks \t "),
          std::string("\\n"), std::string("end\\\\")}) {
        ini.SetValue("A/B c", "key" + std::to_string(number++), value);
    }
    ini.SetValue("T\xC3\xBCr", "k e y", "1");
    const IniFile again = Parsed(Written(ini));
    EXPECT_EQ(again.Sections(), ini.Sections());
    EXPECT_EQ(Written(again), Written(ini));
}

TEST(IniFileTest, RefusesWithTheLinesNumberAndChangesNothing) {
    EXPECT_THAT(Refusal("[a]\nb = 1\nno equals sign\n"), HasSubstr("line 3"));
    EXPECT_THAT(Refusal("b = 1\n"), HasSubstr("line 1"));
    EXPECT_THAT(Refusal("[a\nb = 1\n"), HasSubstr("line 1"));
    EXPECT_THAT(Refusal("[a] x\n"), HasSubstr("line 1"));
    EXPECT_THAT(Refusal("[]\n"), HasSubstr("line 1"));
    EXPECT_THAT(Refusal("[\n"), HasSubstr("line 1"));
    EXPECT_THAT(Refusal("[ a]\n"), HasSubstr("line 1"));
    EXPECT_THAT(Refusal("[a]b]\n"), HasSubstr("line 1"));
    EXPECT_THAT(Refusal("[a]\n\n = 1\n"), HasSubstr("line 3"));
    EXPECT_THAT(Refusal("[a]\nb = \\x\n"), HasSubstr("line 2"));
    EXPECT_THAT(Refusal("[a]\nb = x\\"), HasSubstr("line 2"));

    IniFile ini = Parsed("[a]\nb = 1\n");
    std::istringstream bad("[a]\nb = 2\n[c]\nd = 3\nbad\n");
    EXPECT_THROW(ini.Read(bad), tavos::osa::Exception);
    EXPECT_EQ(Written(ini), "[a]\nb = 1\n");
}

TEST(IniFileTest, NamesThatCannotBeWrittenAreRefused) {
    for (const char* name : {"", " a", "a ", "a\nb", "a]", "[a", "a\x7F"}) {
        IniFile ini;
        ini.SetValue("good", "good", "1");
        ini.SetValue(name, "key", "1");
        std::ostringstream text;
        EXPECT_THROW(ini.Write(text), tavos::osa::Exception) << name;
        EXPECT_EQ(text.str(), "") << name;
    }
    for (const char* name : {"", " a", "a ", "a\tb", "a=b", "[a", "#a", ";a"}) {
        IniFile ini;
        ini.SetValue("section", name, "1");
        EXPECT_THROW(Written(ini), tavos::osa::Exception) << name;
    }
}

}  // namespace
