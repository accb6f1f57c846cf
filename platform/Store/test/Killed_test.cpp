#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <random>
#include <thread>

#include "platform/Store/test/StoreFixture.h"

namespace Store {
namespace {

constexpr int kKeys = 50;

/// A writer of another process, killed at any instruction.
class KilledWriterTest : public StoreFixture {
protected:
    /// Rewrites all keys with one and the same number in each transaction, until it is killed.
    [[noreturn]] void writeForEver() {
        std::string error;
        Writer writer{Environment::open(options, Access::write, error)};
        const TableId a = writer.tableIs("a", "t", TableKind::table);
        for (std::uint64_t n = numberOf(writer.get(a, "0").value_or("")) + 1;; ++n) {
            const std::string value = std::to_string(n) + std::string(n % 300, '.');
            for (int key = 0; key < kKeys; ++key) { writer.put(a, std::to_string(key), value); }
            if (!writer.commit().empty()) { ::_exit(1); }
        }
    }
    static std::uint64_t numberOf(std::string_view value) {
        std::uint64_t number = 0;
        for (const char c : value.substr(0, value.find('.'))) {
            number = number * 10 + static_cast<std::uint64_t>(c - '0');
        }
        return number;
    }
    pid_t startWriter() {
        const pid_t child = ::fork();
        if (child == 0) { writeForEver(); }
        return child;
    }
};

TEST_F(KilledWriterTest, ReaderNeverSeesTornDataAndTheNextWriterContinues) {
    // Children are forked while the reader is open: each uses an environment of its own.
    Kiln::SteadyClock steady;
    const auto realScheduler =
        Vel::make<Kiln::TaskScheduler>(steady, std::make_unique<Kiln::NeverYield>());
    pid_t child = startWriter();
    const auto reader = Vel::make<Reader>(realScheduler, options);
    NotingMount mount;
    mount.mountIs(*reader, "a");
    mount.reaction = [&](const std::string&) { mount.notes.clear(); };
    std::uint64_t last = 0;
    std::uint64_t torn = 0;
    std::uint64_t looks = 0;
    Kiln::Task look{realScheduler, "look", 5, [&] {
                        const std::string first = mount.value("0");
                        if (first == "gone") { return false; }
                        ++looks;
                        for (int key = 1; key < kKeys; ++key) {
                            torn += mount.value(std::to_string(key)) == first ? 0 : 1;
                        }
                        torn += numberOf(first) >= last ? 0 : 1;
                        last = numberOf(first);
                        return false;
                    }};
    const auto lookUntil = [&](auto done, const char* what) {
        const auto deadline = steady.now() + std::chrono::minutes{2};
        while (!done()) {
            ASSERT_LT(steady.now(), deadline) << what << "; last number " << last;
            look.schedule();
            realScheduler->runUntilIdle();
        }
    };
    std::mt19937 random{1};
    constexpr int kKills = 50;
    for (int kill = 0; kill < kKills; ++kill) {
        const std::uint64_t before = last;
        ASSERT_NO_FATAL_FAILURE(
            lookUntil([&] { return last > before; }, "the next writer does not continue"));
        const auto until = steady.now() + std::chrono::microseconds{random() % 5000};
        ASSERT_NO_FATAL_FAILURE(lookUntil([&] { return steady.now() >= until; }, "time"));
        ::kill(child, SIGKILL);
        ::waitpid(child, nullptr, 0);
        child = startWriter();
    }
    ::kill(child, SIGKILL);
    ::waitpid(child, nullptr, 0);
    EXPECT_EQ(torn, 0u);
    EXPECT_GE(looks, static_cast<std::uint64_t>(kKills));
    // What the last one committed is there in full, whether it rang the bell or not.
    auto writer = makeWriter();
    const TableId a = writer->tableIs("a", "t", TableKind::table);
    const std::string first{writer->get(a, "0").value_or("")};
    for (int key = 0; key < kKeys; ++key) { EXPECT_EQ(writer->get(a, std::to_string(key)), first); }
    EXPECT_GE(numberOf(first), last);
}

TEST_F(KilledWriterTest, AReadersDeathDoesNotMakeTheStoreGrow) {
    options.logCapacity = 10;
    auto writer = makeWriter();
    const TableId a = writer->tableIs("a", "t", TableKind::table);
    writer->put(a, "key", "value");
    ASSERT_EQ(writer->commit(), "");
    int ready[2];
    ASSERT_EQ(::pipe(ready), 0);
    const pid_t child = ::fork();
    if (child == 0) {
        const auto reader = makeReader();
        const auto value = reader->read(a, "key");  // and never gives the transaction back
        const char byte = value ? 'y' : 'n';
        if (::write(ready[1], &byte, 1) != 1) { ::_exit(1); }
        for (;;) { ::pause(); }
    }
    char byte = 0;
    ASSERT_EQ(::read(ready[0], &byte, 1), 1);
    ASSERT_EQ(byte, 'y');
    ::kill(child, SIGKILL);
    ::waitpid(child, nullptr, 0);
    const auto growthOf = [&](int commits) {
        const std::size_t before = writer->environment().usedBytes();
        for (int i = 0; i < commits; ++i) {
            writer->put(a, "key", std::string(3000, static_cast<char>('a' + i % 26)));
            EXPECT_EQ(writer->commit(), "");
        }
        return writer->environment().usedBytes() - before;
    };
    auto reader = makeReader();
    settleAfterASecond();  // the reader of this process clears the dead one
    growthOf(100);
    EXPECT_EQ(growthOf(1000), 0u);
    // The control: a reader that is alive and stands still does make it grow.
    ASSERT_TRUE(reader->read(a, "key"));
    EXPECT_GT(growthOf(1000), std::size_t{1000} * 4096);
    settle();
    growthOf(100);
    EXPECT_EQ(growthOf(1000), 0u) << "it uses again what it had grown by";
    ::close(ready[0]);
    ::close(ready[1]);
}

/// What a reader in another process is told, until it has seen the key "after": stopped by itself
/// when it is told of the key "stop", inside its transaction.
[[noreturn]] void readStopAndReport(const Options& options, int report) {
    Kiln::VirtualClock clock;
    const auto scheduler =
        Vel::make<Kiln::TaskScheduler>(clock, std::make_unique<Kiln::NeverYield>());
    const auto reader = Vel::make<Reader>(scheduler, options);
    NotingMount mount;
    mount.mountIs(*reader, "a");
    scheduler->runUntilIdle();
    mount.notes.clear();
    if (::write(report, "ready\n", 6) != 6) { ::_exit(1); }
    bool stopped = false;
    mount.reaction = [&](const std::string& key) {
        if (key != "stop" || std::exchange(stopped, true)) { return; }
        ::raise(SIGSTOP);
    };
    while (!mount.has("after")) {
        ::usleep(1000);
        clock.advance(std::chrono::seconds{1});
        scheduler->runUntilIdle();
    }
    std::string text;
    for (const std::string& note : mount.notes) { text += note + "\n"; }
    ::_exit(::write(report, text.data(), text.size()) == std::ssize(text) ? 0 : 1);
}

TEST_F(KilledWriterTest, AReaderThatStandsStillIsNamedWhenTheStoreIsFullAndSweepsWhenItGoesOn) {
    options.mapBytes = std::size_t{4} << 20;
    options.logCapacity = 10;
    auto writer = makeWriter();
    const TableId a = writer->tableIs("a", "t", TableKind::table);
    for (const char* key : {"gone", "key", "kept"}) { writer->put(a, key, "x"); }
    ASSERT_EQ(writer->commit(), "");
    int report[2];
    ASSERT_EQ(::pipe(report), 0);
    const pid_t child = ::fork();
    if (child == 0) { readStopAndReport(options, report[1]); }
    ::close(report[1]);
    std::array<char, 1000> text;
    ASSERT_EQ(::read(report[0], text.data(), text.size()), 6);
    writer->put(a, "stop", "x");
    ASSERT_EQ(writer->commit(), "");
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, WUNTRACED), child);
    ASSERT_TRUE(WIFSTOPPED(status));

    writer->erase(a, "gone");
    std::string failure = writer->commit();
    int commits = 0;
    for (; failure.empty() && commits < 100'000; ++commits) {
        writer->put(a, "key", std::string(3000, static_cast<char>('a' + commits % 26)));
        failure = writer->commit();
    }
    EXPECT_NE(failure.find("full: its limit of 4194304 bytes is reached; process " +
                           std::to_string(child) + " stands still while it reads"),
              std::string::npos)
        << failure;
    EXPECT_GT(commits, 100);
    auto reader = makeReader();
    EXPECT_EQ(reader->read(a, "kept"), "x") << "others are served";
    settle();

    ASSERT_EQ(::kill(child, SIGCONT), 0);
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds{60};
    while (!failure.empty() && std::chrono::steady_clock::now() < deadline) {
        ::usleep(1000);
        writer->put(a, "after", "x");
        failure = writer->commit();
    }
    EXPECT_EQ(failure, "");
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    const ssize_t size = ::read(report[0], text.data(), text.size());
    const std::string_view told{text.data(), static_cast<std::size_t>(std::max(ssize_t{0}, size))};
    EXPECT_EQ(told.substr(0, 11), "stop there\n");
    for (const char* note : {"gone gone\n", "key there\n", "kept there\n", "after there\n"}) {
        EXPECT_NE(told.find(note), std::string_view::npos) << note << "in\n" << told;
    }
    ::close(report[0]);
}

/// Runs in a child with a file system of its own. The child's exit status, 99: not permitted.
int onSmallFileSystem(const std::filesystem::path& directory, const std::function<int()>& body) {
    const pid_t child = ::fork();
    if (child == 0) {
        if (::unshare(CLONE_NEWNS) != 0 ||
            ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
            ::mount("tmpfs", directory.c_str(), "tmpfs", 0, "size=2m") != 0) {
            ::_exit(99);
        }
        ::_exit(body());
    }
    int status = -1;
    ::waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

TEST_F(KilledWriterTest, AFullFileSystemIsToldAndLetsTheWriterGoOnOnceThereIsSpace) {
    const int result = onSmallFileSystem(dir.path(), [this] {
        auto writer = makeWriter();
        const TableId a = writer->tableIs("a", "t", TableKind::table);
        writer->put(a, "key", "before");
        if (!writer->commit().empty()) { return 1; }
        const std::filesystem::path filler = dir.path() / "filler";
        const int fd = ::open(filler.c_str(), O_WRONLY | O_CREAT, 0600);
        const std::string page(4096, 'x');
        while (::write(fd, page.data(), page.size()) > 0) {}
        ::close(fd);
        const auto publish = [&] {
            writer->put(a, "key", "after");
            for (int i = 0; i < 100; ++i) { writer->put(a, std::to_string(i), page); }
            return writer->commit();
        };
        const std::string error = publish();
        if (error.find("file system full") == std::string::npos) { return 2; }
        // Readers enter themselves, and see what was last committed.
        std::vector<Vel::Ref<Reader>> readers;
        for (int i = 0; i < 200; ++i) {
            readers.push_back(makeReader());
            if (readers.back()->read(a, "key") != "before") { return 3; }
        }
        if (publish().empty()) { return 4; }
        std::filesystem::remove(filler);
        if (!publish().empty()) { return 5; }
        settleAfterASecond();
        return readers.back()->read(a, "key") == "after" ? 0 : 6;
    });
    if (result == 99) { GTEST_SKIP() << "needs the right to mount"; }
    EXPECT_EQ(result, 0);
}

TEST_F(KilledWriterTest, TwoThreadsMayOpenAndCloseTheSameStore) {
    { auto writer = makeWriter(); }
    const auto openAndClose = [this] {
        for (int i = 0; i < 300; ++i) {
            std::string error;
            const auto environment = Environment::open(options, Access::write, error);
            ASSERT_NE(environment, nullptr) << error;
            ASSERT_TRUE(environment->current());
        }
    };
    std::thread other{openAndClose};
    openAndClose();
    other.join();
}

}  // namespace
}  // namespace Store
