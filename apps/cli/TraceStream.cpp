#include "apps/cli/TraceStream.h"

#include <sys/stat.h>

#include <algorithm>
#include <iterator>
#include <limits>
#include <utility>

namespace Pel::Cli {

TraceStream::Identity TraceStream::identity(const std::filesystem::path& file) {
    struct stat status {};
    if (::stat(file.c_str(), &status) != 0) { return {}; }
    return {status.st_dev, status.st_ino};
}

std::string TraceStream::open(const std::filesystem::path& file) {
    Source& source = sources_.emplace_back();
    source.file = file;
    source.identity = identity(file);
    if (!goesOn_) { source.position.seen = std::numeric_limits<std::uint64_t>::max(); }
    std::string problem = source.reader.open(file);
    if (problem.empty()) {
        known_[file] = source.identity;
    } else {
        sources_.pop_back();
    }
    return problem;
}

std::vector<std::filesystem::path> TraceStream::newOf(
    const std::vector<std::filesystem::path>& files) const {
    std::vector<std::filesystem::path> result;
    for (const std::filesystem::path& file : files) {
        const Identity now = identity(file);
        const auto known = known_.find(file);
        const bool isKnown = known != known_.end() && known->second == now;
        if (!isKnown && now != Identity{}) { result.push_back(file); }
    }
    return result;
}

std::vector<TraceStream::Notice> TraceStream::openNew(
    const std::vector<std::filesystem::path>& files) {
    std::vector<Notice> notices;
    for (const std::filesystem::path& file : files) {
        if (!open(file).empty()) { continue; }
        sources_.back().begun = true;  // all of it is to be read
        notices.push_back({Notice::What::began, file, 0});
    }
    return notices;
}

std::vector<Blink::Message> TraceStream::read(Source& source, std::vector<Notice>& notices) const {
    const std::uint64_t lostBefore = source.position.lost;
    auto messages = source.reader.readOn(source.position);
    const std::uint64_t lost = source.position.lost - lostBefore;
    const bool read = std::exchange(source.begun, true);
    if (lost > 0 && read) { notices.push_back({Notice::What::lost, source.file, lost}); }
    return messages;
}

std::vector<Blink::Message> TraceStream::read(std::vector<Notice>& notices) {
    std::vector<Blink::Message> all;
    for (auto source = sources_.begin(); source != sources_.end();) {
        auto messages = read(*source, notices);
        // Deleted, or another has its name: it holds memory only as long as something is left to read.
        const bool gone =
            messages.empty() && sources_.size() > 1 && identity(source->file) != source->identity;
        std::move(messages.begin(), messages.end(), std::back_inserter(all));
        source = gone ? sources_.erase(source) : std::next(source);
    }
    const auto earlier = [](const Blink::Message& a, const Blink::Message& b) {
        return a.wallNanoseconds < b.wallNanoseconds;
    };
    if (sources_.size() > 1) { std::stable_sort(all.begin(), all.end(), earlier); }
    return all;
}

}  // namespace Pel::Cli
