#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace Pel::Cli {

/// A running `pel`, of whose output the test reads line by line. Standard error goes there too.
class PelProcess {
public:
    enum class Output { pipe, terminal };
    /// `environment`: "NAME=value", on top of the test's own.
    explicit PelProcess(std::vector<std::string> arguments,
                        Output output = Output::pipe,
                        std::vector<std::string> environment = {});
    PelProcess(const PelProcess&) = delete;
    PelProcess& operator=(const PelProcess&) = delete;
    ~PelProcess();

    /// The next line without its end; "(no line)" when it ended, or none came in two minutes.
    std::string line();
    /// All that comes until it ends.
    std::string rest();
    void stopReading();
    /// Waits until Ctrl-C is no sudden end any more, and sends it.
    void interrupt();
    /// Sends it at once.
    void interruptNow() const;
    /// It stands still, for certain, while the test does something.
    void pause();
    void goOn() const;
    /// How it ended: its code, or minus the signal's number. -1000 when it did not in two minutes.
    int end();

private:
    bool readMore();

    pid_t pid_ = -1;
    int fd_ = -1;
    std::string input_;
};

}  // namespace Pel::Cli
