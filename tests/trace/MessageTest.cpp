#include <gtest/gtest.h>

#include "Records.h"
#include "trace/reader/Message.h"

namespace {

using trace::DecodeMessage;

const std::string kGoTo180 = Octets("02 40 46 50");

TEST(MessageTest, TakesAVersion2cMessageApart) {
    const auto message = DecodeMessage(Message2c("private", 0xa3, PositionBinding(1, kGoTo180)));
    EXPECT_EQ("", message.wrong);
    EXPECT_EQ(1, message.version);
    EXPECT_EQ("private", message.community);
    ASSERT_TRUE(message.pdu);
    EXPECT_EQ(trace::kSet, message.pdu->type);
    EXPECT_EQ(5, message.pdu->requestId);
    ASSERT_EQ(1u, message.pdu->bindings.size());
    EXPECT_EQ("1.3.6.1.4.1.1206.4.2.7.4.1.0", trace::Dotted(message.pdu->bindings[0].name));
    EXPECT_EQ(kGoTo180, message.pdu->bindings[0].value.octets);
}

std::string Version3(const std::string& flags, const std::string& engine, const std::string& user,
                     const std::string& data) {
    const std::string security = Element(0x30, Element(0x04, engine) + Integer(3) + Integer(200) + Element(0x04, user) +
                                                   Element(0x04, "") + Element(0x04, ""));
    const std::string global = Element(0x30, Integer(1) + Integer(1500) + Element(0x04, flags) + Integer(3));
    return Element(0x30, Integer(3) + global + Element(0x04, security) + data);
}

TEST(MessageTest, TakesAVersion3MessageApart) {
    const std::string pdu = Element(0xa0, Integer(77) + Integer(0) + Integer(0) + Element(0x30, ""));
    const std::string scoped = Element(0x30, Element(0x04, "") + Element(0x04, "context") + pdu);
    const auto message = DecodeMessage(Version3("\x04", "", "", scoped));
    EXPECT_EQ("", message.wrong);
    ASSERT_TRUE(message.security && message.pdu);
    EXPECT_EQ("", message.security->engine);
    EXPECT_EQ("context", message.security->context);
    EXPECT_TRUE(message.security->isReportable);
    EXPECT_FALSE(message.security->isAuthenticated || message.security->isEncrypted);
    EXPECT_EQ(77, message.pdu->requestId);
}

TEST(MessageTest, AnEncryptedMessageHasItsUserAndNoPdu) {
    const auto message = DecodeMessage(Version3("\x07", "engine", "desk", Element(0x04, "what nobody can read")));
    EXPECT_EQ("", message.wrong);
    ASSERT_TRUE(message.security);
    EXPECT_EQ("desk", message.security->user);
    EXPECT_EQ(3, message.security->boots);
    EXPECT_EQ(200, message.security->time);
    EXPECT_TRUE(message.security->isAuthenticated && message.security->isEncrypted);
    EXPECT_FALSE(message.pdu);
}

TEST(MessageTest, EveryPrefixIsBrokenAndSaysWhy) {
    const std::string whole = Message2c("public", 0xa0, PositionBinding(1, kGoTo180));
    for (std::size_t length = 0; length < whole.size(); ++length) {
        EXPECT_NE("", DecodeMessage(whole.substr(0, length)).wrong) << length;
    }
}

TEST(MessageTest, SaysWhatIsWrong) {
    const auto wrong = [](const std::string& octets) { return DecodeMessage(octets).wrong; };
    EXPECT_EQ("it is empty", wrong(""));
    EXPECT_EQ("the message has the tag 31, not 30", wrong(Octets("31 00")));
    EXPECT_EQ("the message has a length of 5 octets, but 1 are left", wrong(Octets("30 05 02")));
    EXPECT_EQ("the length of the message has 5 octets (1 to 4 are allowed)", wrong(Octets("30 85 00 00 00 00 00")));
    EXPECT_EQ("the version is a number of 0 octets", wrong(Octets("30 02 02 00")));
    EXPECT_EQ("its version is 7, not 0 (SNMPv1), 1 (SNMPv2c) or 3", wrong(Octets("30 03 02 01 07")));
    EXPECT_EQ("its PDU has the unknown tag b0", wrong(Octets("30 07 02 01 01 04 00 b0 00")));
    EXPECT_EQ("a binding has more than a name and a value",
              wrong(Message2c("c", 0xa0, Element(0x30, Octets("06 01 2b 05 00 05 00")))));
    EXPECT_EQ("a binding's name ends within a number",
              wrong(Message2c("c", 0xa0, Element(0x30, Octets("06 01 ab 05 00")))));
}

TEST(BerTest, NumbersKeepTheirSignsAndWidths) {
    EXPECT_EQ(-1, trace::SignedOf(Octets("ff"), "a value"));
    EXPECT_EQ(-128, trace::SignedOf(Octets("80"), "a value"));
    EXPECT_EQ(255, trace::SignedOf(Octets("00 ff"), "a value"));
    EXPECT_EQ(4294967291u, trace::UnsignedOf(Octets("00 ff ff ff fb"), "a value"));
    EXPECT_EQ(18446744073709551615u, trace::UnsignedOf(Octets("00 ff ff ff ff ff ff ff ff"), "a value"));
    EXPECT_ANY_THROW(trace::UnsignedOf(Octets("01 00 00 00 00 00 00 00 00"), "a value"));
}

TEST(BerTest, ObjectIdsMayBeginWith2AndEndWith32Bits) {
    EXPECT_EQ("2.100.3", trace::Dotted(trace::ObjectIdOf(Octets("81 34 03"), "a name")));
    EXPECT_EQ("1.3.4294967295", trace::Dotted(trace::ObjectIdOf(Octets("2b 8f ff ff ff 7f"), "a name")));
    EXPECT_ANY_THROW(trace::ObjectIdOf(Octets("2b 90 80 80 80 00"), "a name"));
}

}  // namespace
