#include "platform/Gale/JournalEntry.h"

#include "platform/Gale/SharedBytesBlock.h"

namespace Gale {

// The annex holds Reference objects as they are in memory; it is aligned to 8.
static_assert(alignof(Reference) == 8 && std::is_trivially_copyable_v<Reference>);

Content::Content(SharedBytes bytes) noexcept
    : word_(reinterpret_cast<std::uintptr_t>(std::exchange(bytes.block_, nullptr))) {}

Content::Content(const Content& other) noexcept : word_(other.word_), value_(other.value_) {
    if (SharedBytes::Block* block = this->block()) { block->addUser(); }
}

Content::~Content() {
    if (SharedBytes::Block* block = this->block()) { block->release(); }
}

SharedBytes::Block* Content::block() const {
    // NOLINTNEXTLINE(performance-no-int-to-ptr): one word for either, as there are millions
    return isValue() ? nullptr : reinterpret_cast<SharedBytes::Block*>(word_);
}

SharedBytes Content::bytes() const {
    SharedBytes result;
    result.block_ = block();
    if (result.block_ != nullptr) { result.block_->addUser(); }
    return result;
}

std::string_view Content::view() const {
    const SharedBytes::Block* block = this->block();
    return block != nullptr ? block->bytes() : std::string_view{};
}

std::span<const Reference> Content::references() const {
    const SharedBytes::Block* block = this->block();
    if (block == nullptr) { return {}; }
    return {reinterpret_cast<const Reference*>(block->data()),
            block->annexSize / sizeof(Reference)};
}

}  // namespace Gale
