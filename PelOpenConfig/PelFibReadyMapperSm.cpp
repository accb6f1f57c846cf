#include "PelOpenConfig/PelFibReadyMapperSm.h"

#include <fmt/format.h>

#include "platform/Blink/Trace.h"
#include "platform/Vel/Assert.h"

BLINK_TRACE_HANDLE("PelFibReadyMapperSm");

namespace LumoCode::FibReadyMapperSm {

InputWatcher::InputWatcher(Pel::Oc::FibReadyMapperSm& parent, std::string scanName)
    : parent_{parent}, scanName_{std::move(scanName)} {}

InputWatcher::~InputWatcher() = default;

void InputWatcher::scanTaskIs(const Lmo::SmControl& control, std::string taskName) {
    scheduler_ = control.scheduler;
    task_ =
        std::make_unique<Kiln::Task>(scheduler_, std::move(taskName), control.taskPriority, [this] {
            // What the scan writes may have the owner let go of the machine.
            const auto keepParent = Vel::keepAlive(&parent_);
            const auto keep = Vel::keepAlive(this);
            performScan();
            return false;
        });
}

void InputWatcher::doInputScan() {
    if (!parent_.active()) { return; }
    TRACE9("{}", "");
    if (!synchronous() && task_) {
        task_->schedule();
        return;
    }
    performScan();
}

InputWatcher::Completion InputWatcher::inputScanComplete() const {
    return {scanState_ == ScanState::complete || parent_.initialScanDone(), scanState_};
}

bool InputWatcher::shouldYield() const {
    return !synchronous() && task_ && scheduler_->taskShouldYield();
}

bool InputWatcher::synchronous() const {
    return parent_.synchronous();
}

void InputWatcher::doDeleteAll() {
    task_.reset();
}

bool InputWatcher::scanWanted() const {
    if (scanState_ == ScanState::complete) { return false; }
    // Seen already: the parent calls again when the initial pass is over.
    return parent_.initialScanDone() || scanState_ == ScanState::notScanned;
}

std::string InputWatcher::scanEnded() {
    if (parent_.initialScanDone()) {
        scanState_ = ScanState::complete;
        task_.reset();
        return scanName_;
    }
    scanState_ = ScanState::scannedInitially;
    return scanName_ + " initial";
}

FrtcSm0::FrtcSm0(Pel::Oc::FibReadyMapperSm& parent, Vel::Ref<const Pel::FecReadyTrackingState> frtc)
    : InputWatcher{parent, "FrtcSm0"}, frtc_{std::move(frtc)} {
    onNhReady_ = frtc_->onNhReady().subscribe(this, &FrtcSm0::handleNhReadyMAnhgReady0);
    onNhgReady_ = frtc_->onNhgReady().subscribe(this, &FrtcSm0::handleNhReadyMAnhgReady0);
}

void FrtcSm0::handleNhReadyMAnhgReady0() {
    if (parent().active()) { parent().eventToLmo_pipeline0(); }
}

void FrtcSm0::doInputScan0() {
    if (!parent().active()) { return; }
    TRACE9("{}", "");
    if (!scanWanted()) { return; }
    const Pel::FecReadyTrackingState* const en = frtc_.get();
    VEL_ASSERT_TEXT(
        en != nullptr,
        "en() && \"Sm args can only be null if marked as Optional in the SM type declaration\"");
    handleNhReadyMAnhgReady0();
    const std::string name = scanEnded();
    if (const auto state = parent().inputSmScanState()) { state->lmo_pipeline0ScanIs(true); }
    TRACE9("{} scan, and parent scan, complete.", name);
}

void FrtcSm0::doDeleteAll() {
    onNhReady_.reset();
    onNhgReady_.reset();
    frtc_ = nullptr;
    InputWatcher::doDeleteAll();
}

BuiltinSmAttrNdeletingSm1::BuiltinSmAttrNdeletingSm1(Pel::Oc::FibReadyMapperSm& parent)
    : InputWatcher{parent, "BuiltinSmAttrNdeletingSm1"} {}

void BuiltinSmAttrNdeletingSm1::doInputScan1() {
    if (!parent().active()) { return; }
    TRACE9("{}", "");
    if (!scanWanted()) { return; }
    if (parent().deleting()) { parent().eventToLmo_pipeline1(); }
    const std::string name = scanEnded();
    if (const auto state = parent().inputSmScanState()) { state->lmo_pipeline1ScanIs(true); }
    TRACE9("{} scan, and parent scan, complete.", name);
}

}  // namespace LumoCode::FibReadyMapperSm

namespace Pel::Oc {

namespace Parts = LumoCode::FibReadyMapperSm;

FibReadyMapperSm::FibReadyMapperSm(Vel::Ref<const FecReadyTrackingState> frtc,
                                   Vel::Ref<OcApi::FibReadyContainer> frc,
                                   Lmo::SmControl control)
    : frtc_{std::move(frtc)}, frc_{std::move(frc)}, control_{std::move(control)} {
    VEL_ASSERT_TEXT(frc_ != nullptr,
                    "frc() && \"Pointer SM args cannot be null unless they are marked Optional\"");
    VEL_ASSERT_TEXT(frtc_ != nullptr,
                    "frtc() && \"Pointer SM args cannot be null unless they are marked Optional\"");
    handleInitialized();
}

FibReadyMapperSm::~FibReadyMapperSm() {
    doDeleteAll();
}

void FibReadyMapperSm::handleInitialized() {
    if (initialized_) { return; }
    if (control_.synchronous == Lmo::Synchronous::synchronous) { synchronous_ = true; }
    if (control_.synchronous == Lmo::Synchronous::asynchronous) { synchronous_ = false; }
    TRACE9("create local SMs");
    inputSmScanState_ = Vel::make<Parts::InputSmScanState>();
    outputState_ = Vel::make<Parts::OutputState>();
    onPipeline1Scan_ = inputSmScanState_->onLmo_pipeline1Scan().subscribe(
        this, &FibReadyMapperSm::handleFrcFecReadyOutputInputReady);
    onPipeline0Scan_ = inputSmScanState_->onLmo_pipeline0Scan().subscribe(
        this, &FibReadyMapperSm::handleFrcFecReadyOutputInputReady);
    TRACE9("create non-public arg SMs");
    builtinSmAttrNdeletingSm1_ = Vel::make<Parts::BuiltinSmAttrNdeletingSm1>(*this);
    frtcSm0_ = Vel::make<Parts::FrtcSm0>(*this, frtc_);
    if (!synchronous_) {
        VEL_ASSERT(control_.scheduler != nullptr);
        frtcSm0_->scanTaskIs(control_, "Pel::Oc::FibReadyMapperSm-FrtcSm0InputScanTask0");
        builtinSmAttrNdeletingSm1_->scanTaskIs(
            control_, "Pel::Oc::FibReadyMapperSm-BuiltinSmAttrNdeletingSm1InputScanTask1");
    }
    frtcSm0_->doInputScan();
    builtinSmAttrNdeletingSm1_->doInputScan();
    initialized_ = true;
    TRACE9("initialized");
    handleFrcFecReadyOutputInputReady();
}

void FibReadyMapperSm::eventToLmo_pipeline0() {
    if (!initialScanDone_) { return; }
    TRACE7("Line 20: from( frtc.{{ nhReady, nhgReady }} ): trackingState={}",
           fmt::format("{}", fmt::ptr(frtc_.get())));
    const bool value = (frtc_->nhReady() && frtc_->nhgReady()) || frc_->fecReady();
    TRACE7("into( frc.fecReady ): inserting value={}", value ? "true" : "false");
    frc_->fecReadyIs(value);
}

void FibReadyMapperSm::eventToLmo_pipeline1() {
    if (!initialScanDone_) { return; }
    TRACE7("Line 25: from( this.deleting ):");
    TRACE7("into( frc.fecReady ): inserting value={}", "false");
    frc_->fecReadyIs(false);
}

void FibReadyMapperSm::handleBuiltinSmAttrNdeleting() {
    if (!initialized_) { return; }
    deleting_ = true;
    eventToLmo_pipeline1();
}

void FibReadyMapperSm::handleInitialScanDone() {
    if (initialScanDone_) { return; }
    if (!inputSmScanState_->lmo_pipeline1Scan()) {
        TRACE9(" lmo_pipeline1 scan is false");
        return;
    }
    if (!inputSmScanState_->lmo_pipeline0Scan()) {
        TRACE9("Initial scan yielding for child SM FibReadyMapperSm.");
        TRACE9(" lmo_pipeline0 scan is false");
        return;
    }
    TRACE9("Initial scan done for child SMs. Now scanning with events triggered.");
    initialScanDone_ = true;
    inputSmScanState_->lmo_pipeline1ScanIs(false);
    inputSmScanState_->lmo_pipeline0ScanIs(false);
    frtcSm0_->doInputScan();
    builtinSmAttrNdeletingSm1_->doInputScan();
    inputSmScanState_->handleIdle();
    handleFrcFecReadyOutputInputReady();
}

void FibReadyMapperSm::handleFrcFecReadyOutputInputReady() {
    if (!initialized_) { return; }
    TRACE9("{}", "");
    if (outputState_->frcFecReadyOutputReady()) {
        TRACE9(" already ready, not reconciling.");
        return;
    }
    if (!inputSmScanState_->lmo_pipeline0Scan() || !inputSmScanState_->lmo_pipeline1Scan()) {
        return;
    }
    if (!initialScanDone_) {
        handleInitialScanDone();
        return;
    }
    TRACE9("Input scans for frcFecReadyOutput complete");
    outputState_->frcFecReadyOutputReadyIs(true);
    outputState_->handleReady();
}

void FibReadyMapperSm::deletingIs(bool deleting) {
    if (deleting) { handleBuiltinSmAttrNdeleting(); }
}

void FibReadyMapperSm::handleCleanup() {
    deletingIs(true);
    doDeleteAll();
}

void FibReadyMapperSm::doDeleteAll() {
    onPipeline1Scan_.reset();
    onPipeline0Scan_.reset();
    if (frtcSm0_) { frtcSm0_->doDeleteAll(); }
    if (builtinSmAttrNdeletingSm1_) { builtinSmAttrNdeletingSm1_->doDeleteAll(); }
    frtcSm0_ = nullptr;
    builtinSmAttrNdeletingSm1_ = nullptr;
    outputState_ = nullptr;
    inputSmScanState_ = nullptr;
    initialized_ = false;
}

}  // namespace Pel::Oc
