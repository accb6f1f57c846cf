#pragma once

#include <absl/container/inlined_vector.h>

#include <algorithm>
#include <array>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

#include "model/Net/EthAddr.h"
#include "model/View/OpenConfigKeys.h"
#include "platform/Gale/NotificationWriter.h"
#include "platform/Gale/PathTemplate.h"
#include "platform/Gale/View.h"
#include "platform/Vel/Attribute.h"
#include "platform/Vel/Fields.h"

namespace Pel::OcApi {

namespace NativeDetail {

template <class T>
struct Unwrapped {
    using Type = T;
};
template <class T>
struct Unwrapped<std::optional<T>> {
    using Type = T;
};
template <class T>
struct Unwrapped<Vel::Attribute<T>> {
    using Type = T;
};
template <class T>
concept Wrapper = !std::same_as<typename Unwrapped<T>::Type, T>;

template <class T>
concept Variant = requires {
    std::variant_size<T>::value;
};
template <class T>
concept Text = std::convertible_to<const T&, std::string_view>;
template <class T>
concept Range = !Text<T> && requires(const T& value) {
    value.begin();
    value.end();
};
template <class T>
using Element = std::remove_cvref_t<decltype(*std::declval<const T&>().begin())>;
/// A collection of records inside a record; an element's first field is its key.
template <class T>
concept List = Range<T> && Vel::Described<Element<T>>;

/// An enumeration, a number, or an identity that has one.
template <class T>
concept Number = !std::same_as<T, bool> && (std::is_enum_v<T> || std::unsigned_integral<T> ||
                                            requires(const T& value) { value.value(); });

template <class Record, class Type>
Type typeOf(const Vel::Field<Record, Type>& field);

}  // namespace NativeDetail

/// The leaves of a record, made from its one description: a field is a leaf of its name; a described
/// field, or the alternative that a variant holds, a container; a collection of records a list keyed
/// by their first field; a collection of numbers a leaf-list. A field that holds nothing (an empty
/// optional, text or collection, no address) has no leaf. Immutable, any thread, if the record is.
template <Vel::Described Record>
class NativeLeaves final {
public:
    NativeLeaves() {
        addRecord<Record>("");
        templates_.reserve(leaves_.size());
        for (const Gale::Leaf& leaf : leaves_) { templates_.emplace_back(leaf.path); }
    }

    /// All that there can be: "index", "nextHops[index]/weight".
    const std::vector<Gale::Leaf>& leaves() const { return leaves_; }
    void write(Gale::NotificationWriter& to, const Record& record) const {
        writeRecord(to, 0, record, Keys<0>{});
    }

private:
    template <std::size_t Depth>
    using Keys = std::array<std::string_view, Depth>;

    // The three walks below visit the same leaves in the same order: paths, their number, values.

    template <class T>
    void addRecord(const std::string& before) {
        std::apply(
            [&](const auto&... field) {
                (add<decltype(NativeDetail::typeOf(field))>(before + std::string{field.name}), ...);
            },
            T::fields());
    }
    template <class T>
    void add(const std::string& path) {
        if constexpr (NativeDetail::Wrapper<T>) {
            add<typename NativeDetail::Unwrapped<T>::Type>(path);
        } else if constexpr (Vel::Described<T>) {
            addRecord<T>(path + "/");
        } else if constexpr (NativeDetail::Variant<T>) {
            [&]<std::size_t... I>(std::index_sequence<I...> /*all*/) {
                (addAlternative<std::variant_alternative_t<I, T>>(path), ...);
            }
            (std::make_index_sequence<std::variant_size_v<T>>{});
        } else if constexpr (NativeDetail::List<T>) {
            using Element = NativeDetail::Element<T>;
            const std::string_view key = std::get<0>(Element::fields()).name;
            addRecord<Element>(path + "[" + std::string{key} + "]/");
        } else {
            leaves_.push_back({path, typeOfLeaf<T>()});
        }
    }
    template <class T>
    static constexpr Gale::Leaf::Type typeOfLeaf() {
        if constexpr (NativeDetail::Range<T>) {
            return typeOfLeaf<NativeDetail::Element<T>>();
        } else if constexpr (NativeDetail::Number<T>) {
            using Number = decltype(number(std::declval<const T&>()));
            return sizeof(Number) == sizeof(std::uint64_t) ? Gale::Leaf::Type::number64
                                                           : Gale::Leaf::Type::plain;
        } else {
            return Gale::Leaf::Type::plain;
        }
    }
    template <class T>
    void addAlternative(const std::string& path) {
        if constexpr (Vel::Described<T>) { addRecord<T>(path + "/"); }
    }

    template <class T>
    static constexpr std::size_t countRecord() {
        return std::apply(
            [](const auto&... field) {
                return (std::size_t{0} + ... + count<decltype(NativeDetail::typeOf(field))>());
            },
            T::fields());
    }
    template <class T>
    static constexpr std::size_t count() {
        if constexpr (NativeDetail::Wrapper<T>) {
            return count<typename NativeDetail::Unwrapped<T>::Type>();
        } else if constexpr (Vel::Described<T>) {
            return countRecord<T>();
        } else if constexpr (NativeDetail::Variant<T>) {
            return countBefore<T>(std::variant_size_v<T>);
        } else if constexpr (NativeDetail::List<T>) {
            return countRecord<NativeDetail::Element<T>>();
        } else {
            return 1;
        }
    }
    /// Of a variant's alternatives before this one.
    template <class T>
    static constexpr std::size_t countBefore(std::size_t alternative) {
        return [alternative]<std::size_t... I>(std::index_sequence<I...> /*all*/) {
            return (std::size_t{0} + ... +
                    (I < alternative ? countAlternative<std::variant_alternative_t<I, T>>() : 0));
        }
        (std::make_index_sequence<std::variant_size_v<T>>{});
    }
    template <class T>
    static constexpr std::size_t countAlternative() {
        if constexpr (Vel::Described<T>) {
            return countRecord<T>();
        } else {
            return 0;
        }
    }

    template <class T, std::size_t Depth>
    void writeRecord(Gale::NotificationWriter& to,
                     std::size_t at,
                     const T& record,
                     const Keys<Depth>& keys) const {
        Vel::forEachField(record, [&](std::string_view /*name*/, const auto& value) {
            write(to, at, value, keys);
            at += count<std::remove_cvref_t<decltype(value)>>();
        });
    }
    template <class T, std::size_t Depth>
    void write(Gale::NotificationWriter& to,
               std::size_t at,
               const T& value,
               const Keys<Depth>& keys) const {
        if constexpr (requires { value.has_value(); }) {
            if (value) { write(to, at, *value, keys); }
        } else if constexpr (NativeDetail::Wrapper<T>) {
            write(to, at, value.get(), keys);
        } else if constexpr (Vel::Described<T>) {
            writeRecord(to, at, value, keys);
        } else if constexpr (NativeDetail::Variant<T>) {
            std::visit(
                [&]<class Alternative>(const Alternative& held) {
                    if constexpr (Vel::Described<Alternative>) {
                        writeRecord(to, at + countBefore<T>(value.index()), held, keys);
                    }
                },
                value);
        } else if constexpr (NativeDetail::List<T>) {
            for (const auto& element : value) {
                const auto& key = element.*(std::get<0>(element.fields()).member);
                const OpenConfigKeys::Decimal text{number(key)};
                Keys<Depth + 1> inner;
                std::copy(keys.begin(), keys.end(), inner.begin());
                inner.back() = text;
                writeRecord(to, at, element, inner);
            }
        } else {
            writeLeaf(to, templates_[at], value, keys);
        }
    }
    template <class T, std::size_t Depth>
    void writeLeaf(Gale::NotificationWriter& to,
                   const Gale::PathTemplate& path,
                   const T& value,
                   const Keys<Depth>& keys) const {
        if constexpr (std::same_as<T, bool>) {
            to.flagLeaf(path, keys, value);
        } else if constexpr (NativeDetail::Text<T>) {
            if (!std::string_view{value}.empty()) { to.leaf(path, keys, std::string_view{value}); }
        } else if constexpr (std::same_as<T, Nexo::EthAddr>) {
            if (!value.isZero()) { to.leaf(path, keys, value.stringValue()); }
        } else if constexpr (NativeDetail::Range<T>) {
            absl::InlinedVector<Gale::NotificationWriter::Element, 16> elements;
            for (const auto& element : value) { elements.push_back({number(element), {}}); }
            if (!elements.empty()) { to.leafList(path, keys, elements); }
        } else if constexpr (requires { value.stringValue(); }) {
            const std::string& text = value.stringValue();
            if (!text.empty()) { to.leaf(path, keys, std::string_view{text}); }
        } else {
            to.leaf(path, keys, std::uint64_t{number(value)});
        }
    }
    template <NativeDetail::Number T>
    static constexpr auto number(const T& value) {
        if constexpr (requires { value.value(); }) {
            return number(value.value());
        } else if constexpr (std::is_enum_v<T>) {
            return number(static_cast<std::underlying_type_t<T>>(value));
        } else {
            return value;
        }
    }

    std::vector<Gale::Leaf> leaves_;
    std::vector<Gale::PathTemplate> templates_;
};

}  // namespace Pel::OcApi
