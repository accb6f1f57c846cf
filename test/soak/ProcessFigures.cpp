#include "test/soak/ProcessFigures.h"

#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <span>
#include <sstream>
#include <string>
#include <system_error>

namespace Soak {
namespace {

std::string procFile(pid_t process, const char* name) {
    return "/proc/" + std::to_string(process) + "/" + name;
}

MemoryCourse::Part partOf(std::span<const std::uint64_t> samples) {
    MemoryCourse::Part part;
    for (const std::uint64_t sample : samples) {
        part.peak = std::max(part.peak, sample);
        part.mean += static_cast<double>(sample) / static_cast<double>(samples.size());
    }
    return part;
}

}  // namespace

std::uint64_t anonymousKiB(pid_t process) {
    std::ifstream file{procFile(process, "status")};
    std::string name;
    while (file >> name) {
        std::uint64_t value = 0;
        if (name == "RssAnon:" && file >> value) { return value; }
        std::getline(file, name);
    }
    return 0;
}

double processorSeconds(pid_t process) {
    std::ifstream file{procFile(process, "stat")};
    std::string line;
    std::getline(file, line);
    const std::size_t name = line.rfind(')');  // it may hold anything
    if (name == std::string::npos) { return 0; }
    std::istringstream rest{line.substr(name + 1)};
    std::string skipped;
    for (int field = 3; field < 14; ++field) { rest >> skipped; }
    double user = 0;
    double system = 0;
    rest >> user >> system;
    return (user + system) / static_cast<double>(::sysconf(_SC_CLK_TCK));
}

std::size_t socketsOf(pid_t process) {
    std::size_t count = 0;
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator{procFile(process, "fd"), error}) {
        const auto target = std::filesystem::read_symlink(entry.path(), error).string();
        count += target.starts_with("socket:") ? 1U : 0U;
    }
    return count;
}

MemoryCourse::Part MemoryCourse::first(std::size_t seconds) const {
    return partOf(std::span{samples}.first(std::min(seconds, samples.size() / 2)));
}

MemoryCourse::Part MemoryCourse::last(std::size_t seconds) const {
    return partOf(std::span{samples}.last(std::min(seconds, samples.size() / 2)));
}

}  // namespace Soak
