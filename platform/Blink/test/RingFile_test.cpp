#include "platform/Blink/RingFile.h"

#include <errno.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <thread>

#include "platform/Blink/RingLayout.h"
#include "platform/Blink/Trace.h"
#include "test/support/TempDir.h"

BLINK_TRACE_HANDLE("RingFileTest");

namespace {

constexpr unsigned kLog2 = 16;
constexpr unsigned kSlot = 512;
constexpr std::uint64_t kSlots = (1U << kLog2) / kSlot;

class RingFileTest : public testing::Test {
protected:
    RingFileTest() {
        Blink::shutdown();
        ::unsetenv("BLINKDIR");
        Blink::rootIs(directory_.path());
    }
    ~RingFileTest() override {
        Blink::shutdown();
        ::unsetenv("BLINKDIR");
    }
    static bool init(std::string_view name, unsigned slotBytes = kSlot, bool onDemand = false) {
        return Blink::init(
            name, nullptr, nullptr, 0, kLog2, Blink::Threading::multi, onDemand, slotBytes);
    }
    static std::filesystem::path path() { return Blink::defaultHandle()->path(); }
    static std::vector<std::string> texts(std::uint64_t from = 0) {
        Blink::RingReader reader;
        EXPECT_EQ(reader.open(path()), "");
        std::vector<std::string> result;
        for (Blink::Message& m : reader.read(from)) { result.push_back(std::move(m.text)); }
        return result;
    }
    static std::string bytes() {
        std::ifstream in{path(), std::ios::binary};
        return {std::istreambuf_iterator<char>{in}, {}};
    }
    std::filesystem::path write(const std::string& content) const {
        const auto to = root() / "foreign.bk";
        std::ofstream{to, std::ios::binary} << content;
        return to;
    }
    const std::filesystem::path& root() const { return directory_.path(); }
    static std::string process() { return program_invocation_short_name; }

private:
    TestSupport::TempDir directory_;
};

/// A reader that takes the file, or says why not; never anything else.
std::size_t messagesIn(const std::filesystem::path& path) {
    Blink::RingReader reader;
    const std::string problem = reader.open(path);
    const std::size_t count = reader.read().size();
    if (!problem.empty()) { EXPECT_EQ(count, 0U) << problem; }
    return count;
}

TEST_F(RingFileTest, ANameThatStartsWithADashIsASuffixToTheProcessName) {
    init("-x.bk");
    EXPECT_EQ(path(), root() / "trace" / (process() + "-x.bk"));
}

TEST_F(RingFileTest, ANameThatStartsWithADotIsASuffixToTheProcessName) {
    init(".bk");
    EXPECT_EQ(path(), root() / "trace" / (process() + ".bk"));
}

TEST_F(RingFileTest, AnyOtherNameStandsAlone) {
    init("mine.bk");
    EXPECT_EQ(path(), root() / "trace" / "mine.bk");
}

TEST_F(RingFileTest, PercentDStandsForTheProcessId) {
    init("-%d.bk");
    EXPECT_EQ(path(), root() / "trace" / (process() + "-" + std::to_string(::getpid()) + ".bk"));
}

TEST_F(RingFileTest, BlinkdirIsTheDirectory) {
    ::setenv("BLINKDIR", (root() / "else").c_str(), 1);
    init(".bk");
    EXPECT_EQ(path(), root() / "else" / (process() + ".bk"));
    EXPECT_TRUE(std::filesystem::exists(path()));
}

TEST_F(RingFileTest, TheFileIsMadeOnDemandOnly) {
    EXPECT_EQ(Blink::defaultHandle(), nullptr);
    ASSERT_TRUE(init(".bk", kSlot, true));
    EXPECT_FALSE(std::filesystem::exists(path()));
    EXPECT_TRUE(Blink::defaultHandle()->mtTraceFileIs());
    EXPECT_TRUE(std::filesystem::exists(path()));
}

TEST_F(RingFileTest, AParameterOutOfItsRangeIsRefused) {
    using Blink::Threading;
    EXPECT_FALSE(Blink::init("a", nullptr, nullptr, 0, 15, Threading::multi, true, 512));
    EXPECT_FALSE(Blink::init("a", nullptr, nullptr, 0, 33, Threading::multi, true, 512));
    EXPECT_FALSE(init("a", 0));
    EXPECT_FALSE(init("a", 100));
    EXPECT_FALSE(init("a", 576));
    EXPECT_EQ(Blink::defaultHandle(), nullptr);
}

TEST_F(RingFileTest, WithoutAFileTheProcessRunsOnAndSaysWhy) {
    write("a file, not a directory");
    ::setenv("BLINKDIR", (root() / "foreign.bk").c_str(), 1);
    testing::internal::CaptureStderr();
    EXPECT_FALSE(init("x.bk"));
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "cannot create trace file " + (root() / "foreign.bk" / "x.bk").string() +
                  ": Not a directory\n");
    TRACE5("goes nowhere");
    EXPECT_EQ(Blink::nextMessageNumber(), 0U);
}

TEST_F(RingFileTest, TheRingKeepsTheYoungestMessages) {
    init(".bk");
    for (std::uint64_t i = 0; i < kSlots + 10; ++i) { TRACE9("message {}", i); }
    const auto all = texts();
    ASSERT_EQ(all.size(), kSlots);
    EXPECT_EQ(all.front(), "message 10");
    EXPECT_EQ(all.back(), "message " + std::to_string(kSlots + 9));
}

TEST_F(RingFileTest, AReaderGoesOnFromANumber) {
    init(".bk");
    TRACE9("before");
    const std::uint64_t from = Blink::nextMessageNumber();
    TRACE9("after");
    EXPECT_EQ(texts(from), std::vector<std::string>{"after"});
    EXPECT_TRUE(texts(Blink::nextMessageNumber()).empty());
}

TEST_F(RingFileTest, ASmallSlotCutsTheArguments) {
    init(".bk", 64);
    TRACE9("{} {} {} {}", 1, 2, 3, 4);  // 32 bytes have room for three numbers
    EXPECT_EQ(texts(), std::vector<std::string>{"1 2 3 {} (arguments cut)"});
}

TEST_F(RingFileTest, CallSitesRegisterAgainInTheNextFile) {
    const auto trace = [] { TRACE9("here"); };
    init("one.bk");
    trace();
    Blink::shutdown();
    init("two.bk");
    trace();
    EXPECT_EQ(texts(), std::vector<std::string>{"here"});
}

TEST_F(RingFileTest, ATornSlotIsLeftOut) {
    init(".bk");
    for (int i = 0; i < 3; ++i) { TRACE9("message {}", i); }
    std::string file = bytes();
    Blink::Layout::Header header{};
    std::memcpy(&header, file.data(), sizeof header);
    const std::uint64_t inside = 2 * 1 + 1;  // message 1 is being written
    std::memcpy(file.data() + header.slotsOffset + header.slotBytes, &inside, sizeof inside);
    Blink::RingReader reader;
    ASSERT_EQ(reader.open(write(file)), "");
    const auto messages = reader.read();
    ASSERT_EQ(messages.size(), 2U);
    EXPECT_EQ(messages[0].text, "message 0");
    EXPECT_EQ(messages[1].text, "message 2");
}

TEST_F(RingFileTest, AWriterInsideKeepsItsSlotFromTheOneAWholeRingAhead) {
    init(".bk");
    TRACE9("first");
    std::fstream file{path(), std::ios::binary | std::ios::in | std::ios::out};
    Blink::Layout::Header header{};
    file.read(reinterpret_cast<char*>(&header), sizeof header);
    const std::uint64_t inside = 1;  // message 0 never ends
    file.seekp(static_cast<std::streamoff>(header.slotsOffset));
    file.write(reinterpret_cast<const char*>(&inside), sizeof inside);
    file.close();
    for (std::uint64_t i = 0; i < kSlots; ++i) { TRACE9("later {}", i); }
    const auto all = texts();
    EXPECT_EQ(all.size(), kSlots - 1);
    EXPECT_EQ(all.back(), "later " + std::to_string(kSlots - 2));
}

TEST_F(RingFileTest, WhatIsReadWhileOthersWriteIsWhole) {
    // Large enough that the writers do not always overtake the reader.
    ASSERT_TRUE(Blink::init(".bk", nullptr, nullptr, 0, 22, Blink::Threading::multi, false, kSlot));
    const auto work = [](const std::stop_token& stop) {
        for (std::uint64_t i = 0; !stop.stop_requested(); ++i) {
            TRACE9("{} and {} and {}", i, i, i);
        }
    };
    const auto readWhole = [] {
        const auto all = texts();
        for (const std::string& text : all) {
            const std::string number = text.substr(0, text.find(' '));
            EXPECT_EQ(text, number + " and " + number + " and " + number);
        }
        return all.size();
    };
    std::size_t seen = 0;
    {
        const std::jthread a{work};
        const std::jthread b{work};
        // However late the writers start, and however often they get ahead.
        for (int round = 0; seen == 0 || round < 10; ++round) { seen += readWhole(); }
    }
    EXPECT_GT(readWhole(), 0U);
}

/// What readOn gives, message by message, over a file whose bytes the test changes.
class ReadingOn : public RingFileTest {
protected:
    ReadingOn() { init(".bk"); }
    std::vector<std::string> more() {
        if (!open_) {
            open_ = true;
            EXPECT_EQ(reader_.open(path()), "");
        }
        std::vector<std::string> result;
        for (Blink::Message& m : reader_.readOn(position)) { result.push_back(std::move(m.text)); }
        return result;
    }
    /// Message `number`, of the ring's first round, is as far as a writer has come with it.
    static void sequenceIs(std::uint64_t number, std::uint64_t sequence) {
        std::fstream file{path(), std::ios::binary | std::ios::in | std::ios::out};
        Blink::Layout::Header header{};
        file.read(reinterpret_cast<char*>(&header), sizeof header);
        file.seekp(static_cast<std::streamoff>(header.slotsOffset + number * header.slotBytes));
        file.write(reinterpret_cast<const char*>(&sequence), sizeof sequence);
    }
    static void trace(int from, int to) {
        for (int i = from; i < to; ++i) { TRACE9("message {}", i); }
    }
    Blink::RingPosition position;

private:
    Blink::RingReader reader_;
    bool open_ = false;
};

using Texts = std::vector<std::string>;

TEST_F(ReadingOn, EachMessageComesOnce) {
    trace(0, 2);
    EXPECT_EQ(more(), (Texts{"message 0", "message 1"}));
    EXPECT_EQ(more(), Texts{});
    trace(2, 3);
    EXPECT_EQ(more(), Texts{"message 2"});
    EXPECT_EQ(position.lost, 0U);
}

TEST_F(ReadingOn, WhatIsJustBeingWrittenIsWaitedForAndKeepsItsPlace) {
    trace(0, 3);
    sequenceIs(1, 2 * 1 + 1);
    EXPECT_EQ(more(), Texts{"message 0"});
    sequenceIs(1, 2 * 1 + 2);
    EXPECT_EQ(more(), (Texts{"message 1", "message 2"}));
    EXPECT_EQ(position.lost, 0U);
}

TEST_F(ReadingOn, WhatIsNeverFinishedIsWaitedForOnceAndCountsAsLost) {
    trace(0, 3);
    sequenceIs(0, 2 * 0 + 1);
    sequenceIs(1, 2 * 1 + 1);
    EXPECT_EQ(more(), Texts{});
    EXPECT_EQ(position.lost, 0U);
    EXPECT_EQ(more(), Texts{"message 2"});
    EXPECT_EQ(position.lost, 2U);
}

TEST_F(ReadingOn, WhatTheRingOverwroteBeforeItWasReadIsCounted) {
    trace(0, 1);
    EXPECT_EQ(more(), Texts{"message 0"});
    trace(1, 1 + static_cast<int>(kSlots) + 5);
    const Texts rest = more();
    ASSERT_EQ(rest.size(), kSlots);
    EXPECT_EQ(rest.front(), "message 6");
    EXPECT_EQ(position.lost, 5U);
}

TEST_F(ReadingOn, ASlotThatIsOverwrittenMeanwhileIsLostAtOnce) {
    trace(0, 3);
    sequenceIs(1, 2 * (1 + kSlots) + 1);
    EXPECT_EQ(more(), (Texts{"message 0", "message 2"}));
    EXPECT_EQ(position.lost, 1U);
}

TEST_F(RingFileTest, TheTraceMayEndWhileAThreadIsTracing) {
    std::atomic<bool> stop{false};
    std::thread thread{[&stop] {
        while (!stop) { TRACE9("over and over"); }
    }};
    for (int i = 0; i < 20; ++i) {
        ASSERT_TRUE(init(".bk"));
        Blink::shutdown();
    }
    stop = true;
    thread.join();
}

TEST_F(RingFileTest, AForkedChildLeavesTheRingAloneAndMayHaveItsOwn) {
    Blink::handlesDeleteOnForkIs(true);
    init("parent.bk");
    const pid_t child = ::fork();
    if (child == 0) {
        const bool none = Blink::defaultHandle() == nullptr;
        TRACE9("from the child");
        const bool made = init("child.bk");
        TRACE9("in the child's own");
        ::_exit(none && made ? 0 : 1);
    }
    int status = -1;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    TRACE9("from the parent");
    EXPECT_EQ(texts(), std::vector<std::string>{"from the parent"});
    Blink::RingReader reader;
    ASSERT_EQ(reader.open(root() / "trace" / "child.bk"), "");
    ASSERT_EQ(reader.read().size(), 1U);
    EXPECT_EQ(reader.read()[0].text, "in the child's own");
    Blink::handlesDeleteOnForkIs(false);
}

class ForeignFile : public RingFileTest {
protected:
    ForeignFile() {
        init(".bk");
        for (int i = 0; i < 20; ++i) { TRACE9("message {} {}", i, "text"); }
    }
    std::string problemOf(const std::string& content) const {
        Blink::RingReader reader;
        std::string problem = reader.open(write(content));
        const std::string prefix = (root() / "foreign.bk").string() + ": ";
        EXPECT_EQ(problem.substr(0, prefix.size()), prefix);
        return problem.substr(std::min(problem.size(), prefix.size()));
    }
    static std::string withHeader(void (*change)(Blink::Layout::Header&)) {
        std::string file = bytes();
        Blink::Layout::Header header{};
        std::memcpy(&header, file.data(), sizeof header);
        change(header);
        std::memcpy(file.data(), &header, sizeof header);
        return file;
    }
};

TEST_F(ForeignFile, AnotherKindOfFileIsNamedSo) {
    EXPECT_EQ(problemOf(""), "not a trace file");
    EXPECT_EQ(problemOf(std::string(10'000, 'x')), "not a trace file");
}

TEST_F(ForeignFile, AMissingFileIsNamedSo) {
    Blink::RingReader reader;
    EXPECT_EQ(reader.open(root() / "none"),
              (root() / "none").string() + ": No such file or directory");
}

TEST_F(ForeignFile, APipeOfThatNameDoesNotBlock) {
    ASSERT_EQ(::mkfifo((root() / "pipe").c_str(), 0600), 0);
    Blink::RingReader reader;
    EXPECT_EQ(reader.open(root() / "pipe"), (root() / "pipe").string() + ": not a trace file");
}

TEST_F(ForeignFile, AnotherLayoutIsNamedWithBothVersions) {
    EXPECT_EQ(problemOf(withHeader([](auto& h) { h.version = 7; })),
              "trace layout 7, this reader knows 1");
}

TEST_F(ForeignFile, AHeaderThatDoesNotFitTheFileIsRefused) {
    using Header = Blink::Layout::Header;
    const std::string want = "trace header does not fit the file";
    for (auto change : std::initializer_list<void (*)(Header&)>{
             [](Header& h) { h.slotBytes = 0; },
             [](Header& h) { h.slotBytes = 24; },
             [](Header& h) { h.slotBytes = 1024; },
             [](Header& h) { h.slotCount = 0; },
             [](Header& h) { h.slotCount += 1; },
             [](Header& h) { h.slotCount = ~std::uint64_t{0}; },
             [](Header& h) { h.slotsOffset = ~std::uint64_t{0} - 7; },
             [](Header& h) { h.slotsOffset += 1; },
             [](Header& h) { h.siteTableOffset = ~std::uint64_t{0}; },
             [](Header& h) { h.siteTableBytes = ~std::uint64_t{0}; }}) {
        EXPECT_EQ(problemOf(withHeader(change)), want);
    }
}

TEST_F(ForeignFile, AMessageCountBeyondAllReasonEndsTheReading) {
    EXPECT_EQ(messagesIn(write(withHeader([](auto& h) { h.nextMessage = ~std::uint64_t{0}; }))),
              0U);
}

TEST_F(ForeignFile, AMessageWithoutACallSiteSaysSo) {
    Blink::RingReader reader;
    ASSERT_EQ(reader.open(write(withHeader([](auto& h) { h.siteBytesUsed = 0; }))), "");
    const auto messages = reader.read();
    ASSERT_EQ(messages.size(), 20U);
    EXPECT_EQ(messages[3].text, "(call site unknown)");
}

TEST_F(ForeignFile, AFileCutAnywhereIsReadOrRefused) {
    const std::string whole = bytes();
    for (const std::size_t size : {1UL, 71UL, 72UL, 4096UL, 4200UL, whole.size() - 1}) {
        EXPECT_EQ(messagesIn(write(whole.substr(0, size))), 0U) << size;
    }
}

TEST_F(ForeignFile, AFileCutUnderTheReaderGivesFewerMessages) {
    const auto copy = write(bytes());
    Blink::RingReader reader;
    ASSERT_EQ(reader.open(copy), "");
    EXPECT_EQ(reader.read().size(), 20U);
    std::filesystem::resize_file(copy, 100);
    EXPECT_EQ(reader.read().size(), 0U);
}

TEST_F(ForeignFile, GarbageAnywhereIsReadOrRefused) {
    const std::string whole = bytes();
    Blink::Layout::Header header{};
    std::memcpy(&header, whole.data(), sizeof header);
    std::mt19937 random{1};
    for (int round = 0; round < 300; ++round) {
        std::string file = whole;
        for (int i = 0; i < 40; ++i) {
            // Where it hurts: header, site table, the slots in use.
            const std::size_t starts[] = {8, header.siteTableOffset, header.slotsOffset};
            const std::size_t spans[] = {64, header.siteBytesUsed, 20UL * kSlot};
            // Every other file keeps its header, so that the reader gets beyond it.
            const std::size_t area = round % 2 == 0 ? random() % 3 : 1 + random() % 2;
            file[starts[area] + random() % spans[area]] = static_cast<char>(random());
        }
        messagesIn(write(file));
    }
}

}  // namespace
