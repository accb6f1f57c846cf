#include "bench/FilledStore.h"

#include <array>
#include <memory>
#include <stdexcept>
#include <string>

#include "model/Fec/FlattenFec.h"
#include "model/Fec/FlattenFecNextHop.h"
#include "model/Fec/FlattenFecSet.h"
#include "model/Readiness/FlattenFecSetReadyStatus.h"
#include "model/Tolo/Config.h"
#include "platform/AgentHost/HostConfig.h"
#include "platform/Hubdb/Publisher.h"
#include "platform/Stash/Publisher.h"

namespace Bench {
namespace {

using Pel::FecId;
using Pel::FlattenFecSet;
using Pel::Stash::OcNextHopIndex;

constexpr std::uint64_t kMembers = 4;
// Each entry costs a content, its hash and the entry itself: stay well below the writer's bound.
constexpr std::uint64_t kEntriesPerTransaction = 256;

void commit(Store::Writer& writer) {
    if (const std::string error = writer.commit(); !error.empty()) {
        throw std::runtime_error{error};
    }
}

std::string nextHopContent(std::uint64_t i, std::uint16_t version = 0x0200) {
    Pel::Stash::FlattenFecNextHop nextHop;
    nextHop.interface = Nexo::IntfId{"eth" + std::to_string(i % 64)};
    nextHop.address =
        Nexo::IpGenAddr{std::array<std::uint8_t, 4>{10,
                                                    static_cast<std::uint8_t>(i >> 16U),
                                                    static_cast<std::uint8_t>(i >> 8U),
                                                    static_cast<std::uint8_t>(i)}};
    nextHop.mac = Nexo::EthAddr{{static_cast<std::uint8_t>(version >> 8U),
                                 static_cast<std::uint8_t>(version),
                                 static_cast<std::uint8_t>(i >> 24U),
                                 static_cast<std::uint8_t>(i >> 16U),
                                 static_cast<std::uint8_t>(i >> 8U),
                                 static_cast<std::uint8_t>(i)}};
    return Pel::Stash::RecordCodec<Pel::Stash::FlattenFecNextHop>::encode(nextHop);
}

using NextHops = Pel::Stash::CollectionPublisher<OcNextHopIndex, Pel::FlattenNextHopEntry>;

void publishNextHop(NextHops& to, std::uint64_t i, const std::string& content) {
    const OcNextHopIndex index{i};
    const std::uint64_t fec = 1 + (i - 1) / kMembers;
    const auto slot = static_cast<std::uint32_t>((i - 1) % kMembers);
    to.set(
        index, {index, Pel::NexthopGroupId{fec}, Pel::NexthopGroupEntryIndex{slot}, {}}, content);
}

std::string nextHopPath() {
    return std::string{FlattenFecSet::kPath} + "/nextHop";
}

void publishState(Store::Writer& writer, std::uint64_t nextHops) {
    Pel::Stash::ContentPublisher contents{writer};
    const std::string path = FlattenFecSet::kPath;
    NextHops hops{writer, contents, nextHopPath(), FlattenFecSet::kNextHopType};
    Pel::Stash::CollectionPublisher<FecId, Pel::FlattenFecEntry> fecs{
        writer, contents, path + "/fec", FlattenFecSet::kFecType};
    for (std::uint64_t i = 1; i <= nextHops; ++i) {
        publishNextHop(hops, i, nextHopContent(i));
        if (i % kEntriesPerTransaction == 0) { commit(writer); }
    }
    for (std::uint64_t id = 1; id <= nextHops / kMembers; ++id) {
        Pel::Stash::FlattenFec fec;
        for (std::uint64_t member = 0; member < kMembers; ++member) {
            fec.nextHopIs({OcNextHopIndex{(id - 1) * kMembers + member + 1},
                           static_cast<std::uint32_t>(member + 1)});
        }
        Pel::FlattenFecEntry entry;
        entry.topFec = true;
        entry.programmedId = id;
        fecs.set(FecId{id}, entry, Pel::Stash::RecordCodec<Pel::Stash::FlattenFec>::encode(fec));
        if (id % kEntriesPerTransaction == 0) { commit(writer); }
    }
    commit(writer);
    Hubdb::Publisher state{writer};
    state.entityIs(Pel::FlattenFecSetReadyStatus::kPath,
                   Pel::FlattenFecSetReadyStatus::kType,
                   Mesa::RecordCodec<Pel::ReadyRecord>::encode({true}));
    commit(writer);
}

}  // namespace

std::unique_ptr<Store::Writer> openWriter(const std::filesystem::path& directory) {
    Store::Options options;
    options.directory = directory;
    std::string error;
    auto environment = Store::Environment::open(options, Store::Access::write, error);
    if (environment == nullptr) { throw std::runtime_error{error}; }
    return std::make_unique<Store::Writer>(std::move(environment));
}

void enableExport(const std::filesystem::path& root) {
    AgentHost::HostConfig config;
    config.root = root;
    const auto writer = openWriter(config.configurationDirectory());
    Hubdb::Publisher configuration{*writer};
    configuration.entityIs(Tolo::Config::kPath,
                           Tolo::Config::kType,
                           Mesa::RecordCodec<Tolo::ConfigRecord>::encode({true}));
    commit(*writer);
}

void fillStore(const std::filesystem::path& root, std::uint64_t nextHops) {
    AgentHost::HostConfig config;
    config.root = root;
    publishState(*openWriter(config.stateDirectory()), nextHops);
    enableExport(root);
}

struct NextHopChanger::Impl {
    explicit Impl(const std::filesystem::path& stateDirectory)
        : writer{openWriter(stateDirectory)} {}
    std::unique_ptr<Store::Writer> writer;
    Pel::Stash::ContentPublisher contents{*writer};
    NextHops hops{*writer, contents, nextHopPath(), FlattenFecSet::kNextHopType};
    std::uint16_t version = 0x0200;
};

NextHopChanger::NextHopChanger(const std::filesystem::path& root, std::uint64_t /*nextHops*/) {
    AgentHost::HostConfig config;
    config.root = root;
    impl_ = std::make_unique<Impl>(config.stateDirectory());
}

NextHopChanger::~NextHopChanger() = default;

void NextHopChanger::prepare(std::uint64_t index) {
    publishNextHop(impl_->hops, index, nextHopContent(index, ++impl_->version));
}

void NextHopChanger::commit() {
    Bench::commit(*impl_->writer);
}

}  // namespace Bench
