#include "forwarder/Publish/RetryingCommit.h"

#include <chrono>
#include <utility>

#include "forwarder/Publish/FlatStore.h"
#include "platform/Blink/Trace.h"
#include "platform/Store/Writer.h"

BLINK_TRACE_HANDLE("ForwarderPublish");

namespace Pel::Forwarder {

namespace {

constexpr Kiln::Duration kRetry = std::chrono::seconds{1};
constexpr std::size_t kFull = Store::Writer::kMaxRecords - FlatStore::kRecordsPerCall;

}  // namespace

bool RetryingCommit::full() const {
    return writer_.pending() >= kFull;
}

bool RetryingCommit::commit(std::size_t elements) {
    const bool nothing = elements == 0 && writer_.pending() == 0;
    std::string error = writer_.commit();
    if (error.empty() && nothing) { return true; }  // says nothing about the next one
    ++statistics_.transactions;
    if (error.empty()) {
        if (!failure_.empty()) { TRACE5("publishing goes on"); }
        failure_.clear();
        statistics_.records += elements;
        return true;
    }
    ++statistics_.failures;
    if (failure_ != error) { TRACE5("publishing stands still: {}", error); }
    failure_ = std::move(error);
    wakeAt_ = clock_.now() + kRetry;
    return false;
}

bool RetryingCommit::mustWait() {
    if (wakeAt_ && clock_.now() < *wakeAt_) { return true; }
    wakeAt_.reset();
    return false;
}

}  // namespace Pel::Forwarder
