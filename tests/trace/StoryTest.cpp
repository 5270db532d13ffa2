#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "Records.h"
#include "trace/reader/Json.h"
#include "trace/reader/Pcap.h"
#include "trace/reader/Peer.h"
#include "trace/reader/Plain.h"
#include "trace/reader/Reason.h"
#include "trace/reader/Story.h"

namespace {

using trace::CallOutcome;
using trace::Section;

constexpr std::uint32_t kDone = trace::kAnswered | trace::kParsed;
constexpr std::uint32_t kDropped = trace::kParsed;

RingRecord PanSet(std::uint64_t number, CallOutcome outcome = CallOutcome::kAnswered, const std::string& error = "") {
    const std::string binding = PositionBinding(1, Octets("02 40 46 50"));
    RingRecord record;
    record.Number(number).Flags(kDone).AddVerdict(0);
    record.Add(Section::kPeer, "UDP: [127.0.0.1]:40123->[127.0.0.1]:1161");
    record.Add(Section::kMessageIn, Message2c("private", 0xa3, binding));
    record.Add(Section::kMessageOut, Message2c("private", 0xa2, binding));
    record.AddCall(outcome, "org.tavos.Pan1", "SetPositionAtSpeed", "[180000,0.5,300]", error);
    return record;
}

trace::Communities CommunitiesOf(const std::string& configuration) {
    return trace::Communities(trace::AgentConfiguration::OfText(configuration));
}

trace::Communities Configuration() {
    return CommunitiesOf("com2sec reader 127.0.0.1 public\ncom2sec -Cn x writer default \"private\"\n#com2sec a b c\n");
}

nlohmann::ordered_json OnlyEntry(trace::Story& story) {
    const auto entries = story.Take();
    EXPECT_EQ(1u, entries.size());
    return entries.empty() ? nlohmann::ordered_json() : entries[0].json;
}

std::string Head(int change) {
    return R"({"kind":"history","change":)" + std::to_string(change) +
           R"(,"more":false,"time":0,"clock":0.0,"started":1,"running":true})" + "\n";
}

const std::string kBegun =
    R"({"kind":"motion","change":2,"number":4,"time":1700000000200000000,"clock":1.0,"axis":"pan","cause":{"sender":":1.5","serial":7},)"
    R"("from":90000,"target":180000,"speed":0.5,"ended":)";

TEST(CommunitiesTest, AreKnownByTheirSecurityNames) {
    EXPECT_EQ("reader", Configuration().NameOf("public"));
    EXPECT_EQ("writer", Configuration().NameOf("private"));
    EXPECT_FALSE(Configuration().NameOf("c"));
    EXPECT_EQ("rwcommunity in line 2", CommunitiesOf("\nrwcommunity secret\n").NameOf("secret"));
}

TEST(CommunitiesTest, AreFoundAsTheAgentReadsThem) {
    const auto communities =
        CommunitiesOf("[snmpd] ROcommunity one\nCom2Sec reader default 'two words'\nauthCommunity log,execute three\n");
    EXPECT_EQ("rocommunity in line 1", communities.NameOf("one"));
    EXPECT_EQ("reader", communities.NameOf("two words"));
    EXPECT_EQ("authcommunity in line 3", communities.NameOf("three"));
    EXPECT_TRUE(communities.IsWrong("four"));
    EXPECT_FALSE(communities.IsWrong("three"));
}

/// A folder for files of a test.
class ConfigurationFilesTest : public testing::Test {
protected:
    ConfigurationFilesTest() {
        char name[] = "/tmp/orvex-conf-XXXXXX";
        folder = mkdtemp(name);
    }
    ~ConfigurationFilesTest() override { std::filesystem::remove_all(folder); }

    std::string Write(const std::string& name, const std::string& text) const {
        std::ofstream(folder / name) << text;
        return folder / name;
    }

    std::filesystem::path folder;
};

TEST_F(ConfigurationFilesTest, IncludedOnesAreRead) {
    Write("more.conf", "\nrocommunity inner\n");
    const auto path = Write("snmpd.conf", "includeFile more.conf\ncom2sec reader default outer\n");
    const auto communities = trace::Communities::OfFile(path);
    EXPECT_EQ("rocommunity in line 2 of " + (folder / "more.conf").string(), communities.NameOf("inner"));
    EXPECT_EQ("reader", communities.NameOf("outer"));
    EXPECT_TRUE(communities.IsWrong("neither"));
}

TEST_F(ConfigurationFilesTest, OnesThatCannotBeReadMakeNoCommunityWrong) {
    const auto circle = Write("circle.conf", "com2sec reader default public\nincludeFile circle.conf\n");
    EXPECT_EQ("reader", trace::Communities::OfFile(circle).NameOf("public"));
    const auto folder2 = Write("folder.conf", "includeDir /etc\n");
    const auto missing = Write("missing.conf", "includeFile nowhere.conf\n");
    for (const std::string& path :
         {circle, folder2, missing, (folder / "nothing").string(), std::string("/dev/zero")}) {
        EXPECT_FALSE(trace::Communities::OfFile(path).IsWrong("x")) << path;
    }
}

TEST_F(ConfigurationFilesTest, AFifoBlocksNobody) {
    const std::string path = folder / "snmpd.conf";
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    EXPECT_TRUE(trace::Communities::OfFile(path).All().empty());
}

TEST(StoryTest, AMotionIsJoinedByTheCallAndComesAgainWhenItHasEnded) {
    trace::Story story(Configuration());
    story.AddRecord(PanSet(12).Decoded());
    story.AddHistory(Head(2) + kBegun + "null}\n");
    auto entry = OnlyEntry(story);
    EXPECT_EQ("writer", entry["who"]);
    EXPECT_EQ("127.0.0.1:40123", entry["peer"]);
    EXPECT_EQ("2023-11-14T22:13:20.123456Z", entry["time"]);
    EXPECT_EQ("moving", entry["motions"][0]["end"]);
    EXPECT_TRUE(story.Take().empty());

    story.AddHistory(Head(3) + kBegun + R"({"how":"arrived","time":2,"clock":3.5,"position":180000}})" + "\n");
    const auto again = story.Take();
    ASSERT_EQ(1u, again.size());
    EXPECT_TRUE(again[0].isAgain);
    EXPECT_EQ("pan from 90.00° to 180.00°: arrived at 180.00° after 2.50 s", again[0].json["motions"][0]["words"]);
    EXPECT_FALSE(again[0].json["failed"]);
    EXPECT_TRUE(story.Take().empty());
}

TEST(StoryTest, AMotionThatEndsWhereItBeganMovedNothing) {
    trace::Story story;
    story.AddRecord(PanSet(12).Decoded());
    story.AddHistory(Head(3) + kBegun + R"({"how":"limit","time":2,"clock":1.0,"position":90000}})" + "\n");
    const auto entry = OnlyEntry(story);
    EXPECT_EQ("it is at its limit already: nothing moved", entry["reason"]);
    EXPECT_TRUE(entry["failed"]);
}

TEST(StoryTest, ASilentServiceIsSilentSinceTheRecordThatItDidNotAnswer) {
    trace::Story story;
    story.AddRecord(PanSet(12, CallOutcome::kFailed, "no answer within 500 ms").Decoded());
    story.AddRecord(PanSet(13, CallOutcome::kNotMade, "the service is silent").Decoded());
    story.AddRecord(PanSet(14).Decoded());
    story.AddRecord(PanSet(15, CallOutcome::kNotMade, "the service is silent").Decoded());
    const auto entries = story.Take();
    ASSERT_EQ(4u, entries.size());
    EXPECT_EQ("the pan service gave no answer within 500 ms: nothing moved", entries[0].json["reason"]);
    EXPECT_EQ("not called: the pan service is silent since 22:13:20.123 (record 12): nothing moved",
              entries[1].json["reason"]);
    EXPECT_EQ("", entries[2].json["reason"]);
    EXPECT_EQ("not called: the pan service is silent: nothing moved", entries[3].json["reason"]);
    EXPECT_TRUE(entries[0].json["failed"] && entries[1].json["failed"] && !entries[2].json["failed"]);
}

/// How the motion of PanSet was replaced by the call `serial` of `sender`.
std::string Replaced(const std::string& sender, int serial) {
    return kBegun + R"({"how":"replaced","time":1700000000300000000,"clock":2.0,"position":95000,"by":{"sender":")" +
           sender + R"(","serial":)" + std::to_string(serial) + "}}}\n";
}

RingRecord PanSetByCall(std::uint64_t number, std::uint64_t serial) {
    return RingRecord().Number(number).Flags(kDone).AddVerdict(0).AddCall(CallOutcome::kAnswered, "org.tavos.Pan1",
                                                                          "Stop", "[]", "", serial);
}

TEST(StoryTest, ARequestThatEndsAMotionMayComeLaterThanTheMotionsEnd) {
    trace::Story story;
    story.AddRecord(PanSet(12).Decoded());
    story.AddHistory(Head(2) + Replaced(":1.5", 8));
    const auto first = OnlyEntry(story);
    EXPECT_EQ("replaced", first["motions"][0]["end"]);
    EXPECT_TRUE(first["motions"][0]["by"].is_null());
    EXPECT_TRUE(story.Take().empty());
    story.AddRecord(PanSetByCall(13, 8).Decoded());
    const auto entries = story.Take();
    ASSERT_EQ(2u, entries.size());
    EXPECT_TRUE(entries[0].isAgain);
    EXPECT_EQ(13, entries[0].json["motions"][0]["by"]["request"]);
    EXPECT_TRUE(story.Take().empty());
}

TEST(StoryTest, ACallThatNoRequestMadeIsAnotherCallers) {
    for (const auto& [sender, words] :
         {std::pair{":1.9", "another caller"}, std::pair{":1.5", "a request that is not known"}}) {
        trace::Story story;
        story.AddRecord(PanSet(12).Decoded());
        story.AddHistory(Head(2) + Replaced(sender, 99));
        EXPECT_TRUE(OnlyEntry(story)["motions"][0]["by"].is_null());
        std::vector<trace::Entry> again;
        for (int turn = 0; turn < 20 && again.empty(); ++turn) again = story.Take();
        ASSERT_EQ(1u, again.size());
        EXPECT_EQ(words, again[0].json["motions"][0]["by"]);

        trace::Story last;
        last.AddRecord(PanSet(12).Decoded());
        last.AddHistory(Head(2) + Replaced(sender, 99));
        last.ForgetAgent();  // no more records come
        EXPECT_EQ(words, OnlyEntry(last)["motions"][0]["by"]);
    }
}

TEST(StoryTest, ACallOfAnEarlierBusIsAnotherCall) {
    trace::Story story;
    auto old = PanSet(3).Decoded();
    old.time -= 3600'000'000'000;
    story.AddRecord(old);
    story.AddRecord(PanSet(12).Decoded());
    auto other = RingRecord().Number(13).Flags(kDone).AddVerdict(0).Decoded();
    other.time += 3600'000'000'000;
    other.calls = PanSet(1).Decoded().calls;
    story.AddRecord(other);
    story.AddHistory(Head(2) + Replaced(":1.5", 7));
    const auto entries = story.Take();
    ASSERT_EQ(3u, entries.size());
    EXPECT_TRUE(entries[0].json["motions"].empty());
    ASSERT_EQ(1u, entries[1].json["motions"].size());
    EXPECT_EQ(12, entries[1].json["motions"][0]["by"]["request"]);
    EXPECT_TRUE(entries[2].json["motions"].empty());
}

TEST(StoryTest, AMotionIsHeldByAPausedClock) {
    trace::Story story;
    story.AddRecord(PanSet(12).Decoded());
    const auto paused = [](std::string head) { return head.replace(head.find("true"), 4, "false"); };
    story.AddHistory(paused(Head(2)) + kBegun + "null}\n");
    const auto held = OnlyEntry(story);
    EXPECT_EQ("the camera's clock is paused", held["reason"]);
    EXPECT_TRUE(held["failed"]);
    story.AddHistory(Head(3) + kBegun + R"({"how":"arrived","time":2,"clock":3.5,"position":180000}})" + "\n");
    const auto ended = OnlyEntry(story);
    EXPECT_EQ("", ended["reason"]);
    EXPECT_FALSE(ended["failed"]);
}

TEST(StoryTest, ACameraThatWasStartedAnewIsAskedFromItsBeginning) {
    trace::Story story;
    story.AddHistory(Head(9));
    EXPECT_EQ(9u, story.HistoryChange());
    story.ForgetCamera();
    EXPECT_EQ(0u, story.HistoryChange());
    EXPECT_ANY_THROW(story.AddHistory("nothing\n"));
    EXPECT_ANY_THROW(story.AddHistory("{\"kind\":\"motion\"}\n"));
}

TEST(StoryTest, ATrapStandsWithTheRequestThatCausedIt) {
    trace::Story story;
    story.AddRecord(PanSet(12).Decoded());
    auto trap = RingRecord(trace::RecordKind::kTrap).Number(13).Decoded();
    trap.cause = 12;
    story.AddRecord(trap);
    EXPECT_EQ(13, OnlyEntry(story)["traps"][0]["number"]);
    trap.cause = 11;  // overwritten
    story.AddRecord(trap);
    EXPECT_TRUE(story.Take().empty());
    EXPECT_EQ("trap", OnlyEntry(story)["pdu"]);
}

TEST(StoryTest, WhatWasDroppedSaysWhy) {
    trace::Story story(Configuration());
    story.AddRecord(RingRecord().Add(Section::kMessageIn, "rubbish").Decoded());
    story.AddRecord(RingRecord()
                        .Number(2)
                        .Flags(trace::kParsed)
                        .AddVerdict(1)
                        .Add(Section::kMessageIn, Message2c("guess", 0xa0, PositionBinding(1, "")))
                        .Decoded(),
                    3);
    const auto entries = story.Take();
    EXPECT_EQ("broken message: the message has a length of 117 octets, but 5 are left", entries[0].json["reason"]);
    EXPECT_EQ("wrong community", entries[1].json["reason"]);
    EXPECT_EQ("guess", entries[1].json["who"]);
    EXPECT_EQ(3, entries[1].json["lost"]);
    EXPECT_TRUE(entries[1].json["error"].is_null());
}

TEST(RecordTest, ATruncatedSectionLeavesTheOthers) {
    auto record = RingRecord().Add(Section::kCall, "short").Add(Section::kPeer, "peer").Decoded();
    EXPECT_TRUE(record.isCut);
    EXPECT_EQ("peer", record.peer);
    auto raw = PanSet(1).Raw();
    for (std::size_t length = sizeof(trace::RecordHead); length < raw.size(); ++length) {
        EXPECT_NO_THROW(trace::DecodeRecord({raw.begin(), raw.begin() + static_cast<std::ptrdiff_t>(length)}));
    }
    EXPECT_ANY_THROW(trace::DecodeRecord({}));
}

TEST(PlainTest, ControlCharactersAndLengthsDoNotSpoilTheTerminal) {
    trace::Story story;
    story.AddRecord(RingRecord()
                        .Flags(trace::kParsed)
                        .AddVerdict(1)
                        .Add(Section::kMessageIn, Message2c(std::string(300, '\n') + "\x1b[2J", 0xa0, ""))
                        .Decoded());
    const std::string lines = trace::PlainLines(OnlyEntry(story), trace::Details::kAll);
    EXPECT_EQ(std::string::npos, lines.find('\x1b'));
    std::istringstream stream(lines);
    for (std::string line; std::getline(stream, line);) EXPECT_LE(line.size(), 120u) << line;
}

TEST(PlainTest, TheEndOfAMotionSaysWhyNothingMoved) {
    const nlohmann::ordered_json entry = {
        {"number", 7}, {"motions", {{{"words", "tilt: at 90.00°"}}}}, {"reason", "it is at its limit already"}};
    const std::string lines = trace::PlainEnd(entry);
    EXPECT_NE(std::string::npos, lines.find("motion of 7: tilt: at 90.00°")) << lines;
    EXPECT_NE(std::string::npos, lines.find("why: it is at its limit already")) << lines;
}

TEST(JudgeTest, ShowsOnlyACommunityThatTheAgentRefused) {
    const trace::Judge judge{CommunitiesOf("com2sec reader 127.0.0.1 public\n")};
    trace::Record record;
    record.in.community = "secret";
    EXPECT_EQ("(a community)", judge.Who(record));  // the agent could not read the message
    record.verdict = 0;
    EXPECT_EQ("(an accepted community)", judge.Who(record));
    record.verdict = 1;  // VACM_NOSECNAME
    EXPECT_EQ("secret", judge.Who(record));
    record.in.community = "public";
    EXPECT_EQ("reader", judge.Who(record));
    // It may be a right one from a wrong address, in a file that is not known.
    const trace::Judge other{CommunitiesOf("includeDir /etc/snmp\n")};
    EXPECT_EQ("(a refused community)", other.Who(record));
}

TEST(JudgeTest, AnAnswerThatWasNotAwaitedIsNotCalledMissing) {
    for (const bool isAwaited : {true, false}) {
        RingRecord record;
        record.Flags(isAwaited ? kDropped : kDropped | trace::kNotAwaited).AddVerdict(0);
        record.Add(Section::kMessageIn, Message2c("public", 0xa0, PositionBinding(1, "")));
        trace::Story story;
        story.AddRecord(record.Decoded());
        const auto entry = OnlyEntry(story);
        EXPECT_EQ(isAwaited, entry["failed"]);
        EXPECT_EQ(isAwaited, entry["reason"] == "the agent did not answer") << entry["reason"];
        const std::string outcome = isAwaited ? "dropped" : "unknown";
        EXPECT_NE(std::string::npos, trace::PlainLines(entry, trace::Details::kFailed).find(outcome));
    }
}

TEST(JsonTest, ShowsWhatAGetBulkAsksForAndTheContext) {
    auto record = RingRecord().Add(Section::kMessageIn, Message2c("public", 0xa5, "", 2, 30)).Decoded();
    EXPECT_FALSE(trace::RecordJson(record, "", {}, 0).contains("context"));
    record.context = "other";
    const auto json = trace::RecordJson(record, "", {}, 0);
    EXPECT_EQ(2, json["nonRepeaters"]);
    EXPECT_EQ(30, json["maxRepetitions"]);
    EXPECT_EQ("other", json["context"]);
    EXPECT_FALSE(trace::RecordJson(PanSet(1).Decoded(), "", {}, 0).contains("maxRepetitions"));
}

TEST(RecordTest, ANotificationIsWhatItsFirstReceiverWasSent) {
    const std::string sent = Message2c("public", 0xa6, PositionBinding(1, Octets("02 40 46 50")));
    const std::string receiver = Octets("01 00 00 00") + "UDP: [127.0.0.1]:0->[127.0.0.1]:162";
    const auto retried = RingRecord(trace::RecordKind::kTrap)
                             .Add(Section::kReceiver, receiver)
                             .Add(Section::kTrapMessage, "rubbish")
                             .Add(Section::kReceiver, receiver)
                             .Add(Section::kTrapMessage, sent)
                             .Decoded();
    ASSERT_TRUE(retried.pdu);
    EXPECT_EQ(1u, retried.pdu->bindings.size());
    EXPECT_EQ(5, trace::RecordJson(retried, "", {}, 0)["id"]);
    auto unknown = retried;
    unknown.sentId.reset();
    EXPECT_TRUE(trace::RecordJson(unknown, "", {}, 0)["id"].is_null());
}

TEST(JudgeTest, AnAnswerThatTheSocketRefusedIsNoAnswer) {
    trace::Record record = PanSet(1).Decoded();
    record.isAnswered = false;
    record.isParsed = true;
    record.verdict = 0;
    record.messageOut = "answer";
    const auto judgement = trace::Judge(trace::Communities()).Of(record);
    EXPECT_EQ("the answer could not be sent", judgement.reason);
    EXPECT_TRUE(trace::RecordJson(record, "", judgement, 0)["error"].is_null());
    std::ostringstream file;
    trace::PcapWriter(file).Write(record);
    EXPECT_EQ(std::string::npos, file.str().find("answer"));
}

TEST(PeerTest, ReadsPortsAsEachReleaseOfTheAgentWritesThem) {
    for (const char* text : {"UDP: [10.0.0.1]:33257->[127.0.0.1]:161", "UDP: [127.0.0.1]->[10.0.0.1]:-32279"}) {
        EXPECT_EQ("10.0.0.1:33257", trace::ParsePeer(text).Text()) << text;
        EXPECT_EQ("127.0.0.1", trace::ParsePeer(text).ownAddress) << text;
    }
}

TEST(PcapTest, AVersion6PacketHasBothAddresses) {
    auto record = PanSet(1).Decoded();
    record.peer = "UDP/IPv6: [::1%eth0]:5000->[::1]:161";
    record.messageOut.clear();
    std::ostringstream file;
    trace::PcapWriter(file).Write(record);
    const std::string packet = file.str().substr(24 + 16);
    EXPECT_EQ(0x60, packet[0]);
    EXPECT_EQ(17, packet[6]);
    EXPECT_EQ(std::string(15, '\0') + "\1" + std::string(15, '\0') + "\1", packet.substr(8, 32));
    EXPECT_EQ(record.messageIn, packet.substr(48));
}

}  // namespace
