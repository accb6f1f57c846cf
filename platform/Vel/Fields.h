#pragma once

#include <concepts>
#include <string>
#include <string_view>
#include <tuple>
#include <type_traits>

namespace Vel {

/// One member of a record, by name. A record describes itself once:
///
///     static constexpr auto fields() {
///         return Vel::fields(Vel::field("weight", &Member::weight), ...);
///     }
///
/// and has equality, string form and whatever else walks its fields from that.
template <class Record, class Type>
struct Field {
    std::string_view name;
    Type Record::*member;
};

template <class Record, class Type>
constexpr Field<Record, Type> field(std::string_view name, Type Record::*member) {
    return {name, member};
}

template <class... Fields>
constexpr auto fields(Fields... all) {
    return std::tuple<Fields...>{all...};
}

template <class T>
concept Described = requires {
    T::fields();
};

/// Calls visit(name, value) for each field, in the order of the description.
template <Described T, class Visit>
constexpr void forEachField(const T& record, Visit&& visit) {
    std::apply([&](const auto&... f) { (visit(f.name, record.*(f.member)), ...); }, T::fields());
}

/// Equal in every field, compared in the order of the description.
template <Described T>
constexpr bool isEq(const T& a, const T& b) {
    if (&a == &b) { return true; }
    return std::apply([&](const auto&... f) { return ((a.*(f.member) == b.*(f.member)) && ...); },
                      T::fields());
}

namespace Detail {
template <class T>
void append(std::string& to, const T& value) {
    if constexpr (std::same_as<T, bool>) {
        to += value ? "true" : "false";
    } else if constexpr (std::is_arithmetic_v<T>) {
        to += std::to_string(value);
    } else if constexpr (std::is_enum_v<T>) {
        to += std::to_string(static_cast<std::underlying_type_t<T>>(value));
    } else if constexpr (std::is_convertible_v<const T&, std::string_view>) {
        to += '"';
        to += std::string_view{value};
        to += '"';
    } else if constexpr (Described<T>) {
        to += '{';
        bool first = true;
        forEachField(value, [&](std::string_view name, const auto& member) {
            if (!first) { to += ", "; }
            first = false;
            to += name;
            to += ": ";
            append(to, member);
        });
        to += '}';
    } else if constexpr (requires { value.stringValue(); }) {
        to += value.stringValue();
    } else if constexpr (requires {
                             value.value();
                             *value;
                         }) {
        if (value) {
            append(to, *value);
        } else {
            to += "none";
        }
    } else if constexpr (requires { value.value(); }) {
        append(to, value.value());
    } else {
        to += '[';
        bool first = true;
        for (const auto& element : value) {
            if (!first) { to += ", "; }
            first = false;
            append(to, element);
        }
        to += ']';
    }
}
}  // namespace Detail

/// "{name: value, ...}", for people and tests.
template <Described T>
std::string toString(const T& record) {
    std::string text;
    Detail::append(text, record);
    return text;
}

}  // namespace Vel
