#include "PelOpenConfig/PelOpenConfigDestash.h"

#include "PelOpenConfig/test/ExportFixture.h"

namespace Pel::Oc {
namespace {

class Destash : public ExportFixture {
protected:
    Stash::Handle fecHandle() {
        Stash::FlattenFec fec;
        fec.nextHopIs({nh(7), 3});
        const Stash::Handle handle =
            contents.contentIs(Stash::RecordCodec<Stash::FlattenFec>::encode(fec));
        publish();
        return handle;
    }
    Stash::Handle nextHopHandle() {
        Stash::FlattenFecNextHop nextHop;
        fill(nextHop);
        const Stash::Handle handle =
            contents.contentIs(Stash::RecordCodec<Stash::FlattenFecNextHop>::encode(nextHop));
        publish();
        return handle;
    }
    Stash::Handle rubbish() {
        const Stash::Handle handle = contents.contentIs("rubbish");
        publish();
        return handle;
    }
    static Stash::Handle recycled(Stash::Handle handle) {
        ++handle.version;
        return handle;
    }
    int levelOf(const std::string& text) const {
        for (const Blink::Message& message : traces.messages()) {
            if (message.text == text) { return message.level; }
        }
        return 0;
    }
    Mem::AnchorValidator* fecAv() const { return anchorValidatorCtx->fecAv(); }
    Mem::AnchorValidator* nhAv() const { return anchorValidatorCtx->nhAv(); }
};

TEST_F(Destash, AFecAndANextHopAreReadUnderTheirValidators) {
    const auto fec = destashFec(fecHandle(), stashManager, fecAv());
    ASSERT_NE(fec, nullptr);
    EXPECT_EQ(fec->nextHop(0).weight, 3U);
    const auto nextHop = destashNextHop(nextHopHandle(), stashManager, nhAv());
    ASSERT_NE(nextHop, nullptr);
    EXPECT_EQ(nextHop->interface.stringValue(), "eth1");
    EXPECT_EQ(stashManager->anchorValidator(), nullptr);
}

TEST_F(Destash, ANullWriterIsNullWithItsTraceAndLeavesNoValidator) {
    EXPECT_EQ(destashFec({}, stashManager, fecAv()), nullptr);
    EXPECT_EQ(levelOf("destashFec: writerFec is null"), 5);
    EXPECT_EQ(destashNextHop({}, stashManager, nhAv()), nullptr);
    EXPECT_EQ(levelOf("writerNextHop is null"), 5);
    EXPECT_EQ(stashManager->anchorValidator(), nullptr);
}

TEST_F(Destash, AVersionMismatchIsNullAndTheNextReadWorks) {
    const Stash::Handle handle = fecHandle();
    EXPECT_EQ(destashFec(recycled(handle), stashManager, fecAv()), nullptr);
    EXPECT_EQ(levelOf("Hit VersionMismatchException destashing writerFec"), 5);
    EXPECT_EQ(stashManager->anchorValidator(), nullptr);
    EXPECT_NE(destashFec(handle, stashManager, fecAv()), nullptr);
}

TEST_F(Destash, TheNextHopVersionMismatchIsSpelledAsItAlwaysWas) {
    const Stash::Handle handle = nextHopHandle();
    EXPECT_EQ(destashNextHop(recycled(handle), stashManager, nhAv()), nullptr);
    EXPECT_EQ(levelOf("Hit VersionMismatchExcception destashing writerNextHop"), 5);
    EXPECT_NE(destashNextHop(handle, stashManager, nhAv()), nullptr);
}

TEST_F(Destash, CorruptionIsNullWithItsTraceAndTheNextReadWorks) {
    const Stash::Handle bad = rubbish();
    EXPECT_EQ(destashFec(bad, stashManager, fecAv()), nullptr);
    EXPECT_EQ(levelOf("Hit CorruptionDetectedException destashing writerFec"), 5);
    EXPECT_EQ(destashNextHop(bad, stashManager, nhAv()), nullptr);
    EXPECT_EQ(levelOf("Hit CorruptionDetectedException destashing writerNextHop"), 5);
    EXPECT_EQ(stashManager->anchorValidator(), nullptr);
}

TEST_F(Destash, WithoutAValidatorTheVersionIsNotLookedAt) {
    EXPECT_NE(destashFec(recycled(fecHandle()), stashManager, nullptr), nullptr);
}

TEST_F(Destash, ARecordThatIsGoneIsNull) {
    EXPECT_EQ(destashFec({999, 1}, stashManager, fecAv()), nullptr);
}

using DestashDeathTest = Destash;

TEST_F(DestashDeathTest, AStaleValidatorIsABrokenPrecondition) {
    const Stash::Handle handle = fecHandle();
    stashManager->anchorValidatorIs(fecAv());
    EXPECT_DEATH(destashFec(handle, stashManager, fecAv()), "We saw a stale AnchorValidator");
    EXPECT_DEATH(destashNextHop(handle, stashManager, nhAv()), "We saw a stale AnchorValidator");
    stashManager->anchorValidatorIs(nullptr);
}

}  // namespace
}  // namespace Pel::Oc
