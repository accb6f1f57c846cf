#pragma once

#include <gmock/gmock.h>
#include <google/protobuf/text_format.h>
#include <proto/gnmi.pb.h>

#include <algorithm>
#include <array>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "model/Aft/AftContainer.h"
#include "model/Readiness/GatedFibReady.h"
#include "model/Registration.h"
#include "model/Route/RouteStatus.h"
#include "model/View/OpenConfigView.h"
#include "platform/Gale/Channel.h"
#include "platform/Gale/ChannelReader.h"
#include "platform/Gale/Cursor.h"
#include "platform/Gale/GetAnswer.h"
#include "platform/Gale/StampClock.h"
#include "platform/Mesa/EntityManager.h"
#include "platform/Mesa/Publisher.h"
#include "platform/Store/test/StoreFixture.h"

namespace Pel::OcApi {

inline constexpr const char* kAfts = "/network-instances/network-instance[name=DEFAULT]/afts";
using Leaves = std::map<std::string, std::string>;

inline Nexo::IpGenAddr address(const char* text) {
    return *Nexo::IpGenAddr::parse(text);
}
inline Nexo::IpPrefix prefix(const char* text) {
    return *Nexo::IpPrefix::parse(text);
}

inline std::string textOf(const gnmi::TypedValue& value) {
    if (value.has_leaflist_val()) {
        std::string text = "[";
        for (const auto& element : value.leaflist_val().element()) {
            text += textOf(element) + " ";
        }
        return text + "]";
    }
    if (value.has_uint_val()) { return std::to_string(value.uint_val()); }
    if (value.has_bool_val()) { return value.bool_val() ? "true" : "false"; }
    return value.string_val();
}

/// The view on real containers and real tables, down to what a cursor hands out.
class OpenConfigViewTest : public Store::StoreFixture {
protected:
    OpenConfigViewTest() {
        registerModelTypes();
        const auto afts = root->entityIs<Vel::Dir>("OpenConfig")->entityIs<Vel::Dir>("afts");
        aft = afts->entityIs<AftContainer>("aftContainer");
        aft->nextHopGroupsIs();
        aft->nextHopsIs();
        aft->nextHopCountersIs();
        aft->fibReadyIs();
    }
    ~OpenConfigViewTest() override {
        cursor.reset();
        if (channel) { channel->provider.reset(); }
    }

    void show(std::vector<std::string> prefixes = {"routing/status",
                                                   "routing/vrf/status",
                                                   "routing6/status",
                                                   "routing6/vrf/status"}) {
        Gale::ViewInputs inputs;
        inputs.root = root;
        inputs.tables = tables;
        inputs.mounted = [this](std::string_view path) -> Vel::Ref<Vel::Entity> {
            if (path != GatedReady::FibReady::kDirPath) { return nullptr; }
            return gated;
        };
        inputs.tablePrefixes = std::move(prefixes);
        inputs.defaultInstance = "DEFAULT";
        channel = std::make_unique<Gale::Channel>(
            "openconfig", std::make_unique<OpenConfigView>(inputs), [this] {
                if (onAdvance) { onAdvance(); }
            });
        channel->provider = std::make_unique<Gale::Provider>(
            *channel->view, channel->journal, stamps, scheduler, nullptr, std::chrono::seconds{30});
        cursor.emplace(channel->journal, Gale::CursorFilter{});
        settle();
    }

    /// What the cursor hands out now, as a client gets it.
    std::vector<gnmi::Notification> take() {
        settle();
        std::vector<gnmi::Notification> all;
        std::array<Gale::CursorMessage, 16> messages;
        for (;;) {
            const auto result = cursor->next(messages);
            for (std::size_t i = 0; i < result.count; ++i) {
                if (messages[i].kind == Gale::CursorMessage::Kind::sync) { continue; }
                EXPECT_TRUE(all.emplace_back().ParseFromString(bytesOf(messages[i])));
                const bool summary = entry(all.back()).find("/aft-summaries/") != std::string::npos;
                if (summary && !summaries) { all.pop_back(); }
            }
            if (result.state != Gale::Cursor::State::more) { return all; }
        }
    }
    std::string bytesOf(const Gale::CursorMessage& message) {
        Gale::PackedNotification packed;
        std::string bytes;
        Gale::PackedNotification::unpack(
            Gale::ChannelReader::notification(
                *channel, {message.lane, message.key}, message.content, packed),
            bytes);
        return bytes;
    }
    static std::string pathText(const gnmi::Path& path) {
        std::string text;
        for (const gnmi::PathElem& elem : path.elem()) {
            text += "/" + elem.name();
            for (const auto& [key, value] : elem.key()) { text += "[" + key + "=" + value + "]"; }
        }
        return text;
    }
    static std::string entry(const gnmi::Notification& notification) {
        if (notification.update().empty() && !notification.delete_().empty()) {
            return "delete " + pathText(notification.delete_(0));
        }
        return pathText(notification.prefix());
    }
    /// A path of the schema without modules.
    static std::string plain(std::string path) {
        for (auto colon = path.find(':'); colon != std::string::npos; colon = path.find(':')) {
            const auto slash = path.rfind('/', colon);
            const auto begin = slash == std::string::npos ? 0 : slash + 1;
            path.erase(begin, colon + 1 - begin);
        }
        return path;
    }
    /// With key names instead of values: "next-hops/next-hop[index]".
    static std::string schemaText(const gnmi::Path& path) {
        std::string text;
        for (const gnmi::PathElem& elem : path.elem()) {
            text += (text.empty() ? "" : "/") + elem.name();
            for (const auto& [key, value] : elem.key()) { text += "[" + key + "]"; }
        }
        return text;
    }
    /// The leaves by path; each must be one that its kind is known to have.
    Leaves leaves(const gnmi::Notification& notification) const {
        Leaves all;
        const Gale::EntryKind* kind = nullptr;
        for (const Gale::EntryKind& each : channel->view->kinds()) {
            if (plain(each.path) == schemaText(notification.prefix())) { kind = &each; }
        }
        EXPECT_NE(kind, nullptr) << entry(notification);
        for (const gnmi::Update& update : notification.update()) {
            if (kind != nullptr) {
                const std::string path = schemaText(update.path());
                EXPECT_TRUE(std::any_of(kind->leaves.begin(), kind->leaves.end(), [&](auto& leaf) {
                    return plain(leaf.path) == path;
                })) << path;
            }
            EXPECT_TRUE(all.emplace(pathText(update.path()).substr(1), textOf(update.val())).second)
                << "a path twice: " << pathText(update.path());
        }
        return all;
    }
    std::vector<std::string> takeEntries() {
        std::vector<std::string> all;
        for (const auto& notification : take()) { all.push_back(entry(notification)); }
        return all;
    }
    /// The one entry that changed.
    Leaves takeLeaves(const std::string& wanted) {
        for (const auto& notification : take()) {
            if (entry(notification) == wanted) { return leaves(notification); }
        }
        ADD_FAILURE() << "no " << wanted;
        return {};
    }
    /// The answer to a Get, given as text.
    gnmi::GetResponse get(const std::string& text) {
        settle();
        gnmi::GetRequest request;
        EXPECT_TRUE(google::protobuf::TextFormat::ParseFromString(text, &request));
        std::vector<std::unique_ptr<Gale::Channel>> channels;
        channels.push_back(std::move(channel));
        auto plan = Gale::planGet(request, channels, limits);
        EXPECT_TRUE(std::holds_alternative<Gale::GetPlan>(plan));
        gnmi::GetResponse response;
        {
            Gale::GetAnswer answer{std::get<Gale::GetPlan>(std::move(plan)), limits, clock, [] {}};
            auto state = Gale::GetAnswer::State::more;
            while (state == Gale::GetAnswer::State::more) { state = answer.step(); }
            EXPECT_EQ(state, Gale::GetAnswer::State::done) << answer.status().message;
            EXPECT_TRUE(response.ParseFromString(answer.takeMessage()));
        }
        channel = std::move(channels.front());
        return response;
    }
    NextHop nextHop(std::uint64_t index) {
        NextHop hop;
        hop.index = NextHopIndex{index};
        hop.ipAddress = address("192.0.2.1");
        hop.interface = Nexo::IntfId{"Ethernet1"};
        return hop;
    }
    void count(std::uint64_t index, std::uint64_t packets, std::uint64_t octets) {
        aft->nextHopCounters()->nextHopCounterIs({NextHopIndex{index}, packets, octets});
    }
    void group(std::uint64_t id, std::vector<NextHopInGroup> members) {
        NextHopGroup made;
        made.id = NextHopGroupId{id};
        for (const auto& member : members) { made.nextHops.nextHopInGroupIs(member); }
        aft->nextHopGroups()->nextHopGroupIs(made);
    }

    Vel::Ref<Vel::Dir> root = Vel::make<Vel::Dir>("AftExport");
    Vel::Ref<AftContainer> aft;
    Vel::Ref<Vel::Dir> gated = Vel::make<Vel::Dir>("fibReady");
    bool summaries = false;           // are taken, too
    std::function<void()> onAdvance;  // after each batch, once it is set
    std::unique_ptr<Store::Writer> writer = makeWriter();
    Vel::Ref<Store::Reader> reader = makeReader();
    Vel::Ref<Mesa::EntityManager> tables = Vel::make<Mesa::EntityManager>(reader);
    Gale::StampClock stamps{clock, {}};
    Gale::Limits limits;
    std::unique_ptr<Gale::Channel> channel;
    std::optional<Gale::Cursor> cursor;
};

}  // namespace Pel::OcApi
