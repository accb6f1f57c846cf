#include "PelOpenConfig/PelOpenConfigCliHelper.h"

#include <absl/container/inlined_vector.h>
#include <fmt/format.h>

#include <charconv>
#include <system_error>
#include <utility>

#include "PelOpenConfig/PelOpenConfigDestash.h"
#include "platform/Blink/Trace.h"
#include "platform/Vel/Assert.h"
#include "platform/Vel/Errors.h"

BLINK_TRACE_HANDLE("PelOpenConfigCliHelper");

namespace Pel::Oc {

CliHelper::CliHelper(Vel::Ref<const FlattenFecSet> flattenFecSet,
                     Vel::Ref<Stash::Manager> stashManager,
                     Mem::AnchorValidator* fecAv,
                     Mem::AnchorValidator* nhAv)
    : flattenFecSet_{std::move(flattenFecSet)},
      stashManager_{std::move(stashManager)},
      fecAv_{fecAv},
      nhAv_{nhAv} {}

FecId CliHelper::stringToNum(std::string_view text) {
    return FecId{decimal(text, "FEC id")};
}

std::uint64_t CliHelper::decimal(std::string_view text, std::string_view what) {
    std::uint64_t number = 0;
    const auto [end, problem] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (problem != std::errc{} || end != text.data() + text.size()) {
        throw Vel::RangeError{
            fmt::format("'{}' is no {}: a decimal number from 0 to {}", text, what, UINT64_MAX)};
    }
    return number;
}

void CliHelper::showPelAdjExport(FecId fecId, bool startDict) {
    TRACE9("FEC ID: {}, startDict {}", fecId, startDict);
    VEL_ASSERT(printer_ != nullptr);
    if (!flattenFecSet_->fec().has(fecId)) {
        printer_->cmdErr(fmt::format("% No FEC ID {} found", fecId.value()));
        return;
    }
    const auto entry = flattenFecSet_->fec().entry(fecId);
    if (entry && !entry->topFec) {
        TRACE7("Do not export bottom FEC ID: {}, startDict {}", fecId, startDict);
        return;
    }
    // An entry that does not verify, or has left the store and was not told yet, names no record.
    const auto dedupedFec =
        destashFec(entry ? entry->fecDedupedRawPtr() : Stash::Handle{}, stashManager_, fecAv_);
    if (!dedupedFec) {
        TRACE5("dedupedFec is null");
        return;
    }
    if (startDict) { printer_->openDict({}, "fecs"); }
    showDestashedFec(fecId, entry->programmedId, *dedupedFec, nullptr);
}

void CliHelper::showFec(FecId fecId, const Remarks& remarks) {
    TRACE9("FEC ID: {}", fecId);
    VEL_ASSERT(printer_ != nullptr);
    const auto entry = flattenFecSet_->fec().entry(fecId);
    const auto dedupedFec =
        destashFec(entry ? entry->fecDedupedRawPtr() : Stash::Handle{}, stashManager_, fecAv_);
    if (dedupedFec) {
        showDestashedFec(fecId, entry->programmedId, *dedupedFec, &remarks);
        return;
    }
    printer_->openDict("FEC ID: ", std::to_string(fecId.value()));
    remarks.ofFec(fecId, false, *printer_);
    printer_->endLine();
    printer_->closeDict();
}

void CliHelper::showDestashedFec(FecId fecId,
                                 std::uint64_t programmedId,
                                 const Stash::FlattenFec& fec,
                                 const Remarks* remarks) {
    printer_->openDict("FEC ID: ", std::to_string(fecId.value()));
    printer_->number(", programmed ID: ", "programmedId", programmedId);
    printer_->number(", number of next hops: ", {}, fec.nextHops());
    if (remarks != nullptr) { remarks->ofFec(fecId, true, *printer_); }
    printer_->endLine();
    printer_->openDict({}, "nextHops");
    for (std::uint32_t i = 0; i < fec.nextHops(); ++i) { showNextHop(fec.nextHop(i), remarks); }
    printer_->closeDict();
    printer_->closeDict();
}

void CliHelper::showNextHop(const Stash::FlattenFecMember& member, const Remarks* remarks) {
    const auto entry = flattenFecSet_->nextHop().entry(member.index);
    const auto dedupedNextHop = destashNextHop(
        entry ? entry->nextHopDedupedRawPtr() : Stash::Handle{}, stashManager_, nhAv_);
    if (!dedupedNextHop) {
        TRACE5("dedupedNextHop is null");
        if (remarks == nullptr) { return; }
    }
    printer_->openDict("\tNext hop index: ", member.index.stringValue());
    printer_->number(", weight ", "weight", member.weight);
    if (remarks != nullptr) {
        remarks->ofNextHop(member.index, dedupedNextHop != nullptr, *printer_);
    }
    printer_->endLine();
    if (dedupedNextHop) { showDetails(*dedupedNextHop, remarks == nullptr); }
    printer_->closeDict();
}

void CliHelper::showDetails(const Stash::FlattenFecNextHop& nextHop, bool strict) {
    printer_->string("\t\tIP address: ", "ipAddress", nextHop.address.stringValue());
    printer_->endLine();
    printer_->string("\t\tMAC address: ", "macAddress", nextHop.mac.stringValue());
    printer_->endLine();
    printer_->string("\t\tInterface: ", "interface", nextHop.interface.stringValue());
    printer_->endLine();
    showLabels(nextHop.labels, strict);
    printer_->boolean("\t\tPop top label: ", "popTopLabel", nextHop.popTopLabel);
    printer_->endLine();
}

void CliHelper::showLabels(const Nexo::MplsLabelStack& labels, bool strict) {
    absl::InlinedVector<std::uint32_t, 4> values;
    try {
        for (std::uint32_t i = 0; i < labels.labels(); ++i) {
            values.push_back(labels.label(Nexo::MplsStackEntryIndex{i}).value());
        }
        printer_->numbers("\t\tLabels: ", "labels", values);
    } catch (const Vel::RangeError& error) {
        if (strict) { throw; }
        printer_->string("\t\tLabels: NOT readable: ", "labelsProblem", error.what());
    }
    printer_->endLine();
}

}  // namespace Pel::Oc
