#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>

#include "platform/Store/Writer.h"

namespace Bench {

/// Publishes `nextHops` next hops, a quarter as many groups of four, their readiness, and an enabled
/// export, below a root directory, as the forwarder and `pel config` would.
void fillStore(const std::filesystem::path& root, std::uint64_t nextHops);

/// Enables the export below a root directory.
void enableExport(const std::filesystem::path& root);

/// Opens a store for writing; makes its directory.
std::unique_ptr<Store::Writer> openWriter(const std::filesystem::path& directory);

/// Entries of the OpenConfig view that such a store gives: next hops and groups.
constexpr std::uint64_t entriesOf(std::uint64_t nextHops) {
    return nextHops + nextHops / 4;
}

/// Changes next hops of such a store, one at a time.
class NextHopChanger {
public:
    NextHopChanger(const std::filesystem::path& root, std::uint64_t nextHops);
    NextHopChanger(const NextHopChanger&) = delete;
    NextHopChanger& operator=(const NextHopChanger&) = delete;
    ~NextHopChanger();
    /// Gives next hop `index` (1 to `nextHops`) a MAC address that it never had.
    void prepare(std::uint64_t index);
    void commit();

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace Bench
