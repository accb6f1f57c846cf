#include <gmock/gmock.h>

#include <algorithm>
#include <numeric>
#include <ostream>
#include <random>

#include "platform/Store/test/StoreFixture.h"

namespace Store {
namespace {

using testing::HasSubstr;

struct FullCase {
    std::string_view name;
    std::size_t mapBytes;
    std::size_t valueBytes;
    std::uint64_t logCapacity;
};
void PrintTo(const FullCase& row, std::ostream* to) {
    *to << row.name;
}
constexpr FullCase kCases[] = {
    {"SmallRecords", std::size_t{1} << 20, 20, 1 << 20},
    {"RecordsOfAFewHundredBytes", std::size_t{1} << 20, 300, 1 << 20},
    {"RecordsOfAPage", std::size_t{2} << 20, 3000, 1 << 20},
    {"RecordsOfSeveralPages", std::size_t{4} << 20, 9000, 1 << 20},
    {"AShortLog", std::size_t{2} << 20, 300, 50},
    {"ALargerMap", std::size_t{8} << 20, 300, 1 << 20},
};

/// A store filled to its limit.
class FullStoreTest : public StoreFixture, public testing::WithParamInterface<FullCase> {
protected:
    void fill() {
        options.mapBytes = GetParam().mapBytes;
        options.logCapacity = GetParam().logCapacity;
        writer = makeWriter();
        table = writer->tableIs("a", "t", TableKind::table);
        ASSERT_EQ(writer->commit(), "");
        // In large transactions first, then to the last record that fits.
        for (const int batch : {256, 16, 1}) {
            for (std::string failure; failure.empty();) {
                for (int i = 0; i < batch; ++i) { put(records + i, 'a'); }
                failure = writer->commit();
                if (failure.empty()) { records += batch; }
                last = failure;
            }
        }
        ASSERT_GT(records, 100);
    }
    static std::string key(int record) { return KeyCodec<std::uint64_t>::encode(unsigned(record)); }
    void put(int record, char letter) {
        writer->put(table, key(record), std::string(GetParam().valueBytes, letter));
    }
    /// What failed for lack of pages that were about to come free may be repeated at once.
    std::string commitOf(const std::function<void()>& change) {
        change();
        if (writer->commit().empty()) { return {}; }
        change();
        return writer->commit();
    }
    std::unique_ptr<Writer> writer;
    TableId table = 0;
    int records = 0;
    std::string last;
};

TEST_P(FullStoreTest, SaysSoWithItsLimitAndServesWhatItHas) {
    ASSERT_NO_FATAL_FAILURE(fill());
    EXPECT_EQ(last,
              "store " + options.directory.string() + ": full: its limit of " +
                  std::to_string(options.mapBytes) + " bytes is reached");
    auto reader = makeReader();
    NotingMount mount;
    mount.mountIs(*reader, "a");
    settle();
    EXPECT_EQ(mount.keys().size(), static_cast<std::size_t>(records));
    EXPECT_EQ(mount.value(key(records - 1)), std::string(GetParam().valueBytes, 'a'));
    EXPECT_EQ(mount.value(key(records)), "gone");
}

TEST_P(FullStoreTest, ALittleDeletedLetsPublishingGoOn) {
    ASSERT_NO_FATAL_FAILURE(fill());
    const int some = std::max(40, records / 10);
    ASSERT_EQ(commitOf([&] {
                  for (int i = 0; i < some; ++i) { writer->erase(table, key(i)); }
              }),
              "");
    // Pages that are partly used do not come free; most of the place does.
    ASSERT_EQ(commitOf([&] {
                  for (int i = 0; i < some / 4; ++i) { put(records + i, 'b'); }
              }),
              "");
    EXPECT_EQ(writer->get(table, key(records)), std::string(GetParam().valueBytes, 'b'));
}

TEST_P(FullStoreTest, EveryRecordCanBeDeletedInAnyOrderOneByOne) {
    ASSERT_NO_FATAL_FAILURE(fill());
    std::vector<int> order(static_cast<std::size_t>(records));
    std::iota(order.begin(), order.end(), 0);
    std::shuffle(order.begin(), order.end(), std::mt19937{7});
    for (const int record : order) {
        ASSERT_EQ(commitOf([&] { writer->erase(table, key(record)); }), "") << record;
    }
    ASSERT_EQ(commitOf([&] { put(0, 'b'); }), "");
}

TEST_P(FullStoreTest, RecordsOfEqualSizeCanBeReplacedForEver) {
    ASSERT_NO_FATAL_FAILURE(fill());
    std::mt19937 random{7};
    for (int i = 0; i < 3000; ++i) {
        const int record = static_cast<int>(random() % static_cast<unsigned>(records));
        const char letter = static_cast<char>('b' + i % 20);
        ASSERT_EQ(commitOf([&] { put(record, letter); }), "") << i;
    }
    ASSERT_EQ(commitOf([&] { writer->erase(table, key(0)); }), "");
}

INSTANTIATE_TEST_SUITE_P(, FullStoreTest, testing::ValuesIn(kCases), [](const auto& row) {
    return std::string{row.param.name};
});

/// The reserve is of the records; nobody who deletes has to know of it.
class FullWriterTest : public StoreFixture {};

TEST_F(FullWriterTest, TheReserveIsAnEighthAndAtMost16MB) {
    EXPECT_EQ(Writer::reserveBytes(std::size_t{1} << 20), std::size_t{1} << 17);
    EXPECT_EQ(Writer::reserveBytes(std::size_t{4} << 30), std::size_t{16} << 20);
}

TEST_F(FullWriterTest, AWholeTableCanBeRemovedWhenNothingElseFits) {
    options.mapBytes = std::size_t{2} << 20;
    auto writer = makeWriter();
    const TableId a = writer->tableIs("a", "t", TableKind::table);
    int records = 0;
    for (std::string failure; failure.empty(); ++records) {
        writer->put(a, std::to_string(records), std::string(1000, 'x'));
        failure = writer->commit();
        if (!failure.empty()) { EXPECT_THAT(failure, HasSubstr("full")); }
    }
    EXPECT_GT(records, 500);
    writer->tableDel("a");
    std::string failure = writer->commit();
    if (!failure.empty()) {
        writer->tableDel("a");
        failure = writer->commit();
    }
    EXPECT_EQ(failure, "");
    const TableId b = writer->tableIs("b", "t", TableKind::table);
    for (int i = 0; i < 300; ++i) {
        writer->put(b, std::to_string(i), std::string(1000, 'x'));
        ASSERT_EQ(writer->commit(), "");
    }
}

}  // namespace
}  // namespace Store
