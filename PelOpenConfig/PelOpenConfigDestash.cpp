#include "PelOpenConfig/PelOpenConfigDestash.h"

#include "platform/Blink/Trace.h"
#include "platform/Vel/Assert.h"

BLINK_TRACE_HANDLE("PelOpenConfigDestash");

namespace Pel {

Vel::Ref<const Stash::FlattenFec> destashFec(const Stash::Handle& writerFec,
                                             const Vel::Ref<Stash::Manager>& storeManager,
                                             Mem::AnchorValidator* av) {
    if (!writerFec) {
        TRACE5("destashFec: writerFec is null");
        return nullptr;
    }
    VEL_ASSERT_TEXT(storeManager->anchorValidator() == nullptr, "We saw a stale AnchorValidator");
    const Mem::AnchorValidatorGuard guard{*storeManager, av};
    try {
        return Stash::destash<Stash::FlattenFec>(writerFec, *storeManager);
    } catch (const Stash::VersionMismatchException&) {
        TRACE5("Hit VersionMismatchException destashing writerFec");
    } catch (const Stash::CorruptionDetectedException&) {
        TRACE5("Hit CorruptionDetectedException destashing writerFec");
    }
    return nullptr;
}

Vel::Ref<const Stash::FlattenFecNextHop> destashNextHop(
    const Stash::Handle& writerNextHop,
    const Vel::Ref<Stash::Manager>& storeManager,
    Mem::AnchorValidator* av) {
    if (!writerNextHop) {
        TRACE5("writerNextHop is null");
        return nullptr;
    }
    VEL_ASSERT_TEXT(storeManager->anchorValidator() == nullptr, "We saw a stale AnchorValidator");
    const Mem::AnchorValidatorGuard guard{*storeManager, av};
    try {
        return Stash::destash<Stash::FlattenFecNextHop>(writerNextHop, *storeManager);
    } catch (const Stash::VersionMismatchException&) {
        // The text is searched for in traces as it has always been written.
        TRACE5("Hit VersionMismatchExcception destashing writerNextHop");
    } catch (const Stash::CorruptionDetectedException&) {
        TRACE5("Hit CorruptionDetectedException destashing writerNextHop");
    }
    return nullptr;
}

}  // namespace Pel
