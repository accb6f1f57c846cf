#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <mutex>
#include <string>

#include "platform/Blink/RingLayout.h"
#include "platform/Blink/Trace.h"

namespace Blink {

/// Writes messages into a mapped ring file. Any thread; wait-free after a call site's first
/// message. A message that finds its slot still being written by a thread that was overtaken by the
/// whole ring is dropped, so that what the reader takes for whole is whole.
class RingWriter {
public:
    /// Makes the file anew and maps it. Null, with `error` set, when that fails.
    static std::unique_ptr<RingWriter> create(const std::filesystem::path& path,
                                              unsigned ringBytesLog2,
                                              unsigned slotBytes,
                                              std::string& error);
    RingWriter(const RingWriter&) = delete;
    RingWriter& operator=(const RingWriter&) = delete;
    ~RingWriter();

    void write(CallSite& site, const Handle& handle, const Arguments& arguments);
    std::uint64_t nextMessage() const;

    /// The process's writer, or null.
    static RingWriter* current() { return Detail::currentRing.load(std::memory_order_acquire); }
    static void currentIs(RingWriter* writer) {
        Detail::currentRing.store(writer, std::memory_order_release);
    }

private:
    RingWriter() = default;
    std::uint32_t siteId(CallSite& site, const Handle& handle);

    int fd_ = -1;  // kept open for its lock, which says that somebody writes
    std::byte* base_ = nullptr;
    std::size_t size_ = 0;
    Layout::Header* header_ = nullptr;
    std::uint64_t slotCount_ = 0;
    std::uint32_t slotBytes_ = 0;
    std::uint32_t epoch_ = 0;  // upper bits of the site ids of this file
    std::mutex siteMutex_;
    std::uint32_t sites_ = 0;
};

}  // namespace Blink
