#pragma once

#include <filesystem>
#include <optional>
#include <string>

namespace Pel::Cli {

/// The management configuration in a root directory.
class ConfigStore {
public:
    explicit ConfigStore(const std::filesystem::path& root);

    /// Writes the flag; creates the store if there is none. Empty, or what went wrong.
    std::string aftExportEnabledIs(bool enabled);
    /// The flag; nullopt when nothing was ever written. `error` is not empty when it cannot be read.
    std::optional<bool> aftExportEnabled(std::string& error) const;

private:
    std::filesystem::path directory_;
};

}  // namespace Pel::Cli
