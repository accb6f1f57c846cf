#pragma once

#include <memory>
#include <set>
#include <string>

#include "PelOpenConfig/LmoSmControl.h"
#include "platform/Kiln/TaskScheduler.h"
#include "platform/Vel/Entity.h"
#include "platform/Vel/Sm.h"

namespace Pel::Oc {

/// Merges the configuration of several sources: one that is configured, and those that come and go
/// in a directory. What an earlier source says of a key holds, a later one's word for the same key is
/// left out. The order is: the configured one, then those of the directory by name; a directory
/// inside stands, with all below it, where its name does.
///
///   input                          handler        output
///   configured source changed      handleConfig   merged record, by a task of the control's priority
///   directory changed, or a child  handleConfig   the same
///
/// However many changes come before the task runs, they are one merge; the first merge is made at
/// once, so that who is made after this machine finds it. A synchronous control merges at once, always.
/// A child of another type than a source's is traced when it appears, and ignored.
class ConfigMergeSm : public Vel::Sm {
public:
    void handleConfig();

protected:
    /// @param sources may be null: there are none
    /// @param control needs a scheduler unless synchronous
    ConfigMergeSm(Vel::Ref<const Vel::Dir> sources,
                  const Lmo::SmControl& control,
                  const std::string& taskName);
    /// The last step of a derived constructor. `configured` tells of the configured source; null:
    /// there is none.
    void handleInitialized(Vel::Publisher<>* configured);

    /// An empty record is to be filled, the configured source's word first.
    virtual void begin() = 0;
    /// Adds what the source says of keys that the record does not have. False: it is no source.
    virtual bool add(const Vel::Entity& source) = 0;
    /// The record is complete.
    virtual void end() = 0;

private:
    void merge();
    void addAll(const Vel::Dir& dir, const std::string& path);

    Vel::Ref<const Vel::Dir> sources_;
    std::unique_ptr<Kiln::Task> task_;    // null: synchronous
    std::set<std::string> foreign_;       // children that are no sources, by path
    std::set<std::string> foreignSoFar_;  // of the merge under way
    Vel::Subscription onConfigured_;
    Vel::Subscription onSources_;
};

}  // namespace Pel::Oc
