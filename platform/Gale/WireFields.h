#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include <protozero/buffer_string.hpp>
#include <protozero/pbf_reader.hpp>
#include <protozero/varint.hpp>

// The few pieces of protobuf's wire format that notifications are made of, written into a string or
// a PackedNotification. What is read here the server itself has written.
namespace Gale::WireFields {

/// Tag of a field whose number is below 16.
constexpr char lengthTag(int field) {
    return static_cast<char>((field << 3) | 2);
}
constexpr char varintTag(int field) {
    return static_cast<char>(field << 3);
}

template <class Bytes>
void appendVarint(Bytes& to, std::uint64_t value) {
    std::array<char, protozero::max_varint_length> bytes;
    const int size = protozero::write_varint(bytes.data(), value);
    to.append(std::string_view{bytes.data(), static_cast<std::size_t>(size)});
}
inline std::size_t varintSize(std::uint64_t value) {
    return static_cast<std::size_t>(protozero::length_of_varint(value));
}
/// Of a field with `bytes` of content.
inline std::size_t fieldSize(std::size_t bytes) {
    return 1 + varintSize(bytes) + bytes;
}
/// What goes before the content of a field.
template <class Bytes>
void appendHead(Bytes& to, int field, std::size_t bytes) {
    std::array<char, 1 + protozero::max_varint_length> head;
    head[0] = lengthTag(field);
    const int size = 1 + protozero::write_varint(head.data() + 1, bytes);
    to.append(std::string_view{head.data(), static_cast<std::size_t>(size)});
}
template <class Bytes>
void appendField(Bytes& to, int field, std::string_view content) {
    appendHead(to, field, content.size());
    to.append(content);
}

inline std::string_view viewOf(const protozero::data_view& data) {
    return {data.data(), data.size()};
}
/// The last field of this number, empty when there is none.
inline std::string_view fieldOf(std::string_view message, std::uint32_t number) {
    protozero::pbf_reader reader{message.data(), message.size()};
    std::string_view found;
    while (reader.next(number)) { found = viewOf(reader.get_view()); }
    return found;
}

}  // namespace Gale::WireFields
