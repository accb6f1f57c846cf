#pragma once

#include <chrono>
#include <map>
#include <set>
#include <string>

#include "model/Aft/StateSyncedContainer.h"
#include "model/Net/AddressFamily.h"
#include "model/Readiness/FecReadyTrackingState.h"
#include "model/Vrf/VrfName.h"
#include "platform/Hubdb/EntityManager.h"
#include "platform/Kiln/Task.h"
#include "platform/Mesa/DirMounter.h"
#include "platform/Vel/Sm.h"

namespace Pel::Oc {

/// Declares a VRF synced in one address family: sets the flag of its container, which is made if it
/// is missing.
void setSyncedState(const Vel::Ref<Vel::Dir>& stateSyncedDir,
                    Nexo::AddressFamily addressFamily,
                    const Vrf::VrfName& vrfName);

/// Declares one VRF synced in one address family, at the earlier of two moments: its route-status
/// table has quiesced, or the delay is over. The delay bounds the wait for a table that never does.
///
///   input                                    handler             output
///   routeStatusCollectionControl             handleVrfQuiesced   the VRF's flag = true
///   timer "stateSyncedTimerTask-<VRF name>"  handleTimerTaskRun  the VRF's flag = true
///
/// A table that has quiesced already is taken at construction. Its owner sees the flag and lets go of
/// the machine, in the middle of the handler that sets it. A name of more than 100 bytes raises the
/// range error of VrfName in the place of the flag.
class QuiescedCoordinatorSm final : public Vel::Sm {
public:
    QuiescedCoordinatorSm(std::string name,
                          Nexo::AddressFamily addressFamily,
                          const Vel::Ref<Kiln::TaskScheduler>& scheduler,
                          Vel::Ref<Vel::Dir> stateSyncedDir,
                          Vel::Ref<const Mesa::CollectionControl> routeStatusCollectionControl,
                          Kiln::Duration timerTaskDelay,
                          bool disableNotifyQuiesced);

    void handleVrfQuiesced();
    void handleTimerTaskRun();

    /// Whether it still waits for the delay.
    bool armed() const { return timerTask_.scheduled(); }

private:
    void timerTaskDel() { timerTask_.unschedule(); }

    const std::string name_;
    const Nexo::AddressFamily addressFamily_;
    const Vel::Ref<Vel::Dir> stateSyncedDir_;  // output: the family's flag of the VRF
    const Vel::Ref<const Mesa::CollectionControl> routeStatusCollectionControl_;
    const bool disableNotifyQuiesced_;
    Kiln::Task timerTask_;
    Vel::Subscription onQuiesced_;
};

/// Decides for each VRF, in one address family, from when on its exported state may be declared
/// synced, and has a QuiescedCoordinatorSm declare it.
///
///   input                              handler                   output
///   nhReady, nhgReady                  handleNhgNhReadyState     all VRFs considered
///   gated FIB-ready entity             handleGatedFibReady(name) that VRF considered, or forgotten
///   gated FIB-ready directory          handleGatedFibReady()     all VRFs considered
///   a VRF's route table is mounted     handlePath                that VRF considered
///   the default VRF's is               handleDefaultVrfMount     the default VRF considered
///   a container of "stateSynced"       handleStateSyncedSet      the VRF's machine let go
///   owner lets go                      handleCleanup             all machines let go
///
/// A VRF that is considered has its container from then on. It qualifies once next hops and groups
/// are exported, its FIB is declared ready and its route table is mounted; what is missing is traced,
/// and the next change of any input asks again. A VRF whose FIB-ready entity goes is forgotten with
/// its container, although its table may stay mounted; nothing else lowers a flag, not even the
/// owner's letting go: the next start does.
///
/// The coordinators of both families share the directory, and each empties it when it starts. What
/// goes there while its VRF is still to be declared ready is therefore considered anew, by the one
/// that started earlier.
///
/// A VRF name of more than 100 bytes costs only itself: its range error is traced.
class FibReadyCoordinatorSm final : public Vel::Sm {
public:
    FibReadyCoordinatorSm(Vel::Ref<Hubdb::EntityManager> entityManager,
                          Vel::Ref<Kiln::TaskScheduler> scheduler,
                          Nexo::AddressFamily addressFamily,
                          Vel::Ref<const FecReadyTrackingState> nhgNhFecReadyTrackingState,
                          Vel::Ref<const Vel::Dir> allVrfGatedFibReadyDir);

    void handleInitialized();
    void handleNhgNhReadyState();
    void handleDefaultVrfMount();
    void handlePath(const std::string& path);
    void handleGatedFibReady(const std::string& vrfName);
    void handleGatedFibReady();
    void handleStateSyncedSet(const std::string& vrfName);
    /// Lets go of the VRFs' machines; its owner calls it when it lets go of this one.
    void handleCleanup();

    /// The path of a VRF's route-status table; of an empty name the directory of all VRFs' but the
    /// default one's. More than 100 bytes raise a RangeError.
    std::string getEntityPath(const std::string& vrfName) const;

    void quiescedCoordinatorSmIs(
        const std::string& vrfName,
        Nexo::AddressFamily addressFamily,
        const Vel::Ref<Kiln::TaskScheduler>& scheduler,
        const Vel::Ref<Vel::Dir>& stateSyncedDir,
        const Vel::Ref<const Mesa::CollectionControl>& routeStatusCollectionControl,
        Kiln::Duration timerTaskDelay,
        bool disableNotifyQuiesced);
    void quiescedCoordinatorSmDel(const std::string& vrfName);
    void quiescedCoordinatorSmDelAll();

    using QuiescedCoordinatorSms = std::map<std::string, Vel::Ref<QuiescedCoordinatorSm>>;
    const QuiescedCoordinatorSms& quiescedCoordinatorSm() const { return quiescedCoordinatorSm_; }
    const Vel::Ref<Vel::Dir>& stateSyncedDirPtr() const { return stateSyncedDirPtr_; }
    const Vel::Ref<Mesa::MountedPaths>& mountedPaths() const { return mountedPaths_; }
    const Vel::Ref<const Mesa::CollectionControl>& defaultRouteStatusCollectionControl() const {
        return defaultRouteStatusCollectionControl_;
    }
    Kiln::Duration timerTaskDelay() const { return timerTaskDelay_; }
    bool disableNotifyQuiesced() const { return disableNotifyQuiesced_; }
    bool initialized() const { return initialized_; }

private:
    void stateSyncedDirIs();
    void defaultVrfMountIs();
    void dirMounterIs();
    void inputsAre();
    const char* tableType() const;
    Vel::Ref<Mesa::Table> routeStatus(const std::string& path) const;
    Vel::Ref<const Mesa::CollectionControl> collectionControl(const std::string& path) const;
    bool synced(const OcApi::StateSyncedContainer& container) const;
    void handleContainer(const std::string& vrfName);
    void consider(const std::string& vrfName);
    void maybeSetSyncedState(const std::string& vrfName);

    const Vel::Ref<Hubdb::EntityManager> entityManager_;
    const Vel::Ref<Kiln::TaskScheduler> scheduler_;
    const Nexo::AddressFamily addressFamily_;
    const Vel::Ref<const FecReadyTrackingState> nhgNhFecReadyTrackingState_;
    const Vel::Ref<const Vel::Dir> allVrfGatedFibReadyDir_;  // may be null: no VRF is ready
    const Vel::Ref<Mesa::EntityManager> shmemEm_;
    const Kiln::Duration timerTaskDelay_ = std::chrono::seconds{600};
    const bool disableNotifyQuiesced_ = false;

    bool initialized_ = false;
    Vel::Ref<Vel::Dir> stateSyncedDirPtr_;  // output; the two coordinators and theirs write it
    Vel::Ref<Mesa::MountGroup> shmemMg_;
    Vel::Ref<const Mesa::CollectionControl> defaultRouteStatusCollectionControl_;
    Vel::Ref<Mesa::DirMounter> dirMounter_;
    Vel::Ref<Mesa::MountedPaths> mountedPaths_;
    std::set<std::string> forgotten_;  // VRFs whose FIB-ready entity went; their table may be there
    QuiescedCoordinatorSms quiescedCoordinatorSm_;

    Vel::Subscription onContainer_;
    std::map<std::string, Vel::Subscription> onFlag_;  // of each container
    Vel::Subscription onDefaultVrfMount_;
    Vel::Subscription onPath_;
    Vel::Subscription onNhReady_;
    Vel::Subscription onNhgReady_;
    Vel::Subscription onGatedEntity_;
    Vel::Subscription onGatedDir_;
};

/// Takes the constructor's arguments.
template <class... Args>
Vel::Ref<FibReadyCoordinatorSm> fibReadyCoordinatorSmFactory(Args&&... args) {
    return Vel::make<FibReadyCoordinatorSm>(std::forward<Args>(args)...);
}

}  // namespace Pel::Oc
