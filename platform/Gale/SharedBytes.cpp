#include "platform/Gale/SharedBytes.h"

#include "platform/Gale/SharedBytesBlock.h"
#include "platform/Vel/Assert.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <new>

namespace Gale {

namespace {

std::atomic<std::int64_t> bytesAlive_{0};

}  // namespace

SharedBytes::Block* SharedBytes::Block::make(std::string_view bytes, std::string_view annex) {
    constexpr std::size_t kMost = std::numeric_limits<std::uint32_t>::max();
    VEL_ASSERT(bytes.size() <= kMost && annex.size() <= kMost);
    void* memory = ::operator new(sizeof(Block) + annex.size() + bytes.size());
    auto* block = new (memory) Block{};
    block->size = static_cast<std::uint32_t>(bytes.size());
    block->annexSize = static_cast<std::uint32_t>(annex.size());
    std::copy(annex.begin(), annex.end(), block->data());
    std::copy(bytes.begin(), bytes.end(), block->data() + annex.size());
    bytesAlive_.fetch_add(block->footprint(), std::memory_order_relaxed);
    return block;
}

void SharedBytes::Block::release() noexcept {
    // Acquire, so that whoever frees has seen the others' last reads.
    if (count.fetch_sub(1, std::memory_order_acq_rel) != 1) { return; }
    bytesAlive_.fetch_sub(footprint(), std::memory_order_relaxed);
    this->~Block();
    ::operator delete(this);
}

SharedBytes SharedBytes::copyOf(std::string_view bytes, std::string_view annex) {
    SharedBytes result;
    result.block_ = Block::make(bytes, annex);
    return result;
}

SharedBytes::SharedBytes(const SharedBytes& other) noexcept : block_(other.block_) {
    if (block_ != nullptr) { block_->addUser(); }
}

SharedBytes& SharedBytes::operator=(const SharedBytes& other) noexcept {
    SharedBytes copy{other};
    std::swap(block_, copy.block_);
    return *this;
}

SharedBytes& SharedBytes::operator=(SharedBytes&& other) noexcept {
    SharedBytes taken{std::move(other)};
    std::swap(block_, taken.block_);
    return *this;
}

std::string_view SharedBytes::view() const {
    return block_ != nullptr ? block_->bytes() : std::string_view{};
}

std::string_view SharedBytes::annex() const {
    return block_ != nullptr ? block_->annex() : std::string_view{};
}

void SharedBytes::drop() noexcept {
    if (block_ != nullptr) { std::exchange(block_, nullptr)->release(); }
}

std::int64_t SharedBytes::bytesAlive() {
    return bytesAlive_.load(std::memory_order_relaxed);
}

}  // namespace Gale
