#pragma once

#include <flatbuffers/flatbuffers.h>

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace Pel::Record {

/// A copy of the bytes at an address fit for any scalar (the store's records lie anywhere). Holds
/// until the next call on this thread.
std::span<const std::uint8_t> aligned(std::string_view bytes);

/// An empty builder, reused so that a million records allocate its buffer once. One record at a
/// time per thread.
flatbuffers::FlatBufferBuilder& builder();

/// The record's bytes: `build(builder)` answers the offset of the root table.
template <class Build>
std::string encode(Build build) {
    flatbuffers::FlatBufferBuilder& to = builder();
    to.Finish(build(to));
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-reinterpret-cast): bytes as text
    return {reinterpret_cast<const char*>(to.GetBufferPointer()), to.GetSize()};
}

/// The root table, or null when the bytes do not verify. Holds until the next call on this thread.
template <class Table>
const Table* verified(std::string_view bytes) {
    const std::span<const std::uint8_t> copy = aligned(bytes);
    flatbuffers::Verifier verifier{copy.data(), copy.size()};
    return verifier.VerifyBuffer<Table>(nullptr) ? flatbuffers::GetRoot<Table>(copy.data())
                                                 : nullptr;
}

}  // namespace Pel::Record
