#include "apps/cli/ConfigStore.h"

#include <system_error>

#include "apps/cli/MountedEntity.h"
#include "model/Tolo/Config.h"
#include "platform/Hubdb/Publisher.h"
#include "platform/Store/Writer.h"

namespace Pel::Cli {
ConfigStore::ConfigStore(const std::filesystem::path& root) : directory_{root / "config"} {}

std::string ConfigStore::aftExportEnabledIs(bool enabled) {
    std::error_code problem;
    std::filesystem::create_directories(directory_, problem);
    if (problem) { return directory_.string() + ": " + problem.message(); }
    Store::Options options;
    options.directory = directory_;
    std::string error;
    const auto environment = Store::Environment::open(options, Store::Access::write, error);
    if (environment == nullptr) { return error; }
    Store::Writer writer{environment};
    Hubdb::Publisher publisher{writer};
    if (publisher.valid()) {
        Tolo::ConfigRecord record;
        record.aftExportEnabled = enabled;
        publisher.entityIs(Tolo::Config::kPath,
                           Tolo::Config::kType,
                           Mesa::RecordCodec<Tolo::ConfigRecord>::encode(record));
    }
    return writer.commit();
}

std::optional<bool> ConfigStore::aftExportEnabled(std::string& error) const {
    if (!std::filesystem::exists(directory_)) { return std::nullopt; }
    std::optional<bool> enabled;
    readEntity<Tolo::Config>(
        directory_,
        [&](const Tolo::Config& config) { enabled = config.aftExportEnabled(); },
        error);
    return enabled;
}

}  // namespace Pel::Cli
