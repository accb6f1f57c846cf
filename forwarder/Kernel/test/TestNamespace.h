#pragma once

#include <string>

namespace Pel::Forwarder {

/// A network namespace of a name of its own, in which the calling thread stands while the object
/// lives. Deleted with it.
class TestNamespace {
public:
    /// Why no namespace can be made here, or "".
    static std::string unavailable();

    TestNamespace();
    TestNamespace(const TestNamespace&) = delete;
    TestNamespace& operator=(const TestNamespace&) = delete;
    ~TestNamespace();

    const std::string& name() const { return name_; }
    /// Runs a shell command inside the namespace; a command that fails fails the test.
    void run(const std::string& command) const;

private:
    std::string name_;
    int home_ = -1;  // the namespace that the thread came from
};

}  // namespace Pel::Forwarder
