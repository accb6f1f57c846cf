#pragma once

#include <sys/types.h>

#include <chrono>
#include <optional>
#include <string>
#include <vector>

namespace Pel::Cli {

/// A program that this one started and ends. It does not outlive this one, not even when this one
/// is killed.
class ChildProcess {
public:
    explicit ChildProcess(std::string name) : name_{std::move(name)} {}
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;
    ~ChildProcess() { end(std::chrono::seconds{5}); }

    const std::string& name() const { return name_; }
    pid_t pid() const { return pid_; }  ///< -1 when it does not run
    /// arguments[0] is the program's path. Empty, or what went wrong.
    std::string start(const std::vector<std::string>& arguments);
    /// Looks whether it has ended, without waiting. How, in words, or nullopt while it runs.
    std::optional<std::string> ended();
    /// Asks it to end, and makes it end when it takes longer than the grace. How it ended.
    std::string end(std::chrono::milliseconds grace);
    /// Asks it to end, and does not wait.
    void askToEnd() const;

private:
    std::string name_;
    pid_t pid_ = -1;
    std::string how_;  // once it has ended
};

}  // namespace Pel::Cli
