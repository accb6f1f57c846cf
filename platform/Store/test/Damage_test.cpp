#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <random>

#include "platform/Store/test/StoreFixture.h"

namespace Store {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

/// What may stand at a store's path besides a store: refused with directory, file and reason, by
/// readers and by writers, and never the end of the process.
class DamagedStoreTest : public StoreFixture {
protected:
    DamagedStoreTest() {
        auto writer = makeWriter();
        const TableId a = writer->tableIs("a", "t", TableKind::table);
        for (int i = 0; i < 500; ++i) { writer->put(a, std::to_string(i), std::string(300, 'x')); }
        EXPECT_EQ(writer->commit(), "");
    }
    std::filesystem::path data() const { return options.directory / "data.mdb"; }
    std::string refusal(Access access) {
        std::string error;
        EXPECT_EQ(Environment::open(options, access, error), nullptr);
        EXPECT_THAT(error, HasSubstr("store " + options.directory.string() + ": "));
        return error.substr(error.find(": ") + 2);
    }
    void expectRefused(const std::string& reason) {
        EXPECT_EQ(refusal(Access::read), reason);
        EXPECT_EQ(refusal(Access::write), reason);
    }
    void overwrite(std::size_t at, const std::string& bytes) {
        std::fstream file{data(), std::ios::binary | std::ios::in | std::ios::out};
        file.seekp(static_cast<std::streamoff>(at)).write(bytes.data(), std::ssize(bytes));
        ASSERT_TRUE(file.good());
    }
    /// Opens it in a child process; how the child ended, below 0 by a signal.
    int openInChild() {
        const pid_t child = ::fork();
        if (child == 0) {
            std::string error;
            ::_exit(Environment::open(options, Access::read, error) == nullptr ? 1 : 0);
        }
        int status = -1;
        ::waitpid(child, &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    }
};

TEST_F(DamagedStoreTest, ATruncatedDataFileIsRefusedWithBothLengths) {
    const auto whole = std::filesystem::file_size(data());
    EXPECT_EQ(whole, options.mapBytes) << "the length only; what is not written takes no space";
    for (const std::uintmax_t bytes :
         {std::uintmax_t{8192}, std::uintmax_t{12288}, std::uintmax_t{100'000}, whole - 1}) {
        std::filesystem::resize_file(data(), bytes);
        expectRefused("data.mdb is truncated: " + std::to_string(bytes) + " of " +
                      std::to_string(whole) + " bytes");
    }
}

TEST_F(DamagedStoreTest, ADataFileCutOffUnderAReaderIsTakenForGoneBeforeAnythingIsReadFromIt) {
    auto reader = makeReader();
    NotingMount mount;
    mount.mountIs(*reader, "a");
    settle();
    ASSERT_TRUE(mount.present());
    std::filesystem::resize_file(data(), 8192);
    settleAfterASecond();
    EXPECT_FALSE(reader->open());
    EXPECT_FALSE(mount.present());
    EXPECT_THAT(reader->lastError(), HasSubstr("data.mdb is truncated: 8192 of "));
}

TEST_F(DamagedStoreTest, AStoreWhoseMakerWasKilledIsNoneYetAndIsMadeAnew) {
    for (const std::uintmax_t bytes : {0, 1, 4096, 8191}) {
        std::filesystem::resize_file(data(), bytes);
        EXPECT_EQ(refusal(Access::read), "no store there yet");
        auto writer = makeWriter();
        EXPECT_EQ(writer->get(writer->tableIs("a", "t", TableKind::table), "1"), std::nullopt);
        writer->put(writer->tableIs("a", "t", TableKind::table), "1", "x");
        EXPECT_EQ(writer->commit(), "");
    }
}

TEST_F(DamagedStoreTest, GarbageInTheMetaPagesIsRefused) {
    struct Garbage {
        std::size_t at;
        std::string bytes;
        const char* reason;
    };
    constexpr std::size_t kPage = 4096;
    const char* const noStore = "data.mdb holds no store of this machine";
    const Garbage cases[] = {
        {16, "nonsense", noStore},
        {kPage + 16, "nonsense", noStore},
        {40, std::string(4, '\0'), noStore},         // pages of no bytes
        {40, std::string{"\1\0\0\1", 4}, noStore},   // of an odd number of bytes
        {0, std::string(kPage, '\xFF'), noStore},    // one page
        {0, std::string(2 * kPage, '\0'), noStore},  // both, by nothing
        {136, std::string(8, '\x7F'), "data.mdb holds meta pages that make no sense"},
        {128, std::string(8, '\x7F'), "data.mdb holds meta pages that make no sense"},
    };
    std::string before(2 * kPage, '\0');
    ASSERT_TRUE(std::ifstream(data(), std::ios::binary).read(before.data(), std::ssize(before)));
    for (const Garbage& garbage : cases) {
        overwrite(0, before);
        if (garbage.reason != noStore) {
            overwrite(kPage + garbage.at, garbage.bytes);  // whichever is the newer one
        }
        overwrite(garbage.at, garbage.bytes);
        expectRefused(garbage.reason);
    }
    overwrite(0, before);
    EXPECT_TRUE(makeReader()->open()) << "refusing does no harm";
}

TEST_F(DamagedStoreTest, RandomGarbageInTheMetaPagesNeverEndsTheProcessThatOpensIt) {
    std::string before(8192, '\0');
    ASSERT_TRUE(std::ifstream(data(), std::ios::binary).read(before.data(), std::ssize(before)));
    std::mt19937 random{3};
    for (int i = 0; i < 60; ++i) {
        std::string garbage(8, '\0');
        for (char& byte : garbage) { byte = static_cast<char>(random()); }
        const std::size_t at = random() % 152;
        overwrite(0, before);
        overwrite(at, garbage);
        overwrite(4096 + at, garbage);
        EXPECT_GE(openInChild(), 0) << "at " << at << ", round " << i;
    }
}

TEST_F(DamagedStoreTest, WhatIsNoDirectoryOrNoFileIsNamed) {
    std::filesystem::remove_all(options.directory);
    std::ofstream{options.directory} << "a file";
    expectRefused("is no directory");
    std::filesystem::remove(options.directory);
    std::filesystem::create_directories(data());
    expectRefused("data.mdb is no regular file");
    std::filesystem::remove(data());
    ASSERT_EQ(::mkfifo(data().c_str(), 0600), 0);
    expectRefused("data.mdb is no regular file");
}

TEST_F(DamagedStoreTest, AMissingDirectoryIsNoStoreYetAndMadeByTheWriter) {
    std::filesystem::remove_all(options.directory);
    EXPECT_EQ(refusal(Access::read), "no store there yet");
    EXPECT_NE(openToWrite(), nullptr);
}

TEST_F(DamagedStoreTest, ADirectoryThatCannotBeMadeIsNamed) {
    std::ofstream{dir.path() / "file"};
    options.directory = dir.path() / "file" / "store";
    expectRefused("Not a directory");
}

TEST_F(DamagedStoreTest, MissingRightsAreToldWithTheFile) {
    if (::geteuid() != 0) { GTEST_SKIP() << "needs root to become another user"; }
    ::chmod(dir.path().c_str(), 0755);
    const auto refusals = [this](mode_t directory, mode_t file, mode_t lock) {
        ::chmod(options.directory.c_str(), directory);
        ::chmod(data().c_str(), file);
        ::chmod((options.directory / "lock.mdb").c_str(), lock);
        int ends[2];
        EXPECT_EQ(::pipe(ends), 0);
        const pid_t child = ::fork();
        if (child == 0) {
            if (::setgid(12345) != 0 || ::setuid(12345) != 0) { ::_exit(1); }
            const std::string text = refusal(Access::read) + "; " + refusal(Access::write);
            ::_exit(::write(ends[1], text.data(), text.size()) < 0 ? 1 : 0);
        }
        ::close(ends[1]);
        ::waitpid(child, nullptr, 0);
        std::string text(1000, '\0');
        text.resize(
            static_cast<std::size_t>(std::max(ssize_t{0}, ::read(ends[0], text.data(), 1000))));
        ::close(ends[0]);
        return text;
    };
    EXPECT_EQ(refusals(0750, 0644, 0666), "Permission denied; Permission denied");
    EXPECT_EQ(refusals(0755, 0640, 0666),
              "data.mdb cannot be read: Permission denied; "
              "data.mdb cannot be read: Permission denied");
    EXPECT_EQ(refusals(0755, 0644, 0644),
              "lock.mdb cannot be written: Permission denied; "
              "lock.mdb cannot be written: Permission denied");
}

TEST_F(DamagedStoreTest, AGarbledLockFileIsMadeAnewWhenNobodyUsesIt) {
    std::ofstream{options.directory / "lock.mdb"} << std::string(70'000, 'x');
    auto writer = makeWriter();
    EXPECT_EQ(writer->get(writer->tableIs("a", "t", TableKind::table), "1"), std::string(300, 'x'));
}

/// Another store takes the place of the one that a reader has open.
class ReplacedFilesTest : public StoreFixture {
protected:
    void makeStore(const std::filesystem::path& directory, const std::string& key) {
        const Options before = options;
        options.directory = directory;
        {
            auto writer = makeWriter();
            writer->put(writer->tableIs("a", "t", TableKind::table), key, "x");
            ASSERT_EQ(writer->commit(), "");
        }
        options = before;
    }
    void expectReplaced(const std::function<void()>& replace) {
        makeStore(options.directory, "old");
        auto reader = makeReader();
        NotingMount mount;
        mount.mountIs(*reader, "a");
        settle();
        ASSERT_THAT(mount.keys(), ElementsAre("old"));
        const auto generation = reader->generation();
        mount.notes.clear();
        replace();
        settleAfterASecond();
        EXPECT_NE(reader->generation(), generation);
        EXPECT_THAT(mount.notes, ElementsAre("absent", "present", "old gone"));
        EXPECT_THAT(mount.keys(), ElementsAre("new"));
        EXPECT_EQ(mount.value("new"), "x");
        // And it is the new one's changes that are heard of.
        auto writer = makeWriter();
        writer->put(writer->tableIs("a", "t", TableKind::table), "newer", "x");
        ASSERT_EQ(writer->commit(), "");
        settle();
        EXPECT_THAT(mount.keys(), ElementsAre("new", "newer"));
    }
};

TEST_F(ReplacedFilesTest, ADirectoryRenamedOverIt) {
    expectReplaced([this] {
        makeStore(dir.path() / "other", "new");
        std::filesystem::rename(options.directory, dir.path() / "away");
        std::filesystem::rename(dir.path() / "other", options.directory);
    });
}

TEST_F(ReplacedFilesTest, FilesRenamedOverItsFiles) {
    expectReplaced([this] {
        makeStore(dir.path() / "other", "new");
        for (const char* file : {"lock.mdb", "data.mdb", "bell"}) {
            std::filesystem::rename(dir.path() / "other" / file, options.directory / file);
        }
    });
}

TEST_F(ReplacedFilesTest, DeletedAndMadeAgain) {
    expectReplaced([this] {
        std::filesystem::remove_all(options.directory);
        makeStore(options.directory, "new");
    });
}

TEST_F(ReplacedFilesTest, OneThatIsRefusedLeavesTheReaderWithoutAStoreUntilAGoodOneComes) {
    expectReplaced([this] {
        std::filesystem::remove_all(options.directory);
        std::filesystem::create_directories(options.directory);
        std::ofstream{options.directory / "data.mdb"} << std::string(65536, 'x');
        settleAfterASecond();
        std::filesystem::remove_all(options.directory);
        makeStore(options.directory, "new");
    });
}

}  // namespace
}  // namespace Store
