#include "forwarder/Scenario/YamlTree.h"

#include <yaml-cpp/eventhandler.h>
#include <yaml-cpp/exceptions.h>
#include <yaml-cpp/mark.h>
#include <yaml-cpp/parser.h>

#include <exception>
#include <sstream>
#include <utility>

namespace Pel::Forwarder {

namespace {

Place placeOf(const YAML::Mark& mark) {
    return mark.is_null() ? Place{} : Place{mark.line + 1, mark.column + 1};
}

/// Builds the tree out of the parser's events.
class TreeBuilder final : public YAML::EventHandler {
public:
    void OnDocumentStart(const YAML::Mark& mark) override {
        if (++documents_ > 1) { throw YAML::ParserException{mark, "expected one document only"}; }
    }
    void OnDocumentEnd() override {}
    void OnNull(const YAML::Mark& mark, YAML::anchor_t) override {
        add(make(YamlNode::Kind::null, mark));
    }
    void OnAlias(const YAML::Mark& mark, YAML::anchor_t) override {
        throw YAML::ParserException{mark, "aliases are not accepted; write the value out"};
    }
    void OnScalar(const YAML::Mark& mark,
                  const std::string& /*tag*/,
                  YAML::anchor_t,
                  const std::string& value) override {
        YamlNode node = make(YamlNode::Kind::scalar, mark);
        node.text = value;
        add(std::move(node));
    }
    void OnSequenceStart(const YAML::Mark& mark,
                         const std::string& /*tag*/,
                         YAML::anchor_t,
                         YAML::EmitterStyle::value) override {
        open(make(YamlNode::Kind::list, mark), mark);
    }
    void OnSequenceEnd() override { close(); }
    void OnMapStart(const YAML::Mark& mark,
                    const std::string& /*tag*/,
                    YAML::anchor_t,
                    YAML::EmitterStyle::value) override {
        open(make(YamlNode::Kind::map, mark), mark);
    }
    void OnMapEnd() override { close(); }

    YamlNode take() { return std::move(root_); }

private:
    YamlNode make(YamlNode::Kind kind, const YAML::Mark& mark) {
        if (++nodes_ > kMaxYamlNodes) {
            throw YAML::ParserException{
                mark, "too many values; the limit is " + std::to_string(kMaxYamlNodes)};
        }
        YamlNode node;
        node.kind = kind;
        node.place = placeOf(mark);
        return node;
    }
    void open(YamlNode node, const YAML::Mark& mark) {
        if (open_.size() >= kMaxYamlDepth) {
            throw YAML::ParserException{
                mark, "nested too deep; the limit is " + std::to_string(kMaxYamlDepth)};
        }
        open_.push_back(std::move(node));
    }
    void close() {
        YamlNode done = std::move(open_.back());
        open_.pop_back();
        add(std::move(done));
    }
    void add(YamlNode node) {
        if (open_.empty()) {
            root_ = std::move(node);
        } else {
            open_.back().items.push_back(std::move(node));
        }
    }

    YamlNode root_;
    std::vector<YamlNode> open_;
    std::size_t nodes_ = 0;
    int documents_ = 0;
};

}  // namespace

std::optional<YamlNode> parseYaml(std::string_view text, Problems& problems) {
    if (text.size() > kMaxYamlBytes) {
        problems.add({},
                     "expected at most " + std::to_string(kMaxYamlBytes) + " bytes, not " +
                         std::to_string(text.size()));
        return std::nullopt;
    }
    TreeBuilder builder;
    try {
        std::istringstream stream{std::string{text}};
        YAML::Parser parser{stream};
        while (parser.HandleNextDocument(builder)) {}
        return builder.take();
    } catch (const YAML::Exception& error) {
        problems.add(placeOf(error.mark), "not well-formed: " + error.msg);
    } catch (const std::exception& error) { problems.add({}, error.what()); }
    return std::nullopt;
}

}  // namespace Pel::Forwarder
