#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <utility>

struct MDB_env;

namespace Store {

/// Position in the one order of all changes of an environment; counts from 1, 0 is before all.
using Sequence = std::uint64_t;
/// A table inside an environment; 0 is the registry of tables.
using TableId = std::uint32_t;

/// What a table is for. A reader that (re)reads everything takes the kinds in this order, so that
/// readiness, which is state, is told after the data it speaks of.
enum class TableKind : std::uint8_t {
    registry = 0,  ///< path to table
    table = 1,     ///< a keyed table (Mesa)
    content = 2,   ///< deduplicated records; changes are not logged, nobody mounts it
    stash = 3,     ///< one collection of a stash set
    state = 4,     ///< entities by path (Hubdb)
};

struct TableInfo {
    TableId id = 0;
    TableKind kind = TableKind::table;
    std::string path;
    std::string type;
};

enum class Access { read, write };

struct Options {
    std::filesystem::path directory;  ///< on a memory file system
    std::size_t mapBytes = std::size_t{1} << 32;
    std::uint64_t logCapacity =
        1 << 20;  ///< changes that a reader may fall behind before it sweeps
};

/// One memory-mapped transactional environment (LMDB): many processes read without locks, one
/// writes, a writer killed at any instruction leaves the last committed state. STORE-FORMAT.md
/// draws the layout.
///
/// A process has at most one environment object per directory, shared; it may serve a writer and
/// readers at once.
class Environment {
public:
    /// Opens it; `Access::write` creates it, and replaces one of another boot. Null, with a text
    /// that names directory, file and reason, when that fails: another layout version (both named),
    /// permissions, no such store (reading), no space, a data file that is cut off or no store.
    static std::shared_ptr<Environment> open(const Options& options,
                                             Access access,
                                             std::string& error);
    Environment(const Environment&) = delete;
    Environment& operator=(const Environment&) = delete;
    ~Environment();

    /// The three databases inside it.
    struct Databases {
        unsigned meta = 0;     ///< identity, last table id
        unsigned records = 0;  ///< of all tables, by table id and key
        unsigned log = 0;      ///< which record changed, by sequence
    };

    MDB_env* handle() const { return env_; }
    const Databases& databases() const { return databases_; }
    const Options& options() const { return options_; }
    /// Identity of this very store: another one at the same path has another.
    std::uint64_t generation() const { return generation_; }
    /// Whether the files at the path are still this store's, and whole.
    bool current() const;
    /// Bytes of the map that have ever been used; options().mapBytes is the limit.
    std::size_t usedBytes() const;
    /// When changes were last committed to it, by whomever, in nanoseconds of wall time since the
    /// Unix epoch; nullopt when that cannot be told.
    std::optional<std::int64_t> lastCommit() const;
    std::filesystem::path bellPath() const { return options_.directory / "bell"; }

private:
    explicit Environment(Options options) : options_{std::move(options)} {}
    std::string openFiles(Access access);
    std::string openForReading();
    std::string openForWriting();
    std::string map(Access access);
    std::string openDatabases(unsigned transactionFlags, unsigned databaseFlags);
    void close();

    MDB_env* env_ = nullptr;
    Options options_;
    Databases databases_;
    std::uint64_t generation_ = 0;
    std::uint64_t inode_ = 0;
    std::uint64_t device_ = 0;
    std::int64_t fileBytes_ = 0;  // the length that the data file has at least
    bool readOnly_ = false;       // the files' mode allows no more
    bool otherBoot_ = false;      // what openDatabases() found
};

}  // namespace Store
