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
    std::uint64_t number = 0;
    const auto [end, problem] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (problem != std::errc{} || end != text.data() + text.size()) {
        throw Vel::RangeError{
            fmt::format("'{}' is no FEC id: a decimal number from 0 to {}", text, UINT64_MAX)};
    }
    return FecId{number};
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
    printer_->openDict("FEC ID: ", std::to_string(fecId.value()));
    printer_->number(", programmed ID: ", "programmedId", entry->programmedId);
    printer_->number(", number of next hops: ", {}, dedupedFec->nextHops());
    printer_->endLine();
    printer_->openDict({}, "nextHops");
    for (std::uint32_t i = 0; i < dedupedFec->nextHops(); ++i) {
        showNextHop(dedupedFec->nextHop(i));
    }
    printer_->closeDict();
    printer_->closeDict();
}

void CliHelper::showNextHop(const Stash::FlattenFecMember& member) {
    const auto entry = flattenFecSet_->nextHop().entry(member.index);
    const auto dedupedNextHop = destashNextHop(
        entry ? entry->nextHopDedupedRawPtr() : Stash::Handle{}, stashManager_, nhAv_);
    if (!dedupedNextHop) {
        TRACE5("dedupedNextHop is null");
        return;
    }
    printer_->openDict("\tNext hop index: ", member.index.stringValue());
    printer_->number(", weight ", "weight", member.weight);
    printer_->endLine();
    printer_->string("\t\tIP address: ", "ipAddress", dedupedNextHop->address.stringValue());
    printer_->endLine();
    printer_->string("\t\tMAC address: ", "macAddress", dedupedNextHop->mac.stringValue());
    printer_->endLine();
    printer_->string("\t\tInterface: ", "interface", dedupedNextHop->interface.stringValue());
    printer_->endLine();
    showLabels(dedupedNextHop->labels);
    printer_->boolean("\t\tPop top label: ", "popTopLabel", dedupedNextHop->popTopLabel);
    printer_->endLine();
    printer_->closeDict();
}

void CliHelper::showLabels(const Nexo::MplsLabelStack& labels) {
    absl::InlinedVector<std::uint32_t, 4> values;
    for (std::uint32_t i = 0; i < labels.labels(); ++i) {
        values.push_back(labels.label(Nexo::MplsStackEntryIndex{i}).value());
    }
    printer_->numbers("\t\tLabels: ", "labels", values);
    printer_->endLine();
}

}  // namespace Pel::Oc
