// The ring: what one thread writes into shared memory, and what a reader that nobody waits for gets out of it.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/eventfd.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "tavos/osa/Exception.h"
#include "trace/agent/RecordBuilder.h"
#include "trace/agent/RingWriter.h"
#include "trace/reader/Ring.h"

using testing::HasSubstr;
using trace::RecordBuilder;
using trace::RecordHead;
using trace::RecordKind;
using trace::RingReader;
using trace::RingWriter;
using trace::Section;

namespace {

constexpr std::uint64_t kSmallest = trace::kMaxRecord;

std::unique_ptr<RingReader> ReaderOf(const RingWriter& ring, int life = -1) {
    return std::make_unique<RingReader>(dup(ring.Descriptor()), life, "test");
}

class RingTest : public testing::Test {
protected:
    RingTest() { EXPECT_TRUE(ring.Open(kSmallest)) << std::strerror(errno); }

    /// Appends a record with one section of these octets; returns its number.
    std::uint64_t Append(std::size_t length, char octet = 'x') {
        builder->Begin(RecordKind::kRequest, 42);
        const std::string contents(length, octet);
        builder->Add(Section::kMessageIn, contents.data(), contents.size());
        return ring.Append(builder->Finish());
    }

    RingWriter ring;
    std::unique_ptr<RecordBuilder> builder = std::make_unique<RecordBuilder>();
    std::vector<std::byte> record;
};

std::string TextOf(const trace::SectionView& section) {
    return {reinterpret_cast<const char*>(section.data), section.length};
}

TEST_F(RingTest, AReaderGetsTheRecordsInTheirOrder) {
    const auto reader = ReaderOf(ring);
    EXPECT_FALSE(reader->Next(record));
    EXPECT_EQ(Append(3, 'a'), 1U);
    EXPECT_EQ(Append(5, 'b'), 2U);
    ASSERT_TRUE(reader->Next(record));
    EXPECT_EQ(trace::HeadOf(record).number, 1U);
    EXPECT_EQ(trace::HeadOf(record).time, 42);
    const auto sections = trace::SectionsOf(record);
    ASSERT_EQ(sections.size(), 1U);
    EXPECT_EQ(sections[0].kind, Section::kMessageIn);
    EXPECT_EQ(TextOf(sections[0]), "aaa");
    ASSERT_TRUE(reader->Next(record));
    EXPECT_EQ(TextOf(trace::SectionsOf(record)[0]), "bbbbb");
    EXPECT_FALSE(reader->Next(record));
    EXPECT_EQ(reader->Lost(), 0U);
}

TEST_F(RingTest, RecordsOfEveryLengthSurviveTheWrapAround) {
    const auto reader = ReaderOf(ring);
    for (std::size_t i = 0; i < 3000; ++i) {
        const std::size_t length = (i * 37) % 1500;
        const char octet = static_cast<char>('a' + i % 26);
        Append(length, octet);
        ASSERT_TRUE(reader->Next(record));
        ASSERT_EQ(trace::HeadOf(record).number, i + 1);
        ASSERT_EQ(TextOf(trace::SectionsOf(record)[0]), std::string(length, octet));
    }
    EXPECT_EQ(reader->Lost(), 0U);
}

TEST_F(RingTest, AnOvertakenReaderGoesOnWithTheOldestAndCountsWhatItHasLost) {
    const auto reader = ReaderOf(ring);
    for (int i = 0; i < 1000; ++i) Append(1000);
    ASSERT_TRUE(reader->Next(record));
    const auto first = trace::HeadOf(record).number;
    EXPECT_GT(first, 700U);
    EXPECT_EQ(reader->Lost(), first - 1);
    std::uint64_t last = first;
    while (reader->Next(record)) EXPECT_EQ(trace::HeadOf(record).number, ++last);
    EXPECT_EQ(last, 1000U);
    EXPECT_EQ(reader->Lost(), first - 1);
}

TEST_F(RingTest, WhatHadLeftTheRingBeforeTheReaderCameIsNotLost) {
    for (int i = 0; i < 1000; ++i) Append(1000);
    const auto reader = ReaderOf(ring);
    ASSERT_TRUE(reader->Next(record));
    EXPECT_GT(trace::HeadOf(record).number, 700U);
    EXPECT_EQ(reader->Lost(), 0U);
}

TEST_F(RingTest, AReaderThatSkipsToTheEndLosesNothing) {
    const auto reader = ReaderOf(ring);
    for (int i = 0; i < 1000; ++i) Append(1000);
    reader->SkipToEnd();
    EXPECT_FALSE(reader->Next(record));
    Append(1);
    ASSERT_TRUE(reader->Next(record));
    EXPECT_EQ(trace::HeadOf(record).number, 1001U);
    EXPECT_EQ(reader->Lost(), 0U);
}

TEST_F(RingTest, TheLargestRecordFitsIntoTheSmallestRing) {
    const auto reader = ReaderOf(ring);
    const std::size_t most = trace::kMaxRecord - sizeof(RecordHead) - sizeof(trace::SectionHead);
    for (int i = 0; i < 5; ++i) {
        Append(most, static_cast<char>('0' + i));
        ASSERT_TRUE(reader->Next(record));
        EXPECT_EQ(record.size(), trace::kMaxRecord);
        EXPECT_EQ(TextOf(trace::SectionsOf(record)[0]), std::string(most, static_cast<char>('0' + i)));
        Append(1);
        ASSERT_TRUE(reader->Next(record));
    }
    EXPECT_EQ(reader->Facts().cut, 0U);
    EXPECT_EQ(reader->Lost(), 0U);
}

TEST_F(RingTest, ASectionThatDoesNotFitIsLeftOutAndCounted) {
    const std::string large(trace::kMaxRecord, 'x');
    builder->Begin(RecordKind::kRequest, 0);
    builder->Add(Section::kPeer, "peer", 4);
    builder->Add(Section::kMessageIn, large.data(), large.size());
    builder->Open(Section::kCall);
    for (int i = 0; i < 300; ++i) builder->Put(large.data(), 1000);
    builder->Close();
    builder->Add(Section::kMessageOut, "answer", 6);
    const auto reader = ReaderOf(ring);
    ring.Append(builder->Finish());
    ASSERT_TRUE(reader->Next(record));
    EXPECT_EQ(trace::HeadOf(record).flags, trace::kCut);
    const auto sections = trace::SectionsOf(record);
    ASSERT_EQ(sections.size(), 2U);
    EXPECT_EQ(TextOf(sections[0]), "peer");
    EXPECT_EQ(TextOf(sections[1]), "answer");
    EXPECT_EQ(reader->Facts().cut, 1U);
}

TEST_F(RingTest, ARecordWithAnImpossibleLengthIsNotWritten) {
    builder->Begin(RecordKind::kRequest, 0);
    std::byte* const octets = builder->Finish();
    for (const std::uint32_t length : {0U, 8U, 49U, trace::kMaxRecord + 8}) {
        std::memcpy(octets, &length, sizeof length);
        EXPECT_EQ(ring.Append(octets), 0U);
    }
    EXPECT_EQ(Append(1), 1U);
}

/// The writer never waits; whatever a reader copies meanwhile must be whole.
TEST_F(RingTest, WhatIsReadWhileItIsOverwrittenIsWholeOrCountsAsLost) {
    constexpr std::uint64_t kRecords = 300000;
    const auto reader = ReaderOf(ring);
    std::atomic<bool> done{false};
    std::thread writer([&] {
        for (std::uint64_t i = 0; i < kRecords; ++i) Append((i * 7919) % 4000, static_cast<char>('a' + i % 26));
        done = true;
    });
    std::uint64_t read = 0;
    std::uint64_t last = 0;
    bool whole = true;
    for (bool ended = false; !ended;) {
        ended = done;
        while (reader->Next(record)) {
            const auto number = trace::HeadOf(record).number;
            const auto sections = trace::SectionsOf(record);
            const char octet = static_cast<char>('a' + (number - 1) % 26);
            whole = whole && number > last && sections.size() == 1 &&
                    TextOf(sections[0]) == std::string((number - 1) * 7919 % 4000, octet);
            last = number;
            ++read;
        }
    }
    writer.join();
    EXPECT_TRUE(whole);
    EXPECT_EQ(last, kRecords);
    EXPECT_EQ(read + reader->Lost(), kRecords);
}

TEST_F(RingTest, NobodyWhoHasTheDescriptorCanWriteOrShrinkTheRing) {
    EXPECT_NE(ftruncate(ring.Descriptor(), 0), 0);
    EXPECT_LT(pwrite(ring.Descriptor(), "x", 1, 0), 0);
    EXPECT_EQ(mmap(nullptr, trace::kPageSize, PROT_READ | PROT_WRITE, MAP_SHARED, ring.Descriptor(), 0), MAP_FAILED);
}

TEST_F(RingTest, AReaderSeesThatItsAgentHasEnded) {
    int life[2];
    ASSERT_EQ(pipe2(life, O_CLOEXEC), 0);
    const auto reader = ReaderOf(ring, life[0]);
    EXPECT_FALSE(reader->AgentIsGone());
    close(life[1]);
    EXPECT_TRUE(reader->AgentIsGone());
    EXPECT_FALSE(ReaderOf(ring)->AgentIsGone());  // without a pipe the process counts: this one
}

std::string Refusal(int memory) {
    try {
        const RingReader reader(memory, -1, "test");
    } catch (const tavos::osa::Exception& e) {
        return e.what();
    }
    return "";
}

TEST(RingReaderTest, RefusesWhatIsNoTrace) {
    EXPECT_THAT(Refusal(-1), HasSubstr("is no trace"));
    EXPECT_THAT(Refusal(open("/dev/null", O_RDONLY | O_CLOEXEC)), HasSubstr("is no trace"));
    const int unsealed = memfd_create("test", MFD_CLOEXEC | MFD_ALLOW_SEALING);
    ASSERT_EQ(ftruncate(unsealed, 65536), 0);
    EXPECT_THAT(Refusal(dup(unsealed)), HasSubstr("is no trace"));
    ASSERT_EQ(fcntl(unsealed, F_ADD_SEALS, F_SEAL_SHRINK), 0);
    EXPECT_THAT(Refusal(unsealed), HasSubstr("another form"));
}

#if UINTPTR_MAX == 0xFFFFFFFF  // otherwise every file can be mapped
TEST(RingReaderTest, RefusesMemoryThatAnAddressCannotReach) {
    constexpr std::uint64_t kSize = (std::uint64_t{1} << 32) + 65536;
    const int memory = memfd_create("test", MFD_CLOEXEC | MFD_ALLOW_SEALING);
    ASSERT_EQ(ftruncate(memory, static_cast<off_t>(kSize)), 0);
    ASSERT_EQ(fcntl(memory, F_ADD_SEALS, F_SEAL_SHRINK), 0);
    trace::RingHeader header{};
    header.magic = trace::kMagic;
    header.capacity = kSize - trace::kPageSize;
    ASSERT_EQ(pwrite(memory, &header, sizeof header, 0), static_cast<ssize_t>(sizeof header));
    EXPECT_THAT(Refusal(memory), HasSubstr("is no trace"));
}
#endif

TEST(RingReaderTest, SaysWhatIsWrongWithTheSocket) {
    try {
        const RingReader reader("/nowhere/trace.sock");
        FAIL();
    } catch (const tavos::osa::Exception& e) {
        EXPECT_STREQ(e.what(),
                     "the trace's socket /nowhere/trace.sock cannot be reached: No such file or directory; start the "
                     "agent with orvextrace");
    }
    EXPECT_THROW(RingReader(std::string(200, 'x')), tavos::osa::Exception);
}

TEST(RingReaderTest, AWaitForAnAgentThatHangsIsEnded) {
    char name[] = "/tmp/orvex-ring-XXXXXX";
    const std::string path = std::string(mkdtemp(name)) + "/sock";
    const int listening = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    ASSERT_EQ(bind(listening, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    ASSERT_EQ(listen(listening, 0), 0);
    const int stop = eventfd(1, EFD_CLOEXEC);
    const auto start = std::chrono::steady_clock::now();
    for (int i = 0; i < 3; ++i) {  // the last one finds no room
        EXPECT_THROW(RingReader(path, stop), tavos::osa::Exception);
    }
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(1));
    close(stop);
    close(listening);
    std::filesystem::remove_all(name);
}

TEST(RingReaderTest, ReportsARecordThatIsBrokenAndGoesOn) {
    const int memory = memfd_create("test", MFD_CLOEXEC | MFD_ALLOW_SEALING);
    const std::size_t size = trace::kPageSize + kSmallest;
    ASSERT_EQ(ftruncate(memory, static_cast<off_t>(size)), 0);
    auto* const octets = static_cast<std::byte*>(mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, memory, 0));
    ASSERT_EQ(fcntl(memory, F_ADD_SEALS, F_SEAL_SHRINK), 0);
    auto* const header = reinterpret_cast<trace::RingHeader*>(octets);
    header->magic = trace::kMagic;
    header->capacity = kSmallest;
    header->nextNumber = 2;
    header->end = 64;
    for (const std::uint32_t length : {0U, 56U, 72U, 4096U}) {  // 56: with a section that ends behind the record
        RecordHead head{};
        head.length = length;
        std::memcpy(octets + trace::kPageSize, &head, sizeof head);
        const trace::SectionHead section{2, 100};
        std::memcpy(octets + trace::kPageSize + sizeof head, &section, sizeof section);
        RingReader reader(dup(memory), -1, "test");
        std::vector<std::byte> record;
        EXPECT_THROW(reader.Next(record), tavos::osa::Exception) << length;
        EXPECT_FALSE(reader.Next(record));
    }
    munmap(octets, size);
    close(memory);
}

}  // namespace
