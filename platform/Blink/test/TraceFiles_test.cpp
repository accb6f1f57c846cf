#include "platform/Blink/TraceFiles.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>

#include "platform/Blink/RingFile.h"
#include "platform/Blink/RingLayout.h"
#include "platform/Blink/Trace.h"
#include "test/support/TempDir.h"

namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

/// Numbers that no process has: above the kernel's largest.
constexpr std::uint64_t kDead = 1U << 23U;

class TraceFilesTest : public testing::Test {
protected:
    TraceFilesTest() {
        Blink::shutdown();
        ::unsetenv("BLINKDIR");
        Blink::rootIs(root_.path());
        fs::create_directories(directory());
    }
    ~TraceFilesTest() override { Blink::shutdown(); }

    fs::path directory() const { return root_.path() / "trace"; }
    /// A file as a process of that number left it, so many seconds ago.
    fs::path leave(const std::string& name, std::uint64_t pid, int secondsAgo) const {
        Blink::Layout::Header header{};
        header.magic = Blink::Layout::kMagic;
        header.version = Blink::Layout::kVersion;
        header.pid = pid;
        std::string bytes(sizeof header, '\0');
        std::memcpy(bytes.data(), &header, sizeof header);
        return write(name, bytes, secondsAgo);
    }
    fs::path write(const std::string& name, const std::string& bytes, int secondsAgo) const {
        const fs::path path = directory() / name;
        std::ofstream{path, std::ios::binary} << bytes;
        fs::last_write_time(path, fs::file_time_type::clock::now() - secondsAgo * 1s);
        return path;
    }
    std::vector<std::string> names() const {
        std::vector<std::string> result;
        for (const auto& entry : fs::directory_iterator{directory()}) {
            result.push_back(entry.path().filename().string());
        }
        std::sort(result.begin(), result.end());
        return result;
    }
    static bool makeFile() {
        return Blink::init("x-%d.bk", nullptr, nullptr, 0, 16, Blink::Threading::multi, false, 512);
    }

private:
    TestSupport::TempDir root_;
};

TEST_F(TraceFilesTest, AStartKeepsTheYoungestFourOfEndedProcesses) {
    for (std::uint64_t i = 0; i < 10; ++i) {
        leave("x-" + std::to_string(kDead + i) + ".bk", kDead + i, static_cast<int>(i));
    }
    ASSERT_TRUE(makeFile());
    std::vector<std::string> want{"x-" + std::to_string(::getpid()) + ".bk"};
    for (std::uint64_t i = 0; i < 4; ++i) {
        want.push_back("x-" + std::to_string(kDead + i) + ".bk");
    }
    std::sort(want.begin(), want.end());
    EXPECT_EQ(names(), want);
}

TEST_F(TraceFilesTest, AProcessThatComesAgainAndAgainLeavesABoundedNumber) {
    for (int start = 0; start < 12; ++start) {
        const pid_t child = ::fork();
        if (child == 0) { ::_exit(makeFile() ? 0 : 1); }
        int status = 0;
        ASSERT_EQ(::waitpid(child, &status, 0), child);
        ASSERT_EQ(status, 0);
        EXPECT_LE(names().size(), Blink::TraceFile::kKept + 1);
    }
    EXPECT_EQ(names().size(), Blink::TraceFile::kKept + 1);
}

TEST_F(TraceFilesTest, TheFileOfAProcessThatRunsStays) {
    const auto old = leave("x-1.bk", 1, 1000);  // somebody is always process 1
    ASSERT_TRUE(makeFile());
    const fs::path own = Blink::defaultHandle()->path();
    Blink::pruneTraceFiles(directory(), "x-%d.bk", 0);
    EXPECT_TRUE(fs::exists(old));
    EXPECT_TRUE(fs::exists(own));
}

TEST_F(TraceFilesTest, AFileThatIsBeingWrittenStaysWhateverItsWritersNumberIs) {
    ASSERT_TRUE(makeFile());
    const std::string name = "x-" + std::to_string(kDead) + ".bk";
    // As it looks from another container: the number says nothing, the lock does.
    fs::rename(Blink::defaultHandle()->path(), directory() / name);
    std::fstream file{directory() / name, std::ios::in | std::ios::out | std::ios::binary};
    file.seekp(offsetof(Blink::Layout::Header, pid));
    const std::uint64_t pid = kDead;
    file.write(reinterpret_cast<const char*>(&pid), sizeof pid);
    file.close();
    Blink::pruneTraceFiles(directory(), "x-%d.bk", 0);
    EXPECT_EQ(names(), std::vector{name});
    Blink::shutdown();  // stays mapped and held until the process ends
    Blink::pruneTraceFiles(directory(), "x-%d.bk", 0);
    EXPECT_EQ(names(), std::vector{name});
}

TEST_F(TraceFilesTest, ForeignFilesStay) {
    const std::string pid = std::to_string(kDead);
    const std::string header(100, '\0');
    leave("other-" + pid + ".bk", kDead, 9);        // another program
    leave("x-" + pid + ".bk.old", kDead, 9);        // put aside
    leave("x-" + pid + "1.bk", kDead, 9);           // says another process than its name
    leave("x-" + pid + "a.bk", kDead, 9);           // no number
    write("x-" + pid + "2.bk", "what is this", 9);  // no ring file
    fs::create_directory(directory() / ("x-" + pid + "3.bk"));
    fs::create_symlink(leave("elsewhere", kDead, 9), directory() / ("x-" + pid + "4.bk"));
    const auto before = names();
    Blink::pruneTraceFiles(directory(), "x-%d.bk", 0);
    EXPECT_EQ(names(), before);
}

TEST_F(TraceFilesTest, WhatAProcessDidNotFinishMakingGoesFirst) {
    const std::string pid = std::to_string(kDead);
    write("x-" + pid + ".bk", std::string(4096, '\0'), 0);
    leave("x-" + pid + "1.bk", kDead * 10 + 1, 5);
    Blink::pruneTraceFiles(directory(), "x-%d.bk", 4);
    EXPECT_EQ(names(), std::vector{"x-" + pid + "1.bk"});
}

TEST_F(TraceFilesTest, ANameWithoutAProcessIdIsOneFileAndNothingIsPruned) {
    leave("x.bk", kDead, 9);
    leave("x-1.bk", kDead, 9);
    Blink::pruneTraceFiles(directory(), "x.bk", 0);
    EXPECT_EQ(names().size(), 2U);
}

TEST_F(TraceFilesTest, ADirectoryThatIsNotThereIsNothingToPrune) {
    Blink::pruneTraceFiles(directory() / "none", "x-%d.bk", 0);
    EXPECT_TRUE(Blink::traceFiles(directory() / "none").empty());
}

TEST_F(TraceFilesTest, ThoseBeingWrittenAreListedFirstThenTheYoungest) {
    const auto oldest = leave("a.bk", kDead, 30);
    const auto younger = leave("b.bk", kDead, 20);
    write("text", "no ring file", 0);
    ASSERT_TRUE(makeFile());
    const fs::path own = Blink::defaultHandle()->path();
    fs::last_write_time(own, fs::file_time_type::clock::now() - 3600s);
    std::vector<fs::path> listed;
    for (const auto& info : Blink::traceFiles(directory())) { listed.push_back(info.path); }
    EXPECT_EQ(listed, (std::vector{own, younger, oldest}));
}

TEST_F(TraceFilesTest, WithoutRoomForAFileTheProcessSaysSoAndRunsOnWithoutOne) {
    int out[2];
    ASSERT_EQ(::pipe(out), 0);
    const pid_t child = ::fork();
    if (child == 0) {
        ::dup2(out[1], STDERR_FILENO);
        ::signal(SIGXFSZ, SIG_IGN);
        const rlimit little{4096, 4096};
        if (::setrlimit(RLIMIT_FSIZE, &little) != 0) { ::_exit(2); }
        const bool made = makeFile();
        BLINK_TRACE(5, Blink::handle("TraceFilesTest"), "goes nowhere");
        ::_exit(made ? 1 : 0);
    }
    ::close(out[1]);
    std::string said;
    for (char c = 0; ::read(out[0], &c, 1) == 1;) { said += c; }
    ::close(out[0]);
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    const std::string file = directory() / ("x-" + std::to_string(child) + ".bk");
    EXPECT_EQ(said, "cannot map trace file " + file + ": File too large\n");
    EXPECT_TRUE(names().empty());  // the half of it is gone, too
}

}  // namespace
