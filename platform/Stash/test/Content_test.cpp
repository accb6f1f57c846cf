#include <gmock/gmock.h>

#include "platform/Stash/ContentLayout.h"
#include "platform/Stash/test/StashFixture.h"

namespace Pel::Stash {
namespace {

class ContentTest : public Store::StoreFixture {
protected:
    Handle contentIs(std::string_view content) {
        const Handle handle = contents.contentIs(content);
        commit();
        return handle;
    }
    void contentDel(const Handle& handle) {
        contents.contentDel(handle);
        commit();
    }
    void commit() {
        ASSERT_EQ(writer->commit(), "");
        settleAfterASecond();  // contents are not logged and ring no bell
    }
    std::string read(const Handle& handle) {
        const auto bytes = manager->content(handle);
        return bytes ? std::string{*bytes} : "none";
    }
    /// Changes one byte of the stored record.
    void flip(const Handle& handle, std::size_t at) {
        const auto table = writer->tableIs(kContentPath, kContentType, Store::TableKind::content);
        const std::string key = Store::KeyCodec<std::uint64_t>::encode(handle.record);
        std::string bytes{*writer->get(table, key)};
        bytes[at] = static_cast<char>(bytes[at] ^ 1);
        writer->put(table, key, bytes);
        commit();
    }
    std::unique_ptr<Store::Writer> writer = makeWriter();
    ContentPublisher contents{*writer};
    Vel::Ref<Store::Reader> reader = makeReader();
    Vel::Ref<Manager> manager = Vel::make<Manager>(reader);
    Mem::AnchorValidator validator;
};

TEST_F(ContentTest, EqualContentsShareOneRecord) {
    ASSERT_TRUE(contents.valid());
    const Handle a = contentIs("one");
    const Handle b = contentIs("two");
    EXPECT_EQ(contentIs("one"), a);
    EXPECT_NE(a, b);
    EXPECT_TRUE(a);
    EXPECT_EQ(read(a), "one");
    EXPECT_EQ(read(b), "two");
    EXPECT_EQ(read(contentIs("")), "");
}

TEST_F(ContentTest, TheRecordGoesWithItsLastUser) {
    const Handle a = contentIs("one");
    contentIs("one");
    contentDel(a);
    EXPECT_EQ(read(a), "one");
    contentDel(a);
    EXPECT_EQ(read(a), "none");
    contentDel(a);
    EXPECT_EQ(read(a), "none");
}

TEST_F(ContentTest, ARecycledIdHasAnotherVersion) {
    const Handle a = contentIs("one");
    contentDel(a);
    const Handle b = contentIs("two");
    EXPECT_EQ(b.record, a.record);
    EXPECT_NE(b.version, a.version);
    contentDel(a);
    EXPECT_EQ(read(b), "two") << "the old handle lets go of nothing";
    contentDel(b);
    EXPECT_EQ(contentIs("three").version, b.version + 1);
    const Handle fresh = contentIs("four");
    EXPECT_NE(fresh.record, a.record);
}

TEST_F(ContentTest, TheSmallestFreeIdIsTakenFirst) {
    std::vector<Handle> handles;
    for (const char* content : {"1", "2", "3", "4"}) { handles.push_back(contentIs(content)); }
    contentDel(handles[2]);
    contentDel(handles[1]);
    EXPECT_EQ(contentIs("5").record, handles[1].record);
    EXPECT_EQ(contentIs("6").record, handles[2].record);
    EXPECT_GT(contentIs("7").record, handles[3].record);
}

TEST_F(ContentTest, CountsSurviveTheProducer) {
    const Handle a = contentIs("one");
    writer.reset();
    writer = makeWriter();
    contents = ContentPublisher{*writer};
    EXPECT_EQ(contentIs("one"), a);
    contentDel(a);
    EXPECT_EQ(read(a), "one");
    contentDel(a);
    EXPECT_EQ(read(a), "none");
}

TEST_F(ContentTest, AnAbortedTransactionCountsNothing) {
    const Handle a = contentIs("one");
    contents.contentIs("one");
    const Handle lost = contents.contentIs("two");
    writer->abort();
    EXPECT_EQ(read(lost), "none");
    contentDel(a);
    EXPECT_EQ(read(a), "none");
}

TEST_F(ContentTest, ContentsOfEqualHashesAreKeptApart) {
    const Handle a = contentIs("one");
    const Handle b = contentIs("two");
    // As if the hash of "three" were that of the two others.
    const auto byHash = writer->tableIs(kHashPath, kHashType, Store::TableKind::content);
    std::string ids;
    Store::appendBigEndian(ids, a.record);
    Store::appendBigEndian(ids, b.record);
    writer->put(byHash, Store::KeyCodec<std::uint64_t>::encode(contentHash("three")), ids);
    const Handle c = contentIs("three");
    EXPECT_NE(c.record, a.record);
    EXPECT_NE(c.record, b.record);
    EXPECT_EQ(contentIs("three"), c);
    EXPECT_EQ(read(c), "three");
    contentDel(c);
    contentDel(c);
    EXPECT_EQ(read(c), "none");
    EXPECT_EQ(writer->get(byHash, Store::KeyCodec<std::uint64_t>::encode(contentHash("three"))),
              ids)
        << "the others stay in the list";
    writer->abort();
}

TEST_F(ContentTest, NullAndUnknownHandlesReadAsMissing) {
    EXPECT_EQ(read(Handle{}), "none");
    EXPECT_EQ(read(Handle{12345, 1}), "none");
    EXPECT_EQ(destash<Text>(Handle{}, *manager), nullptr);
    EXPECT_EQ(destash<Text>(Handle{12345, 1}, *manager), nullptr);
}

TEST_F(ContentTest, WithoutAStoreEverythingIsMissing) {
    const Handle a = contentIs("one");
    writer.reset();
    std::filesystem::remove_all(options.directory);
    settleAfterASecond();
    EXPECT_EQ(read(a), "none");
    writer = makeWriter();
    contents = ContentPublisher{*writer};
    settleAfterASecond();
    EXPECT_EQ(read(contentIs("new")), "new") << "in the new store's table";
}

TEST_F(ContentTest, AValidatorRefusesAnotherVersion) {
    const Handle a = contentIs("one");
    contentDel(a);
    const Handle b = contentIs("two");
    {
        const Mem::AnchorValidatorGuard guard{*manager, &validator};
        EXPECT_THROW(manager->content(a), VersionMismatchException);
        EXPECT_FALSE(validator.valid());
        EXPECT_EQ(read(b), "two");
        EXPECT_TRUE(validator.valid());
        EXPECT_THROW(destash<Text>(a, *manager), VersionMismatchException);
    }
    EXPECT_EQ(read(a), "two") << "nobody asked for the version";
}

TEST_F(ContentTest, FlippedBytesAreCorruption) {
    const Handle a = contentIs("content");
    constexpr std::size_t kHeader = 16;
    for (std::size_t at = 8; at < kHeader + 7; ++at) {  // hash and content
        flip(a, at);
        EXPECT_THROW(manager->content(a), CorruptionDetectedException) << at;
        EXPECT_THROW(destash<Text>(a, *manager), CorruptionDetectedException) << at;
        flip(a, at);
        EXPECT_EQ(read(a), "content");
    }
}

TEST_F(ContentTest, AFrameTooShortIsCorruption) {
    const Handle a = contentIs("content");
    writer->put(writer->tableIs(kContentPath, kContentType, Store::TableKind::content),
                Store::KeyCodec<std::uint64_t>::encode(a.record),
                "short");
    commit();
    EXPECT_THROW(manager->content(a), CorruptionDetectedException);
    contentDel(a);  // the producer is not stopped by it either
    EXPECT_EQ(read(contentIs("content")), "content");
}

TEST_F(ContentTest, ARecordThatDoesNotVerifyIsCorruption) {
    EXPECT_EQ(destash<Text>(contentIs("good"), *manager)->text, "good");
    EXPECT_THROW(destash<Text>(contentIs("bad record"), *manager), CorruptionDetectedException);
}

TEST_F(ContentTest, TheGuardInitialisesAndRemovesTheValidatorOnEveryWayOut) {
    validator.check(Handle{1, 1}, 2);
    EXPECT_FALSE(validator.valid());
    try {
        const Mem::AnchorValidatorGuard guard{*manager, &validator};
        EXPECT_TRUE(validator.valid());
        EXPECT_EQ(manager->anchorValidator(), &validator);
        throw VersionMismatchException{"on purpose"};
    } catch (const VersionMismatchException&) { EXPECT_EQ(manager->anchorValidator(), nullptr); }
    const Mem::AnchorValidatorGuard none{*manager, nullptr};
    EXPECT_EQ(manager->anchorValidator(), nullptr);
}

}  // namespace
}  // namespace Pel::Stash
