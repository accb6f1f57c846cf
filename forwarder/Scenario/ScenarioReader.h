#pragma once

#include <absl/functional/function_ref.h>

#include <cstdint>
#include <optional>
#include <string>

#include "forwarder/Scenario/ElementReader.h"
#include "forwarder/Scenario/Scenario.h"
#include "forwarder/Scenario/ScenarioState.h"

namespace Pel::Forwarder {

/// Reads a scenario's document: plays it from the beginning through all its steps, and notes what each of them publishes.
///
/// A timeline that repeats is played twice. What the second round publishes, every later one does: each element ends a round
/// as the round's last step on it left it, however it was before.
class ScenarioReader {
public:
    ScenarioReader(const YamlNode& root, Problems& problems, bool lax)
        : root_{root}, problems_{problems}, elements_{problems, lax}, state_{problems, lax} {}

    /// Once. What it answers counts only if there are no problems.
    Scenario read();

private:
    enum class Verb : std::uint8_t { add, change, del };
    /// How one kind of elements is found, read and deleted.
    template <class Key, class Element>
    struct Kind {
        std::string_view what;
        absl::FunctionRef<std::optional<Key>(const YamlNode&)> key;
        absl::FunctionRef<const Element*(const Key&)> find;
        absl::FunctionRef<void(const YamlNode&, const Key&, Element&)> put;
        absl::FunctionRef<void(const Key&, Place)> del;
    };

    /// All lists but that of the VRFs, which others name.
    void elementsInVrfs(const FieldReader& fields, Verb verb);
    template <class Key, class Element>
    void each(const YamlNode* list, Verb verb, const Kind<Key, Element>& kind);
    void vrfs(const YamlNode* list, Verb verb);
    void vtis(const YamlNode* list, Verb verb);
    void udpPorts(const YamlNode* list, Verb verb);
    void decapGroups(const YamlNode* list, Verb verb);
    void nextHops(const YamlNode* list, Verb verb);
    void fecs(const YamlNode* list, Verb verb);
    void routes(const YamlNode* list, Verb verb);
    void counters(const YamlNode* list, Verb verb);
    void readiness(const YamlNode* node);
    void forEachVrf(const YamlNode* map,
                    absl::FunctionRef<void(const YamlNode&, const YamlNode&)> visit);
    void repetition(const FieldReader& fields, Scenario& to);
    void timeline(const YamlNode* list, std::vector<Scenario::Step>& to);
    Scenario::Step step(const YamlNode& node);

    const YamlNode& root_;
    Problems& problems_;
    ElementReader elements_;
    ScenarioState state_;
    bool again_ =
        false;  // a later round: what is to be added may be there, what is to be deleted gone
};

}  // namespace Pel::Forwarder
