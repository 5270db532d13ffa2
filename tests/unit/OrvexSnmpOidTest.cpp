#include <malloc.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "core/OrvexSnmpOid.h"
#include "support/ModuleTest.h"
#include "support/Opened.h"

// The module creates no instance, and no accessor shows the members.
struct OidArray {
    using Type = oid* OrvexSnmpOid::*;
    friend Type MemberOf(OidArray);
};
struct OidLength {
    using Type = std::int32_t OrvexSnmpOid::*;
    friend Type MemberOf(OidLength);
};
template struct Opened<OidArray, &OrvexSnmpOid::_name>;
template struct Opened<OidLength, &OrvexSnmpOid::_length>;

namespace {

struct Free {
    void operator()(char* text) const { std::free(text); }
};
using Text = std::unique_ptr<char, Free>;

Text Rendered(const std::vector<oid>& name) {
    char* text = nullptr;
    EXPECT_EQ(OrvexSnmpOid::OidString(name.data(), static_cast<std::int32_t>(name.size()), &text), text);
    return Text(text);
}

TEST(OidStringTest, StartsEachSubIdentifierWithADot) {
    EXPECT_STREQ(Rendered({1, 3, 6}).get(), ".1.3.6");
    EXPECT_STREQ(Rendered({0}).get(), ".0");
    EXPECT_STREQ(Rendered({1, 3, 6, 1, 4, 1, 1206, 4, 2, 7, 4, 1, 0}).get(), ".1.3.6.1.4.1.1206.4.2.7.4.1.0");
}

TEST(OidStringTest, RendersNothingAsAnEmptyTextOfItsOwn) {
    const auto text = Rendered({});
    ASSERT_NE(text, nullptr);
    EXPECT_STREQ(text.get(), "");

    char* none = nullptr;
    const Text owned(OrvexSnmpOid::OidString(nullptr, 0, &none));
    ASSERT_NE(owned, nullptr);
    EXPECT_STREQ(owned.get(), "");
}

TEST(OidStringTest, RendersANegativeLengthAsAnEmptyText) {
    const oid name[] = {1, 3, 6};
    char* text = nullptr;
    const Text owned(OrvexSnmpOid::OidString(name, -1, &text));
    ASSERT_NE(owned, nullptr);
    EXPECT_STREQ(owned.get(), "");
}

TEST(OidStringTest, PrintsSubIdentifiersAsSigned32BitNumbers) {
    EXPECT_STREQ(Rendered({1, 0xFFFFFFFF, 2}).get(), ".1.-1.2");
    EXPECT_STREQ(Rendered({0x7FFFFFFF}).get(), ".2147483647");
    EXPECT_STREQ(Rendered({1, 0x80000000}).get(), ".1.-2147483648");
}

TEST(OidStringTest, UsesTheCallersBufferWhereThereIsOne) {
    const oid name[] = {1, 3, 6};
    char buffer[64];
    std::memset(buffer, 'x', sizeof buffer);
    char* text = buffer;
    EXPECT_EQ(OrvexSnmpOid::OidString(name, 3, &text), buffer);
    EXPECT_EQ(text, buffer);
    EXPECT_STREQ(buffer, ".1.3.6");

    EXPECT_EQ(OrvexSnmpOid::OidString(name, 0, &text), buffer);
    EXPECT_STREQ(buffer, "");
}

TEST(OidStringTest, AllocatesElevenCharactersForASubIdentifierAndOneForTheEnd) {
    for (const std::size_t length : {0, 1, 13, 23}) {
        const auto text = Rendered(std::vector<oid>(length, 1));
        EXPECT_GE(malloc_usable_size(text.get()), length * 11 + 1);
        EXPECT_LT(malloc_usable_size(text.get()), length * 11 + 1 + 32);
    }
}

TEST(OidStringTest, RendersATextOf253CharactersWhole) {
    std::string expected;
    for (int i = 0; i < 23; ++i) expected += ".2147483647";
    EXPECT_STREQ(Rendered(std::vector<oid>(23, 2147483647)).get(), expected.c_str());
}

TEST(OidStringTest, CutsLongerTextsAt255Characters) {
    std::string whole;
    for (int i = 0; i < 30; ++i) whole += ".2147483647";
    EXPECT_EQ(std::string(Rendered(std::vector<oid>(30, 2147483647)).get()), whole.substr(0, 255));
}

TEST(OidStringTest, NeverWritesBeyondItsOwnAllocation) {
    // Twelve characters where eleven were allocated.
    const auto text = Rendered({0x80000000});
    EXPECT_EQ(std::string(text.get()).substr(0, 11), ".-214748364");
}

TEST(OrvexSnmpOidTest, AnEmptyInstanceHasNoArray) {
    OrvexSnmpOid empty;
    EXPECT_EQ(empty.*MemberOf(OidArray()), nullptr);
    EXPECT_EQ(empty.*MemberOf(OidLength()), 0);
}

TEST(OrvexSnmpOidTest, AnInstanceHasRoomForItsCountOfSubIdentifiersAndCopiesAsManyBytes) {
    // Exactly 16 bytes: AddressSanitizer reports a read beyond them.
    const std::unique_ptr<oid[]> source(new oid[16 / sizeof(oid)]);
    std::memset(source.get(), 0xA5, 16);
    OrvexSnmpOid copy(source.get(), 16);
    const oid* const array = copy.*MemberOf(OidArray());
    ASSERT_NE(array, nullptr);
    EXPECT_NE(array, source.get());
    EXPECT_EQ(copy.*MemberOf(OidLength()), 16);
    EXPECT_EQ(std::memcmp(array, source.get(), 16), 0);
    EXPECT_GE(malloc_usable_size(copy.*MemberOf(OidArray())), 16 * sizeof(oid));
}

// --- the arrays outside the registration table ---

template <std::size_t Length>
std::string Dotted(const oid (&name)[Length]) {
    return OidText(name, Length);
}

const std::string kEnterprise = ".1.3.6.1.4.1." + std::to_string(ORVEX_ENTERPRISE_NUMBER);

TEST(OrvexSnmpOidTest, NamesTheObjectsOutsideTheRegistrationTable) {
    EXPECT_EQ(Dotted(OrvexSnmpOid::oid_rebootDevice), kEnterprise + ".1.1.100.0");
    EXPECT_EQ(Dotted(OrvexSnmpOid::oid_alarm), kEnterprise + ".1.3.1");
    EXPECT_EQ(Dotted(OrvexSnmpOid::oid_relay), kEnterprise + ".1.3.2");
    EXPECT_EQ(Dotted(OrvexSnmpOid::oid_globalSetIDParameter), ".1.3.6.1.4.1.1206.4.2.6.1.1.0");
    EXPECT_EQ(Dotted(OrvexSnmpOid::oid_snmpTrap), ".1.3.6.1.6.3.1.1.4.1.0");
}

TEST(OrvexSnmpOidTest, ThePrivateArrayLengthsFollowFromASevenSubIdentifierEnterpriseArc) {
    EXPECT_EQ(OID_LENGTH(OrvexSnmpOid::oid_rebootDevice), 11u);
    EXPECT_EQ(OID_LENGTH(OrvexSnmpOid::oid_alarm), 10u);
    EXPECT_EQ(OID_LENGTH(OrvexSnmpOid::oid_relay), 10u);
    EXPECT_EQ(OID_LENGTH(OrvexSnmpOid::oid_snmpTrap), 11u);
}

TEST(OidStringTest, WritesTheWholeTextIntoTheCallersBuffer) {
    // Twelve characters per sub-identifier, one more than the function would allocate.
    const std::vector<oid> name(21, 0x80000000);
    std::string whole;
    for (std::size_t i = 0; i < name.size(); ++i) whole += ".-2147483648";
    ASSERT_EQ(whole.size(), 252u);
    char buffer[256];
    char* text = buffer;
    EXPECT_EQ(OrvexSnmpOid::OidString(name.data(), 1, &text), buffer);
    EXPECT_STREQ(buffer, ".-2147483648");
    EXPECT_EQ(OrvexSnmpOid::OidString(name.data(), 21, &text), buffer);
    EXPECT_EQ(buffer, whole);
}

TEST(OidStringTest, CutsTheTextInTheCallersBufferAt255CharactersAndWritesNothingBehindThem) {
    const std::vector<oid> name(30, 0x80000000);
    std::string whole;
    for (std::size_t i = 0; i < name.size(); ++i) whole += ".-2147483648";
    std::vector<char> buffer(400, 'x');
    char* text = buffer.data();
    OrvexSnmpOid::OidString(name.data(), 30, &text);
    EXPECT_EQ(std::string(buffer.data()), whole.substr(0, 255));
    EXPECT_EQ(std::string(buffer.begin() + 256, buffer.end()), std::string(144, 'x'));
}

TEST(OidStringTest, WritesNoMoreIntoTheCallersBufferThanTheTextAndItsEnd) {
    const oid name[] = {1, 3, 6};
    std::vector<char> buffer(32, 'x');
    char* text = buffer.data();
    OrvexSnmpOid::OidString(name, 3, &text);
    EXPECT_EQ(std::string(buffer.begin(), buffer.end()), std::string(".1.3.6") + '\0' + std::string(25, 'x'));
}

}  // namespace
