#include "platform/Store/Writer.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <lmdb.h>
#include <sys/stat.h>

#include "platform/Store/test/StoreFixture.h"

namespace Store {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

class WriterTest : public StoreFixture {
protected:
    Strings contents(Writer& writer, TableId table) {
        Strings all;
        writer.forEach(table, [&](std::string_view key, std::string_view value) {
            all.push_back(std::string{key} + "=" + std::string{value});
            return true;
        });
        return all;
    }
};

TEST_F(WriterTest, ReadsInsideItsTransaction) {
    auto writer = makeWriter();
    const TableId a = writer->tableIs("a", "t", TableKind::table);
    const TableId b = writer->tableIs("b", "t", TableKind::table);
    writer->put(a, "2", "two");
    writer->put(a, "1", "one");
    writer->put(b, "1", "other");
    EXPECT_EQ(writer->get(a, "1"), "one");
    EXPECT_EQ(writer->get(a, "3"), std::nullopt);
    EXPECT_THAT(contents(*writer, a), ElementsAre("1=one", "2=two"));
    writer->erase(a, "1");
    writer->erase(a, "never there");
    EXPECT_THAT(contents(*writer, a), ElementsAre("2=two"));
    EXPECT_THAT(contents(*writer, b), ElementsAre("1=other"));
}

TEST_F(WriterTest, ForEachStopsWhenToldTo) {
    auto writer = makeWriter();
    const TableId a = writer->tableIs("a", "t", TableKind::table);
    for (const char* key : {"1", "2", "3"}) { writer->put(a, key, ""); }
    Strings seen;
    writer->forEach(a, [&](std::string_view key, std::string_view) {
        seen.emplace_back(key);
        return seen.size() < 2;
    });
    EXPECT_THAT(seen, ElementsAre("1", "2"));
}

TEST_F(WriterTest, ForEachBeginsAtTheKeyOrBehindIt) {
    auto writer = makeWriter();
    const TableId a = writer->tableIs("a", "t", TableKind::table);
    const TableId b = writer->tableIs("b", "t", TableKind::table);
    for (const char* key : {"1", "3", "5"}) { writer->put(a, key, ""); }
    writer->put(b, "7", "of another table");
    const auto from = [&](std::string_view key) {
        Strings seen;
        const auto visit = [&](std::string_view found, std::string_view) {
            seen.emplace_back(found);
            return true;
        };
        writer->forEach(a, visit, key);
        return seen;
    };
    EXPECT_THAT(from("3"), ElementsAre("3", "5"));
    EXPECT_THAT(from("4"), ElementsAre("5"));
    EXPECT_THAT(from("6"), ElementsAre());
    EXPECT_THAT(from(""), ElementsAre("1", "3", "5"));
}

TEST_F(WriterTest, ValuesOfAnySizeReplaceEachOther) {
    auto writer = makeWriter();
    const TableId a = writer->tableIs("a", "t", TableKind::table);
    for (const std::size_t size : {0, 10, 10, 5000, 200, 100000, 0}) {
        const std::string value(size, static_cast<char>('a' + size % 7));
        writer->put(a, "neighbour", value + "n");
        writer->put(a, "key", value);
        ASSERT_EQ(writer->commit(), "");
        EXPECT_EQ(writer->get(a, "key"), value);
        EXPECT_EQ(writer->get(a, "neighbour"), value + "n");
    }
}

TEST_F(WriterTest, FindsATableAgainAndRefusesAnotherTypeOrKind) {
    auto writer = makeWriter();
    const TableId a = writer->tableIs("a", "t", TableKind::table);
    EXPECT_NE(a, 0u);
    EXPECT_EQ(writer->tableIs("a", "t", TableKind::table), a);
    EXPECT_NE(writer->tableIs("b", "t", TableKind::table), a);
    EXPECT_EQ(writer->tableIs("a", "other", TableKind::table), 0u);
    EXPECT_EQ(writer->tableIs("a", "t", TableKind::stash), 0u);
    ASSERT_EQ(writer->commit(), "");
    EXPECT_EQ(makeWriter()->tableIs("a", "t", TableKind::table), a);
}

TEST_F(WriterTest, RemovesATableWithItsRecordsOnlyAndNeverReusesItsId) {
    auto writer = makeWriter();
    const TableId a = writer->tableIs("a", "t", TableKind::table);
    const TableId b = writer->tableIs("b", "t", TableKind::table);
    writer->put(a, "1", "one");
    writer->put(b, "1", "other");
    writer->tableDel("a");
    writer->tableDel("never there");
    const TableId again = writer->tableIs("a", "t", TableKind::table);
    EXPECT_GT(again, b);
    EXPECT_THAT(contents(*writer, a), ElementsAre());
    EXPECT_THAT(contents(*writer, again), ElementsAre());
    EXPECT_THAT(contents(*writer, b), ElementsAre("1=other"));
    EXPECT_EQ(writer->commit(), "");
}

TEST_F(WriterTest, AnAbortedTransactionLeavesNothingButItsTableIdsStayGood) {
    auto writer = makeWriter();
    const TableId a = writer->tableIs("a", "t", TableKind::table);
    writer->put(a, "1", "one");
    EXPECT_EQ(writer->pending(), 2u);
    writer->abort();
    EXPECT_EQ(writer->pending(), 0u);
    {
        auto reader = makeReader();
        EXPECT_EQ(reader->table("a"), std::nullopt);
    }
    writer->put(a, "2", "two");
    ASSERT_EQ(writer->commit(), "");
    EXPECT_THAT(contents(*writer, a), ElementsAre("2=two"));
    auto reader = makeReader();
    ASSERT_TRUE(reader->table("a").has_value());
    EXPECT_EQ(reader->table("a")->id, a);
}

TEST_F(WriterTest, WhatWasNotCommittedDiesWithTheWriter) {
    auto writer = makeWriter();
    const TableId a = writer->tableIs("a", "t", TableKind::table);
    ASSERT_EQ(writer->commit(), "");
    writer->put(a, "1", "one");
    writer.reset();
    EXPECT_EQ(makeWriter()->get(a, "1"), std::nullopt);
}

TEST_F(WriterTest, CommitOfNothingIsNothing) {
    auto writer = makeWriter();
    EXPECT_EQ(writer->commit(), "");
    const TableId a = writer->tableIs("a", "t", TableKind::table);
    writer->put(a, "1", "one");
    ASSERT_EQ(writer->commit(), "");
    writer->put(a, "1", "one");
    EXPECT_EQ(writer->pending(), 0u);
    EXPECT_EQ(writer->commit(), "");
}

TEST_F(WriterTest, AFullMapAbortsIsToldAndLetsTheCallerGoOn) {
    options.mapBytes = std::size_t{1} << 20;
    auto writer = makeWriter();
    const TableId a = writer->tableIs("a", "t", TableKind::table);
    writer->put(a, "kept", "value");
    ASSERT_EQ(writer->commit(), "");
    const std::string large(10'000, 'x');
    for (int i = 0; i < 200; ++i) { writer->put(a, "large" + std::to_string(i), large); }
    EXPECT_EQ(writer->get(a, "kept"), std::nullopt) << "operations do nothing until commit()";
    EXPECT_EQ(
        writer->commit(),
        "store " + options.directory.string() + ": full: its limit of 1048576 bytes is reached");
    EXPECT_THAT(contents(*writer, a), ElementsAre("kept=value"));
    for (int i = 0; i < 20; ++i) { writer->put(a, "large" + std::to_string(i), large); }
    EXPECT_EQ(writer->commit(), "");
    EXPECT_EQ(contents(*writer, a).size(), 21u);
}

TEST_F(WriterTest, AKeyTooLongFailsTheTransaction) {
    auto writer = makeWriter();
    const TableId a = writer->tableIs("a", "t", TableKind::table);
    writer->put(a, std::string(507, 'k'), "fits");
    ASSERT_EQ(writer->commit(), "");
    writer->put(a, std::string(508, 'k'), "does not");
    EXPECT_THAT(writer->commit(), HasSubstr("a key of 508 bytes; the limit is 507"));
    EXPECT_EQ(writer->get(a, std::string(600, 'k')), std::nullopt);
    writer->erase(a, std::string(600, 'k'));
    EXPECT_EQ(writer->commit(), "");
}

TEST_F(WriterTest, ARecordOfNoTableFailsTheTransaction) {
    auto writer = makeWriter();
    writer->put(0, "registry", "is not for callers");
    EXPECT_THAT(writer->commit(), HasSubstr("not registered"));
    writer->erase(77, "x");
    EXPECT_THAT(writer->commit(), HasSubstr("not registered"));
}

TEST_F(WriterTest, TheLogIsBounded) {
    options.logCapacity = 10;
    auto writer = makeWriter();
    const TableId a = writer->tableIs("a", "t", TableKind::table);
    for (int i = 0; i < 100; ++i) {
        writer->put(a, "key", std::to_string(i));
        ASSERT_EQ(writer->commit(), "");
    }
    MDB_txn* txn = nullptr;
    MDB_stat status{};
    MDB_env* env = writer->environment().handle();
    ASSERT_EQ(mdb_txn_begin(env, nullptr, MDB_RDONLY, &txn), 0);
    ASSERT_EQ(mdb_stat(txn, writer->environment().databases().log, &status), 0);
    mdb_txn_abort(txn);
    EXPECT_EQ(status.ms_entries, 10u);
}

TEST(KeyCodec, ByteOrderIsNumberOrder) {
    const std::uint64_t numbers[] = {0, 1, 255, 256, 65536, std::uint64_t{1} << 40, UINT64_MAX};
    for (const std::uint64_t a : numbers) {
        const std::string bytes = KeyCodec<std::uint64_t>::encode(a);
        EXPECT_EQ(KeyCodec<std::uint64_t>::decode(bytes), a);
        for (const std::uint64_t b : numbers) {
            EXPECT_EQ(bytes < KeyCodec<std::uint64_t>::encode(b), a < b);
        }
    }
    EXPECT_EQ(KeyCodec<std::uint64_t>::decode("1234567"), std::nullopt);
    EXPECT_EQ(KeyCodec<std::uint64_t>::decode("123456789"), std::nullopt);
}

TEST_F(WriterTest, TheTimeOfTheLastCommitThatChangedSomethingIsKept) {
    const auto writer = makeWriter();
    const auto table = writer->tableIs("table", "t", TableKind::table);
    writer->put(table, "a", "1");
    ASSERT_EQ(writer->commit(), "");
    const timespec longAgo[] = {{1000, 7}, {1000, 7}};
    const auto bell = writer->environment().bellPath();
    ASSERT_EQ(::utimensat(AT_FDCWD, bell.c_str(), longAgo, 0), 0);
    writer->put(table, "a", "1");
    ASSERT_EQ(writer->commit(), "");
    EXPECT_EQ(writer->environment().lastCommit(), 1000'000'000'007);
    writer->put(table, "a", "2");
    ASSERT_EQ(writer->commit(), "");
    EXPECT_GT(writer->environment().lastCommit(), 1000'000'000'007);
    std::filesystem::remove(bell);
    EXPECT_EQ(writer->environment().lastCommit(), std::nullopt);
}

}  // namespace
}  // namespace Store
