#include "PelOpenConfig/DecapGroupConfigMergeSm.h"

#include "platform/Blink/Trace.h"

BLINK_TRACE_HANDLE("DecapGroupConfigMergeSm");

namespace Pel::Oc {

using Tunnel::Decap::ConfigInput;

namespace {

Lmo::SmControl controlOf(const Vel::Ref<Hubdb::EntityManager>& entityManager) {
    Lmo::SmControl control;
    control.scheduler = entityManager->scheduler();
    return control;
}

}  // namespace

DecapGroupConfigMergeSm::DecapGroupConfigMergeSm(
    Vel::Ref<Tunnel::Decap::Config> merged,
    Vel::Ref<const ConfigInput> cli,
    Vel::Ref<const Vel::Dir> dynamic,
    const Vel::Ref<Hubdb::EntityManager>& entityManager)
    : ConfigMergeSm{std::move(dynamic), controlOf(entityManager), "DecapGroupConfigMergeSmTask"},
      merged_{std::move(merged)},
      cli_{std::move(cli)} {
    TRACE9("Starting");
    handleInitialized(cli_ ? &cli_->onRecord() : nullptr);
}

void DecapGroupConfigMergeSm::begin() {
    record_ = cli_ ? cli_->record() : Tunnel::Decap::ConfigRecord{};
}

bool DecapGroupConfigMergeSm::add(const Vel::Entity& source) {
    const auto* const input = dynamic_cast<const ConfigInput*>(&source);
    if (input == nullptr) { return false; }
    const auto& groups = input->record().decapGroup;
    record_.decapGroup.insert(groups.begin(), groups.end());
    return true;
}

void DecapGroupConfigMergeSm::end() {
    merged_->recordIs(std::exchange(record_, {}));
}

}  // namespace Pel::Oc
