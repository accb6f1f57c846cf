#pragma once

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "test/checker/test/Stream.h"

namespace Checker {

/// What each message of a clean stream is about.
struct Step {
    std::size_t at = 0;  ///< index of the message
    std::string entry;   ///< path
    List list = List::nextHop;
    bool isDelete = false;
    bool live = false;   ///< after the sync
    bool first = false;  ///< of its entry
    bool last = false;
    const Step* before = nullptr;  ///< of the same entry
    const Step* after = nullptr;

    bool isUpdate() const { return !isDelete; }
};

class StreamIndex {
public:
    explicit StreamIndex(const Stream& stream);
    StreamIndex(const StreamIndex&) = delete;
    StreamIndex& operator=(const StreamIndex&) = delete;

    const std::vector<Step>& steps() const { return steps_; }
    std::size_t sync() const { return sync_; }  ///< index of the sync
    const Step* find(const std::function<bool(const Step&)>& wanted) const;
    /// Of an entry, in order.
    const std::vector<const Step*>& of(const std::string& entry) const {
        return byEntry_.at(entry);
    }

private:
    std::vector<Step> steps_;
    std::map<std::string, std::vector<const Step*>> byEntry_;
    std::size_t sync_ = 0;
};

}  // namespace Checker
