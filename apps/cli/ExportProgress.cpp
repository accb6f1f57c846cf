#include "apps/cli/ExportProgress.h"

#include <absl/hash/hash.h>
#include <proto/gnmi.pb.h>

#include "apps/cli/GnmiText.h"

namespace Pel::Cli {
namespace {

constexpr std::string_view kDefaultSynced =
    "/network-instances/network-instance[name=DEFAULT]/afts/state-synced/state/";

bool isEntryOf(std::string_view path, std::string_view list) {
    return path.find(list) != std::string_view::npos && path.ends_with(']');
}

}  // namespace

ExportProgress::ExportProgress(const std::string& server) {
    counts_.lastChange = std::chrono::steady_clock::now();
    thread_ = std::thread{[this, server] {
        GnmiStream::Request request;
        request.server = server;
        std::string error;
        stream_.run(
            request,
            [this](const gnmi::SubscribeResponse& response) {
                const std::lock_guard lock{mutex_};
                if (response.has_update()) { take(response.update()); }
                if (response.sync_response()) { counts_.synced = true; }
                return true;
            },
            error);
        const std::lock_guard lock{mutex_};
        counts_.ended = true;
        counts_.error = error;
    }};
}

ExportProgress::~ExportProgress() {
    stream_.cancel();
    thread_.join();
}

ExportProgress::Counts ExportProgress::counts() const {
    const std::lock_guard lock{mutex_};
    return counts_;
}

absl::flat_hash_set<std::uint64_t>* ExportProgress::listOf(std::string_view path) {
    if (isEntryOf(path, "/afts/next-hops/next-hop[")) { return &nextHops_; }
    if (isEntryOf(path, "/afts/next-hop-groups/next-hop-group[")) { return &groups_; }
    if (isEntryOf(path, "/afts/ipv4-unicast/ipv4-entry[")) { return &ipv4_; }
    if (isEntryOf(path, "/afts/ipv6-unicast/ipv6-entry[")) { return &ipv6_; }
    return nullptr;
}

void ExportProgress::entryIs(std::string_view path, bool present) {
    auto* const list = listOf(path);
    if (list == nullptr) { return; }
    const std::uint64_t key = absl::HashOf(path);
    const bool changed = present ? list->insert(key).second : list->erase(key) > 0;
    if (changed) { counts_.lastChange = std::chrono::steady_clock::now(); }
}

void ExportProgress::take(const gnmi::Notification& notification) {
    const gnmi::Path nothing;
    for (const gnmi::Path& gone : notification.delete_()) {
        entryIs(pathText(notification.prefix(), gone), false);
    }
    const std::string entry = pathText(notification.prefix(), nothing);
    if (auto* const list = listOf(entry); list != nullptr && notification.atomic()) {
        entryIs(entry, true);
        if (list == &nextHops_) {
            for (const gnmi::Update& update : notification.update()) {
                const std::string below = pathText(nothing, update.path());
                if (below == "/interface-ref/state/interface") {
                    interfaces_.insert(update.val().string_val());
                }
            }
        }
    } else {
        for (const gnmi::Update& update : notification.update()) {
            takeLeaf(pathText(notification.prefix(), update.path()), valueText(update.val()));
        }
    }
    counts_.interfaces = interfaces_.size();
    counts_.nextHops = nextHops_.size();
    counts_.groups = groups_.size();
    counts_.ipv4 = ipv4_.size();
    counts_.ipv6 = ipv6_.size();
}

void ExportProgress::takeLeaf(std::string_view path, std::string_view value) {
    if (!path.starts_with(kDefaultSynced)) { return; }
    path.remove_prefix(kDefaultSynced.size());
    if (path == "ipv4-unicast") { counts_.ipv4StateSynced = value == "true"; }
    if (path == "ipv6-unicast") { counts_.ipv6StateSynced = value == "true"; }
}

}  // namespace Pel::Cli
