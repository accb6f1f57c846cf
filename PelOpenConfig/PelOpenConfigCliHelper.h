#pragma once

#include <cstdint>
#include <string_view>

#include "model/Fec/FlattenFec.h"
#include "model/Fec/FlattenFecNextHop.h"
#include "model/Fec/FlattenFecSet.h"
#include "platform/AgentHost/CliPrinter.h"
#include "platform/Stash/Manager.h"

namespace Pel::Oc {

/// Renders FECs of the flattened set, each read from the stash at that moment. One for all
/// requests: each sets its printer for the time of its slice.
class CliHelper final : public Vel::RefCounted {
public:
    /// The validators are the set's, which the helper keeps alive; null: read without validation.
    CliHelper(Vel::Ref<const FlattenFecSet> flattenFecSet,
              Vel::Ref<Stash::Manager> stashManager,
              Mem::AnchorValidator* fecAv,
              Mem::AnchorValidator* nhAv);

    /// The FEC id of a decimal text. Anything else, or more than 64 bits, raises a Vel::RangeError.
    static FecId stringToNum(std::string_view text);

    /// Renders one FEC to the printer, if it is a top FEC that can be read; a next hop that cannot
    /// be read is left out. A missing FEC is a command error. A next hop with more labels than can
    /// be read raises a Vel::RangeError; what was rendered before it stays.
    /// @param startDict nobody has opened "fecs", the dictionary around all FECs
    void showPelAdjExport(FecId fecId, bool startDict);

    const Vel::Ref<const FlattenFecSet>& flattenFecSet() const { return flattenFecSet_; }
    /// Borrowed, for the time of a slice; null between two.
    void printerIs(AgentHost::CliPrinter* printer) { printer_ = printer; }
    AgentHost::CliPrinter* printer() const { return printer_; }
    /// How many times requests have yielded.
    std::uint64_t yieldCount() const { return yieldCount_; }
    void yieldCountInc() { ++yieldCount_; }

private:
    void showNextHop(const Stash::FlattenFecMember& member);
    void showLabels(const Nexo::MplsLabelStack& labels);

    Vel::Ref<const FlattenFecSet> flattenFecSet_;
    Vel::Ref<Stash::Manager> stashManager_;
    Mem::AnchorValidator* fecAv_;
    Mem::AnchorValidator* nhAv_;
    AgentHost::CliPrinter* printer_ = nullptr;
    std::uint64_t yieldCount_ = 0;
};

}  // namespace Pel::Oc
