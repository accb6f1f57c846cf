#include "PelOpenConfig/PelStateSyncedSm.h"

#include <utility>

#include "model/Readiness/GatedFibReady.h"
#include "model/Route/RouteStatus.h"
#include "platform/Blink/Trace.h"
#include "platform/Vel/Errors.h"

BLINK_TRACE_HANDLE("PelStateSyncedSm");

namespace Pel::Oc {
namespace {

using Nexo::AddressFamily;
using OcApi::StateSyncedContainer;

constexpr Kiln::TaskPriority kTimerTaskPriority = 3;

const char* nameOf(AddressFamily family) {
    return family == AddressFamily::ipv4 ? "ipv4" : "ipv6";
}

std::string vrfNameOf(const std::string& path) {
    return path.substr(path.rfind('/') + 1);  // npos + 1 is 0
}

}  // namespace

/// The caller may go as soon as somebody is told: of the arguments nothing is read after that.
void setSyncedState(const Vel::Ref<Vel::Dir>& stateSyncedDir,
                    AddressFamily addressFamily,
                    const Vrf::VrfName& vrfName) {
    const auto container = stateSyncedDir->entityIs<StateSyncedContainer>(vrfName.stringValue());
    if (addressFamily == AddressFamily::ipv4) {
        container->ipv4UnicastIs(true);
    } else {
        container->ipv6UnicastIs(true);
    }
}

QuiescedCoordinatorSm::QuiescedCoordinatorSm(
    std::string name,
    AddressFamily addressFamily,
    const Vel::Ref<Kiln::TaskScheduler>& scheduler,
    Vel::Ref<Vel::Dir> stateSyncedDir,
    Vel::Ref<const Mesa::CollectionControl> routeStatusCollectionControl,
    Kiln::Duration timerTaskDelay,
    bool disableNotifyQuiesced)
    : name_{std::move(name)},
      addressFamily_{addressFamily},
      stateSyncedDir_{std::move(stateSyncedDir)},
      routeStatusCollectionControl_{std::move(routeStatusCollectionControl)},
      disableNotifyQuiesced_{disableNotifyQuiesced},
      timerTask_{scheduler, "stateSyncedTimerTask-" + name_, kTimerTaskPriority, [this] {
                     handleTimerTaskRun();
                     return false;
                 }} {
    timerTask_.scheduleAfter(timerTaskDelay);
    onQuiesced_ = routeStatusCollectionControl_->onChange().subscribe(
        this, &QuiescedCoordinatorSm::handleVrfQuiesced);
    handleVrfQuiesced();
}

void QuiescedCoordinatorSm::handleVrfQuiesced() {
    if (!routeStatusCollectionControl_->quiesced() || disableNotifyQuiesced_) { return; }
    TRACE9("addressFamily: {}, vrfName: {}", nameOf(addressFamily_), name_);
    timerTaskDel();
    setSyncedState(stateSyncedDir_, addressFamily_, Vrf::VrfName{name_});  // may be this one's end
}

void QuiescedCoordinatorSm::handleTimerTaskRun() {
    if (!timerTask_.running()) { return; }
    TRACE9("addressFamily: {}, vrfName: {}", nameOf(addressFamily_), name_);
    timerTaskDel();
    setSyncedState(stateSyncedDir_, addressFamily_, Vrf::VrfName{name_});  // likewise
}

FibReadyCoordinatorSm::FibReadyCoordinatorSm(
    Vel::Ref<Hubdb::EntityManager> entityManager,
    Vel::Ref<Kiln::TaskScheduler> scheduler,
    AddressFamily addressFamily,
    Vel::Ref<const FecReadyTrackingState> nhgNhFecReadyTrackingState,
    Vel::Ref<const Vel::Dir> allVrfGatedFibReadyDir)
    : entityManager_{std::move(entityManager)},
      scheduler_{std::move(scheduler)},
      addressFamily_{addressFamily},
      nhgNhFecReadyTrackingState_{std::move(nhgNhFecReadyTrackingState)},
      allVrfGatedFibReadyDir_{std::move(allVrfGatedFibReadyDir)},
      shmemEm_{entityManager_->sharedMemory()} {
    handleInitialized();
}

void FibReadyCoordinatorSm::handleInitialized() {
    TRACE9("addressFamily: {}", nameOf(addressFamily_));
    stateSyncedDirIs();
    defaultVrfMountIs();
    dirMounterIs();
    inputsAre();
    initialized_ = true;
    handleNhgNhReadyState();
    if (!allVrfGatedFibReadyDir_) { return; }
    for (const auto& [vrfName, entity] : allVrfGatedFibReadyDir_->entities()) {
        handleGatedFibReady(vrfName);
    }
}

void FibReadyCoordinatorSm::stateSyncedDirIs() {
    stateSyncedDirPtr_ = entityManager_->globalDir()
                             ->entityIs<Vel::Dir>(entityManager_->name())
                             ->entityIs<Vel::Dir>("AftExport")
                             ->entityIs<Vel::Dir>("stateSynced");
    onContainer_ =
        stateSyncedDirPtr_->onEntity().subscribe(this, &FibReadyCoordinatorSm::handleContainer);
    stateSyncedDirPtr_->entityDelAll();
}

void FibReadyCoordinatorSm::defaultVrfMountIs() {
    shmemMg_ = Vel::make<Mesa::MountGroup>(shmemEm_);
    onDefaultVrfMount_ =
        shmemMg_->onChange().subscribe(this, &FibReadyCoordinatorSm::handleDefaultVrfMount);
    shmemMg_->mount(getEntityPath(Vrf::kDefaultVrfName), tableType());
    shmemMg_->notifyOnSyncIs(true);
    shmemMg_->close();
}

void FibReadyCoordinatorSm::dirMounterIs() {
    dirMounter_ = Vel::make<Mesa::DirMounter>(shmemEm_, getEntityPath({}), tableType());
    dirMounter_->notifyOnSyncIs(true);
    dirMounter_->neverUnmountIs(true);
    dirMounter_->initialize();
    mountedPaths_ = dirMounter_->mountedPaths();
    onPath_ = mountedPaths_->onPathAdded().subscribe(this, &FibReadyCoordinatorSm::handlePath);
}

void FibReadyCoordinatorSm::inputsAre() {
    onNhReady_ = nhgNhFecReadyTrackingState_->onNhReady().subscribe(
        this, &FibReadyCoordinatorSm::handleNhgNhReadyState);
    onNhgReady_ = nhgNhFecReadyTrackingState_->onNhgReady().subscribe(
        this, &FibReadyCoordinatorSm::handleNhgNhReadyState);
    if (!allVrfGatedFibReadyDir_) { return; }
    onGatedEntity_ = allVrfGatedFibReadyDir_->onEntity().subscribeAs(
        this, [this](const std::string& vrfName) { handleGatedFibReady(vrfName); });
    onGatedDir_ =
        allVrfGatedFibReadyDir_->onChange().subscribeAs(this, [this] { handleGatedFibReady(); });
}

void FibReadyCoordinatorSm::handleNhgNhReadyState() {
    if (!initialized_) { return; }
    if (!nhgNhFecReadyTrackingState_->nhReady() || !nhgNhFecReadyTrackingState_->nhgReady()) {
        TRACE9("nhgNhFecReady condition not met");
        return;
    }
    const auto known = [this](const std::string& vrfName) {
        if (!forgotten_.contains(vrfName)) { consider(vrfName); }
    };
    known(Vrf::kDefaultVrfName);
    for (const std::string& path : mountedPaths_->paths()) { known(vrfNameOf(path)); }
}

void FibReadyCoordinatorSm::handleDefaultVrfMount() {
    const auto table = routeStatus(getEntityPath(Vrf::kDefaultVrfName));
    if (!table || !table->present()) {
        defaultRouteStatusCollectionControl_ = nullptr;
        TRACE9("Default VRF mount not ready");
        return;
    }
    defaultRouteStatusCollectionControl_ = table->collectionControl();
    TRACE9("Default VRF mount ready");
    consider(Vrf::kDefaultVrfName);
}

void FibReadyCoordinatorSm::handlePath(const std::string& path) {
    TRACE9("addressFamily: {}, path: {}", nameOf(addressFamily_), path);
    if (mountedPaths_->pathHas(path)) { consider(vrfNameOf(path)); }
}

void FibReadyCoordinatorSm::handleGatedFibReady(const std::string& vrfName) {
    if (allVrfGatedFibReadyDir_ && allVrfGatedFibReadyDir_->has(vrfName)) {
        TRACE9("Added vrfName: {}", vrfName);
        forgotten_.erase(vrfName);
        consider(vrfName);
        return;
    }
    TRACE9("Deleted vrfName: {}", vrfName);
    forgotten_.insert(vrfName);
    quiescedCoordinatorSmDel(vrfName);
    stateSyncedDirPtr_->entityDel(vrfName);
}

void FibReadyCoordinatorSm::handleGatedFibReady() {
    handleNhgNhReadyState();
}

/// A container came or went.
void FibReadyCoordinatorSm::handleContainer(const std::string& vrfName) {
    onFlag_.erase(vrfName);
    if (const auto container = stateSyncedDirPtr_->entity<StateSyncedContainer>(vrfName)) {
        auto& onFlag = addressFamily_ == AddressFamily::ipv4 ? container->onIpv4Unicast()
                                                             : container->onIpv6Unicast();
        onFlag_[vrfName] =
            onFlag.subscribeAs(this, [this, vrfName] { handleStateSyncedSet(vrfName); });
        handleStateSyncedSet(vrfName);
    } else if (allVrfGatedFibReadyDir_ && allVrfGatedFibReadyDir_->has(vrfName)) {
        consider(vrfName);  // the other family's start has emptied the directory
    }
}

void FibReadyCoordinatorSm::handleStateSyncedSet(const std::string& vrfName) {
    const auto container = stateSyncedDirPtr_->entity<StateSyncedContainer>(vrfName);
    if (container && synced(*container)) { quiescedCoordinatorSmDel(vrfName); }
}

/// Considers a VRF; what is wrong with its name keeps no other from being considered.
void FibReadyCoordinatorSm::consider(const std::string& vrfName) {
    try {
        maybeSetSyncedState(vrfName);
    } catch (const Vel::RangeError& error) { TRACE5("vrfName: {}: {}", vrfName, error.what()); }
}

void FibReadyCoordinatorSm::maybeSetSyncedState(const std::string& vrfName) {
    if (!initialized_) { return; }
    TRACE9("addressFamily: {}, vrfName: {}", nameOf(addressFamily_), vrfName);
    const auto container = stateSyncedDirPtr_->entityIs<StateSyncedContainer>(vrfName);
    if (synced(*container)) { return; }
    if (!nhgNhFecReadyTrackingState_->nhReady() || !nhgNhFecReadyTrackingState_->nhgReady()) {
        return;
    }
    const auto gated = allVrfGatedFibReadyDir_
                           ? allVrfGatedFibReadyDir_->entity<GatedReady::FibReady>(vrfName)
                           : Vel::Ref<GatedReady::FibReady>{};
    if (!gated) {
        TRACE9("No entity found for vrfName: {}", vrfName);
        return;
    }
    if (!gated->ready() || quiescedCoordinatorSm_.contains(vrfName)) { return; }
    const std::string path = getEntityPath(vrfName);
    const bool isDefault = vrfName == Vrf::kDefaultVrfName;
    if (!isDefault && !mountedPaths_->pathHas(path)) {
        TRACE9("vrfName: {} not in mountedPaths::pathHas", vrfName);
        return;
    }
    const auto control = isDefault ? defaultRouteStatusCollectionControl_ : collectionControl(path);
    if (!control) { return; }
    quiescedCoordinatorSmIs(vrfName,
                            addressFamily_,
                            scheduler_,
                            stateSyncedDirPtr_,
                            control,
                            timerTaskDelay_,
                            disableNotifyQuiesced_);
}

void FibReadyCoordinatorSm::quiescedCoordinatorSmIs(
    const std::string& vrfName,
    AddressFamily addressFamily,
    const Vel::Ref<Kiln::TaskScheduler>& scheduler,
    const Vel::Ref<Vel::Dir>& stateSyncedDir,
    const Vel::Ref<const Mesa::CollectionControl>& routeStatusCollectionControl,
    Kiln::Duration timerTaskDelay,
    bool disableNotifyQuiesced) {
    quiescedCoordinatorSmDel(vrfName);
    quiescedCoordinatorSm_[vrfName] = Vel::make<QuiescedCoordinatorSm>(vrfName,
                                                                       addressFamily,
                                                                       scheduler,
                                                                       stateSyncedDir,
                                                                       routeStatusCollectionControl,
                                                                       timerTaskDelay,
                                                                       disableNotifyQuiesced);
    handleStateSyncedSet(vrfName);  // a table that had quiesced before has set the flag by now
}

void FibReadyCoordinatorSm::quiescedCoordinatorSmDel(const std::string& vrfName) {
    const auto found = quiescedCoordinatorSm_.find(vrfName);
    if (found == quiescedCoordinatorSm_.end()) { return; }
    const auto going = quiescedCoordinatorSm_.extract(found);
    going.mapped()->hasNotificationActiveIs(false);
}

void FibReadyCoordinatorSm::quiescedCoordinatorSmDelAll() {
    while (!quiescedCoordinatorSm_.empty()) {
        quiescedCoordinatorSmDel(std::string{quiescedCoordinatorSm_.begin()->first});
    }
}

void FibReadyCoordinatorSm::handleCleanup() {
    TRACE9("Cleanup of addressFamily: {}", nameOf(addressFamily_));
    quiescedCoordinatorSmDelAll();
}

std::string FibReadyCoordinatorSm::getEntityPath(const std::string& vrfName) const {
    if (vrfName.empty()) { return Mesa::fibTableDirPath(addressFamily_); }
    return Mesa::fibTableMountPath(addressFamily_, Vrf::VrfName{vrfName}.stringValue(), "rib");
}

const char* FibReadyCoordinatorSm::tableType() const {
    return addressFamily_ == AddressFamily::ipv4 ? Mesa::Fib::RouteStatus::kType
                                                 : Mesa::Fib6::RouteStatus::kType;
}

/// What is mounted there, if it is a table of this family's type.
Vel::Ref<Mesa::Table> FibReadyCoordinatorSm::routeStatus(const std::string& path) const {
    if (addressFamily_ == AddressFamily::ipv4) {
        return shmemEm_->entity<Mesa::Fib::RouteStatus>(path);
    }
    return shmemEm_->entity<Mesa::Fib6::RouteStatus>(path);
}

Vel::Ref<const Mesa::CollectionControl> FibReadyCoordinatorSm::collectionControl(
    const std::string& path) const {
    const auto table = routeStatus(path);
    return table ? table->collectionControl() : Vel::Ref<Mesa::CollectionControl>{};
}

bool FibReadyCoordinatorSm::synced(const StateSyncedContainer& container) const {
    return addressFamily_ == AddressFamily::ipv4 ? container.ipv4Unicast()
                                                 : container.ipv6Unicast();
}

}  // namespace Pel::Oc
