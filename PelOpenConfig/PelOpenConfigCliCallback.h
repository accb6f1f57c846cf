#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>

#include "PelOpenConfig/PelOpenConfigCliHelper.h"
#include "platform/AgentHost/AsyncCommandCallback.h"

namespace Pel::Oc {

/// An asynchronous show command of this agent: its name, and the anchor of its requests.
class AsyncCliCallback : public AgentHost::AsyncCommandCallback {
public:
    AsyncCliCallback(std::string name, Vel::Ref<AgentHost::AsyncShowCommandAnchor> anchor);
    const std::string& name() const { return name_; }
    const Vel::Ref<AgentHost::AsyncShowCommandAnchor>& anchor() const { return anchor_; }

private:
    std::string name_;
    Vel::Ref<AgentHost::AsyncShowCommandAnchor> anchor_;
};

/// A command whose requests are served by machines of one class, each made of what it shows.
template <class InstanceSm, class Shown>
class AsyncCliCallbackOf final : public AsyncCliCallback {
public:
    static constexpr const char* kName = InstanceSm::kName;

    AsyncCliCallbackOf(Vel::Ref<AgentHost::AsyncShowCommandAnchor> anchor, Vel::Ref<Shown> shown)
        : AsyncCliCallback{kName, std::move(anchor)}, shown_{std::move(shown)} {}
    Vel::Ref<AgentHost::AsyncShowCommandInstanceSm> createInstanceSm(
        const AgentHost::CommandRequest& params) override {
        return Vel::make<InstanceSm>(anchor(), params, shown_);
    }

private:
    Vel::Ref<Shown> shown_;
};

/// Serves one request for a keyed collection: shows the element that a parameter names or, without
/// it, all of them in the order of the keys, some in each slice. The collection may change between
/// two slices: an element that is there all the time is shown once, one that comes or goes
/// meanwhile once or not at all. The least key is Key{}.
template <class Key>
class KeyedShowCommandInstanceSm : public AgentHost::AsyncShowCommandInstanceSm {
public:
    /// @param parameter whose value names one element
    KeyedShowCommandInstanceSm(const Vel::Ref<AgentHost::AsyncShowCommandAnchor>& anchor,
                               const AgentHost::CommandRequest& params,
                               std::string parameter);

    void produceOutput() override;
    /// The key at which the next slice starts.
    const Key& bookmark() const { return bookmark_; }
    /// How many times the request has yielded.
    std::uint64_t yieldCount() const { return yieldCount_; }

protected:
    virtual void showAll();
    /// What it throws is the request's error.
    virtual void showOne(const std::string& text) = 0;
    /// Before the first of all: headings, the dictionary around them.
    virtual void begin() = 0;
    virtual bool has(const Key& key) const = 0;
    /// The first key after the given one, or of all.
    virtual std::optional<Key> nextKey(const std::optional<Key>& after) const = 0;
    virtual void show(const Key& key) = 0;
    virtual void handleYield() {}

private:
    const std::string parameter_;
    Key bookmark_{};
    std::uint64_t yieldCount_ = 0;
    bool begun_ = false;
};

/// "showFecExport": prints every top FEC of the flattened set in the order of the ids, or the one
/// that the parameter "FECID" names. What a request prints, form by form, is in docs/show.md.
class ShowFecExportAsyncShowCommandInstanceSm final : public KeyedShowCommandInstanceSm<FecId> {
public:
    static constexpr const char* kName = "showFecExport";

    ShowFecExportAsyncShowCommandInstanceSm(
        const Vel::Ref<AgentHost::AsyncShowCommandAnchor>& anchor,
        const AgentHost::CommandRequest& params,
        Vel::Ref<CliHelper> cliHelper);

    void produceOutput() override;

private:
    void showAll() override;
    void showOne(const std::string& text) override;
    void begin() override;
    bool has(const FecId& key) const override;
    std::optional<FecId> nextKey(const std::optional<FecId>& after) const override;
    void show(const FecId& key) override;
    void handleYield() override;

    Vel::Ref<CliHelper> cliHelper_;
};

using ShowFecExportAsyncCliCallback =
    AsyncCliCallbackOf<ShowFecExportAsyncShowCommandInstanceSm, CliHelper>;

}  // namespace Pel::Oc
