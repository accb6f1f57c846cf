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
    /// Sets the printer for the time of a slice.
    class PrinterGuard {
    public:
        PrinterGuard(CliHelper& helper, AgentHost::CliPrinter& printer) : helper_{helper} {
            helper_.printerIs(&printer);
        }
        PrinterGuard(const PrinterGuard&) = delete;
        PrinterGuard& operator=(const PrinterGuard&) = delete;
        ~PrinterGuard() { helper_.printerIs(nullptr); }

    private:
        CliHelper& helper_;
    };

    /// What is to be said of a FEC or next hop, at the end of its line, beside what the stash has of
    /// it. Readable: its record could be read now.
    class Remarks {
    public:
        virtual ~Remarks() = default;
        virtual void ofFec(FecId fecId, bool readable, AgentHost::CliPrinter& to) const = 0;
        virtual void ofNextHop(Stash::OcNextHopIndex index,
                               bool readable,
                               AgentHost::CliPrinter& to) const = 0;
    };

    /// The validators are the set's, which the helper keeps alive; null: read without validation.
    CliHelper(Vel::Ref<const FlattenFecSet> flattenFecSet,
              Vel::Ref<Stash::Manager> stashManager,
              Mem::AnchorValidator* fecAv,
              Mem::AnchorValidator* nhAv);

    /// The FEC id of a decimal text. Anything else, or more than 64 bits, raises a Vel::RangeError.
    static FecId stringToNum(std::string_view text);
    /// The same for any id; the error calls it `what`.
    static std::uint64_t decimal(std::string_view text, std::string_view what);

    /// Renders one FEC to the printer, if it is a top FEC that can be read; a next hop that cannot
    /// be read is left out. A missing FEC is a command error. A next hop with more labels than can
    /// be read raises a Vel::RangeError; what was rendered before it stays.
    /// @param startDict nobody has opened "fecs", the dictionary around all FECs
    void showPelAdjExport(FecId fecId, bool startDict);
    /// Renders the FEC in the same form, whatever is the matter with it: also a bottom FEC and next
    /// hops that cannot be read, each with what the remarks say. Raises nothing.
    void showFec(FecId fecId, const Remarks& remarks);

    const Vel::Ref<const FlattenFecSet>& flattenFecSet() const { return flattenFecSet_; }
    /// Borrowed, for the time of a slice; null between two.
    void printerIs(AgentHost::CliPrinter* printer) { printer_ = printer; }
    AgentHost::CliPrinter* printer() const { return printer_; }
    /// How many times requests have yielded.
    std::uint64_t yieldCount() const { return yieldCount_; }
    void yieldCountInc() { ++yieldCount_; }

private:
    void showDestashedFec(FecId fecId,
                          std::uint64_t programmedId,
                          const Stash::FlattenFec& fec,
                          const Remarks* remarks);
    void showNextHop(const Stash::FlattenFecMember& member, const Remarks* remarks);
    /// Strict: more labels than can be read raise a Vel::RangeError, else they are said to be too
    /// many.
    void showDetails(const Stash::FlattenFecNextHop& nextHop, bool strict);
    void showLabels(const Nexo::MplsLabelStack& labels, bool strict);

    Vel::Ref<const FlattenFecSet> flattenFecSet_;
    Vel::Ref<Stash::Manager> stashManager_;
    Mem::AnchorValidator* fecAv_;
    Mem::AnchorValidator* nhAv_;
    AgentHost::CliPrinter* printer_ = nullptr;
    std::uint64_t yieldCount_ = 0;
};

}  // namespace Pel::Oc
