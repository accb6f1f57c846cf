#pragma once

#include <cstdint>
#include <string_view>
#include <utility>

namespace Gale {

/// Immutable bytes shared between threads: one allocation, one atomic count, one word to hold.
///
/// An annex may travel with the bytes: data about them that is never sent (the journal keeps the
/// references of an entry there). Copies may be used and dropped on any thread; one object may not
/// be written by two threads at once. A default-constructed object is null: empty, no allocation.
class SharedBytes final {
public:
    SharedBytes() = default;

    /// A copy of `bytes` and `annex`, each below 4 GiB.
    static SharedBytes copyOf(std::string_view bytes, std::string_view annex = {});

    SharedBytes(const SharedBytes& other) noexcept;
    SharedBytes(SharedBytes&& other) noexcept : block_(std::exchange(other.block_, nullptr)) {}
    SharedBytes& operator=(const SharedBytes& other) noexcept;
    SharedBytes& operator=(SharedBytes&& other) noexcept;
    ~SharedBytes() { drop(); }

    /// Valid while any copy of this object lives. Empty when null.
    std::string_view view() const;
    /// Aligned to 8 bytes. Empty when null.
    std::string_view annex() const;

    explicit operator bool() const { return block_ != nullptr; }

    /// Heap bytes of all blocks alive in the process, headers included; for statistics and tests.
    static std::int64_t bytesAlive();

private:
    friend class Content;  // keeps the block pointer in a word of its own
    struct Block;

    void drop() noexcept;

    Block* block_ = nullptr;
};

}  // namespace Gale
