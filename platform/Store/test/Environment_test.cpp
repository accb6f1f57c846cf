#include "platform/Store/Environment.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <lmdb.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>

#include "platform/Store/Identity.h"
#include "platform/Store/test/StoreFixture.h"

namespace Store {
namespace {

using testing::HasSubstr;

class EnvironmentTest : public StoreFixture {
protected:
    /// Writes another identity into the (closed) store, as another program or boot would have.
    void identityIs(const Identity& identity) {
        MDB_env* env = nullptr;
        MDB_txn* txn = nullptr;
        MDB_dbi meta = 0;
        ASSERT_EQ(mdb_env_create(&env), 0);
        mdb_env_set_maxdbs(env, 3);
        ASSERT_EQ(mdb_env_open(env, options.directory.c_str(), MDB_NOTLS, 0640), 0);
        ASSERT_EQ(mdb_txn_begin(env, nullptr, 0, &txn), 0);
        ASSERT_EQ(mdb_dbi_open(txn, "meta", 0, &meta), 0);
        std::string name = "identity";
        std::string bytes = identity.encode();
        MDB_val key{name.size(), name.data()};
        MDB_val value{bytes.size(), bytes.data()};
        ASSERT_EQ(mdb_put(txn, meta, &key, &value, 0), 0);
        ASSERT_EQ(mdb_txn_commit(txn), 0);
        mdb_env_close(env);
    }
    void writeOneRecord() {
        auto writer = makeWriter();
        writer->put(writer->tableIs("a", "t", TableKind::table), "key", "value");
        ASSERT_EQ(writer->commit(), "");
    }
    std::shared_ptr<Environment> openToRead() {
        return Environment::open(options, Access::read, error);
    }
    mode_t modeOf(const char* file) const {
        struct stat status {};
        EXPECT_EQ(::stat((options.directory / file).c_str(), &status), 0);
        return status.st_mode & 0777;
    }
    /// Runs in a child process; its exit status.
    static int inChild(const std::function<int()>& body) {
        const pid_t child = ::fork();
        if (child == 0) { ::_exit(body()); }
        int status = -1;
        ::waitpid(child, &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
    std::string error;
};

TEST_F(EnvironmentTest, WriterCreatesIt) {
    const auto environment = openToWrite();
    ASSERT_NE(environment, nullptr);
    EXPECT_NE(environment->generation(), 0u);
    EXPECT_TRUE(environment->current());
    EXPECT_GT(environment->usedBytes(), 0u);
    EXPECT_TRUE(std::filesystem::exists(environment->bellPath()));
}

TEST_F(EnvironmentTest, FilesAreOfTheOwnerAndReadableForTheGroup) {
    const mode_t before = ::umask(0077);
    const auto environment = openToWrite();
    ::umask(before);
    EXPECT_EQ(modeOf("data.mdb"), 0640u);
    EXPECT_EQ(modeOf("lock.mdb"), 0660u) << "readers enter themselves";
    EXPECT_EQ(modeOf(""), 0750u);
}

TEST_F(EnvironmentTest, ReaderDoesNotCreateIt) {
    EXPECT_EQ(openToRead(), nullptr);
    EXPECT_THAT(error, HasSubstr(options.directory.string()));
    EXPECT_THAT(error, HasSubstr("no store there yet"));
    EXPECT_FALSE(std::filesystem::exists(options.directory));
}

TEST_F(EnvironmentTest, ReaderDoesNotTakeAnUnfinishedStore) {
    std::filesystem::create_directories(options.directory);
    std::ofstream{options.directory / "data.mdb"};
    EXPECT_EQ(openToRead(), nullptr);
    EXPECT_THAT(error, HasSubstr("no store there yet"));
}

TEST_F(EnvironmentTest, OneObjectPerDirectoryAndProcess) {
    const auto first = openToWrite();
    EXPECT_EQ(openToWrite(), first);
    EXPECT_EQ(openToRead(), first);
    options.directory = options.directory / ".." / options.directory.filename();
    EXPECT_EQ(openToRead(), first) << "under another name of the directory";
}

TEST_F(EnvironmentTest, AnotherObjectForFilesThatWereReplaced) {
    const auto first = openToWrite();
    std::filesystem::remove_all(options.directory);
    EXPECT_FALSE(first->current());
    const auto second = openToWrite();
    ASSERT_NE(second, nullptr);
    EXPECT_NE(second, first);
    EXPECT_NE(second->generation(), first->generation());
    EXPECT_TRUE(second->current());
}

TEST_F(EnvironmentTest, SameStoreKeepsItsGeneration) {
    const auto generation = openToWrite()->generation();
    EXPECT_EQ(openToWrite()->generation(), generation);
    EXPECT_EQ(openToRead()->generation(), generation);
}

TEST_F(EnvironmentTest, AnotherLayoutVersionIsRefusedWithBothNamed) {
    writeOneRecord();
    Identity identity = Identity::make();
    identity.version = 7;
    identityIs(identity);
    for (const Access access : {Access::read, Access::write}) {
        EXPECT_EQ(Environment::open(options, access, error), nullptr);
        EXPECT_EQ(error,
                  "store " + options.directory.string() +
                      ": has layout version 7, this program reads version 1");
    }
}

TEST_F(EnvironmentTest, AnotherByteOrderIsRefused) {
    writeOneRecord();
    Identity identity = Identity::make();
    identity.byteOrder = 0x04030201;
    identityIs(identity);
    EXPECT_EQ(openToRead(), nullptr);
    EXPECT_THAT(error, HasSubstr("byte order"));
}

TEST_F(EnvironmentTest, AnotherBootsStoreIsAbsentForAReaderAndReplacedByTheWriter) {
    writeOneRecord();
    Identity identity = Identity::make();
    identity.boot[0] = identity.boot[0] == 'x' ? 'y' : 'x';
    identityIs(identity);
    EXPECT_EQ(openToRead(), nullptr);
    EXPECT_THAT(error, HasSubstr("is of another boot"));

    auto writer = makeWriter();
    EXPECT_NE(writer->environment().generation(), identity.generation);
    EXPECT_EQ(writer->get(writer->tableIs("a", "t", TableKind::table), "key"), std::nullopt);
    EXPECT_EQ(writer->commit(), "");
    EXPECT_NE(openToRead(), nullptr);
}

TEST_F(EnvironmentTest, AFileThatIsNoStoreIsRefused) {
    std::filesystem::create_directories(options.directory);
    std::ofstream{options.directory / "data.mdb"} << std::string(65536, 'x');
    EXPECT_EQ(openToRead(), nullptr);
    EXPECT_THAT(error, HasSubstr("holds no store"));
    EXPECT_EQ(Environment::open(options, Access::write, error), nullptr);
    EXPECT_THAT(error, HasSubstr("holds no store"));
}

TEST_F(EnvironmentTest, PermissionsAreNamed) {
    if (::geteuid() != 0) { GTEST_SKIP() << "needs root to become another user"; }
    writeOneRecord();
    ::chmod(dir.path().c_str(), 0755);
    ::chmod(options.directory.c_str(), 0755);
    EXPECT_EQ(inChild([&] {
                  if (::setgid(12345) != 0 || ::setuid(12345) != 0) { return 1; }
                  if (openToRead() != nullptr) { return 2; }
                  if (error.find("Permission denied") == std::string::npos) { return 3; }
                  if (Environment::open(options, Access::write, error) != nullptr) { return 4; }
                  return error.find("Permission denied") == std::string::npos ? 5 : 0;
              }),
              0);
}

TEST_F(EnvironmentTest, AReaderOfTheGroupReadsAndCannotWrite) {
    if (::geteuid() != 0) { GTEST_SKIP() << "needs root to become another user"; }
    writeOneRecord();
    ::chmod(dir.path().c_str(), 0755);
    for (const char* file : {"", "data.mdb", "lock.mdb", "bell"}) {
        ASSERT_EQ(::chown((options.directory / file).c_str(), 0, 12345), 0);
    }
    EXPECT_EQ(inChild([&] {
                  if (::setgid(12345) != 0 || ::setuid(12345) != 0) { return 1; }
                  const auto reader = makeReader();
                  if (!reader->open()) { return 2; }
                  const auto table = reader->table("a");
                  if (!table || reader->read(table->id, "key") != "value") { return 3; }
                  if (Environment::open(options, Access::write, error) != nullptr) { return 4; }
                  return error.find("Permission denied") == std::string::npos ? 5 : 0;
              }),
              0);
}

}  // namespace
}  // namespace Store
