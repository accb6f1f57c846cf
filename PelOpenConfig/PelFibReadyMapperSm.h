#pragma once

#include <memory>
#include <string>
#include <utility>

#include "PelOpenConfig/LmoSmControl.h"
#include "model/Aft/FibReadyContainer.h"
#include "model/Readiness/FecReadyTrackingState.h"
#include "platform/Vel/Attribute.h"
#include "platform/Vel/Sm.h"

namespace Pel::Oc {
class FibReadyMapperSm;
}

namespace LumoCode::FibReadyMapperSm {

/// Which inputs have been scanned in the pass under way.
class InputSmScanState final : public Vel::RefCounted {
public:
    bool lmo_pipeline1Scan() const { return pipeline1Scan_.get(); }
    void lmo_pipeline1ScanIs(bool scanned) { pipeline1Scan_.set(scanned); }
    Vel::Publisher<>& onLmo_pipeline1Scan() const { return pipeline1Scan_.changed(); }
    bool lmo_pipeline0Scan() const { return pipeline0Scan_.get(); }
    void lmo_pipeline0ScanIs(bool scanned) { pipeline0Scan_.set(scanned); }
    Vel::Publisher<>& onLmo_pipeline0Scan() const { return pipeline0Scan_.changed(); }
    bool idle() const { return idle_.get(); }
    void idleIs(bool idle) { idle_.set(idle); }
    Vel::Publisher<>& onIdle() const { return idle_.changed(); }
    void handleIdle() { idleIs(true); }

private:
    Vel::Attribute<bool> pipeline1Scan_{false};
    Vel::Attribute<bool> pipeline0Scan_{false};
    Vel::Attribute<bool> idle_{false};
};

/// Whether the output agrees with the inputs.
class OutputState final : public Vel::RefCounted {
public:
    /// The output has been reconciled once after the initial scans.
    bool frcFecReadyOutputReady() const { return frcFecReadyOutputReady_.get(); }
    void frcFecReadyOutputReadyIs(bool ready) { frcFecReadyOutputReady_.set(ready); }
    bool ready() const { return ready_.get(); }
    void readyIs(bool ready) { ready_.set(ready); }
    void handleReady() { readyIs(true); }
    Vel::Publisher<>& onReady() const { return ready_.changed(); }

private:
    Vel::Attribute<bool> frcFecReadyOutputReady_{false};
    Vel::Attribute<bool> ready_{false};
};

/// Watches one input of the machine: scans it in the initial pass (which only says that it is
/// there), once more after the pass (which applies it), and drives its pipeline on each event.
class InputWatcher : public Vel::Sm {
public:
    enum class ScanState { notScanned, scannedInitially, complete };
    struct Completion {
        bool done;
        ScanState value;
    };

    /// The parent owns the watcher and outlives it.
    InputWatcher(Pel::Oc::FibReadyMapperSm& parent, std::string scanName);
    ~InputWatcher() override;

    void scanTaskIs(const Lmo::SmControl& control, std::string taskName);
    void doInputScan();
    /// Done when the scan is complete or the initial pass is over.
    Completion inputScanComplete() const;
    /// Never for a synchronous watcher or one without a task.
    bool shouldYield() const;
    bool synchronous() const;
    bool hasScanTask() const { return task_ != nullptr; }
    /// Drops what it holds.
    virtual void doDeleteAll();

protected:
    Pel::Oc::FibReadyMapperSm& parent() const { return parent_; }
    /// Whether the scan state asks for a scan now.
    bool scanWanted() const;
    /// Moves the scan state on; answers the name of the scan that ended.
    std::string scanEnded();
    virtual void performScan() = 0;

private:
    Pel::Oc::FibReadyMapperSm& parent_;
    std::string scanName_;
    ScanState scanState_ = ScanState::notScanned;
    Vel::Ref<Kiln::TaskScheduler> scheduler_;
    std::unique_ptr<Kiln::Task> task_;
};

/// Input of pipeline 0: both halves of the readiness record.
class FrtcSm0 final : public InputWatcher {
public:
    FrtcSm0(Pel::Oc::FibReadyMapperSm& parent, Vel::Ref<const Pel::FecReadyTrackingState> frtc);
    void handleNhReadyMAnhgReady0();
    void doInputScan0();
    void doDeleteAll() override;

private:
    void performScan() override { doInputScan0(); }
    Vel::Ref<const Pel::FecReadyTrackingState> frtc_;
    Vel::Subscription onNhReady_;
    Vel::Subscription onNhgReady_;
};

/// Input of pipeline 1: the machine's own `deleting`.
class BuiltinSmAttrNdeletingSm1 final : public InputWatcher {
public:
    explicit BuiltinSmAttrNdeletingSm1(Pel::Oc::FibReadyMapperSm& parent);
    void doInputScan1();

private:
    void performScan() override { doInputScan1(); }
};

}  // namespace LumoCode::FibReadyMapperSm

namespace Pel::Oc {

/// Turns the two halves of the readiness record into the exported flag.
///
///   input                              handler                          output
///   frtc nhReady, nhgReady             handleNhReadyMAnhgReady0         frc.fecReady = true (latches)
///   deleting                           handleBuiltinSmAttrNdeleting     frc.fecReady = false (the
///                                                                       only way down)
///   scan of both inputs done           handleFrcFecReadyOutputInputReady, handleInitialScanDone
///   owner lets go                      handleCleanup                    as deleting
///
/// Inputs are scanned twice, each time in a task: a first pass finds that they are there, the second
/// applies them. Events that come before the first pass is over are left to the scan.
class FibReadyMapperSm final : public Vel::Sm {
public:
    /// A null argument is a broken precondition, and so is a control record without a scheduler
    /// unless it says synchronous.
    FibReadyMapperSm(Vel::Ref<const FecReadyTrackingState> frtc,
                     Vel::Ref<OcApi::FibReadyContainer> frc,
                     Lmo::SmControl control);
    ~FibReadyMapperSm() override;

    void handleInitialized();
    void handleInitialScanDone();
    void handleFrcFecReadyOutputInputReady();
    void handleBuiltinSmAttrNdeleting();
    /// Lowers the flag and drops the children; its owner calls it when it lets go.
    void handleCleanup();
    void deletingIs(bool deleting);
    void doDeleteAll();

    void eventToLmo_pipeline0();
    void eventToLmo_pipeline1();

    bool synchronous() const { return synchronous_; }
    bool deleting() const { return deleting_; }
    bool initialized() const { return initialized_; }
    bool initialScanDone() const { return initialScanDone_; }
    bool active() const { return hasNotificationActive(); }
    bool ready() const { return outputState_ && outputState_->ready(); }
    bool idle() const { return inputSmScanState_ && inputSmScanState_->idle(); }
    const Vel::Ref<const FecReadyTrackingState>& frtc() const { return frtc_; }
    const Vel::Ref<OcApi::FibReadyContainer>& frc() const { return frc_; }
    /// Null before handleInitialized() and after doDeleteAll(), like the other children.
    const auto& inputSmScanState() const { return inputSmScanState_; }
    const auto& outputState() const { return outputState_; }
    const auto& frtcSm0() const { return frtcSm0_; }
    const auto& builtinSmAttrNdeletingSm1() const { return builtinSmAttrNdeletingSm1_; }

private:
    Vel::Ref<const FecReadyTrackingState> frtc_;
    Vel::Ref<OcApi::FibReadyContainer> frc_;  // output; nobody else writes it
    Lmo::SmControl control_;
    bool synchronous_ = false;
    bool deleting_ = false;
    bool initialized_ = false;
    bool initialScanDone_ = false;
    Vel::Ref<LumoCode::FibReadyMapperSm::InputSmScanState> inputSmScanState_;
    Vel::Ref<LumoCode::FibReadyMapperSm::OutputState> outputState_;
    Vel::Ref<LumoCode::FibReadyMapperSm::BuiltinSmAttrNdeletingSm1> builtinSmAttrNdeletingSm1_;
    Vel::Ref<LumoCode::FibReadyMapperSm::FrtcSm0> frtcSm0_;
    Vel::Subscription onPipeline1Scan_;
    Vel::Subscription onPipeline0Scan_;
};

/// Takes the constructor's arguments.
template <class... Args>
Vel::Ref<FibReadyMapperSm> fibReadyMapperSmFactory(Args&&... args) {
    return Vel::make<FibReadyMapperSm>(std::forward<Args>(args)...);
}

}  // namespace Pel::Oc
