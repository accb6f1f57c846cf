#include "test/support/TempDir.h"

#include <cstdlib>
#include <stdexcept>
#include <string>

namespace TestSupport {

TempDir::TempDir() {
    // Memory file system where there is one: the store is made for it.
    std::string name =
        std::filesystem::exists("/dev/shm") ? "/dev/shm/pel-test-XXXXXX" : "/tmp/pel-test-XXXXXX";
    if (::mkdtemp(name.data()) == nullptr) { throw std::runtime_error{"mkdtemp " + name}; }
    path_ = name;
}

TempDir::~TempDir() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

}  // namespace TestSupport
