#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "platform/Blink/RingFile.h"
#include "platform/Blink/RingLayout.h"

namespace {

/// A file in memory, by the name under which it can be opened.
class MemoryFile {
public:
    MemoryFile(const std::uint8_t* data, std::size_t size) : fd_{::memfd_create("ring", 0)} {
        if (fd_ < 0 || ::write(fd_, data, size) != static_cast<ssize_t>(size)) { std::abort(); }
    }
    MemoryFile(const MemoryFile&) = delete;
    MemoryFile& operator=(const MemoryFile&) = delete;
    ~MemoryFile() { ::close(fd_); }
    std::string path() const { return "/proc/self/fd/" + std::to_string(fd_); }

private:
    int fd_;
};

}  // namespace

/// Any bytes are a trace file that is read, or one that is refused with a reason.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const MemoryFile file{data, size};
    Blink::RingReader reader;
    const std::string problem = reader.open(file.path());
    const auto messages = reader.read();
    if (!problem.empty() && !messages.empty()) { std::abort(); }
    // What a message may hold is bounded by its slot and its call site.
    for (const Blink::Message& message : messages) {
        if (message.text.size() > 4 * (1024 + 512) + 64) { std::abort(); }
    }
    // Who reads on gets each whole message, once: what is not whole is waited for at most once.
    Blink::RingPosition position;
    const std::size_t first = reader.readOn(position).size();
    if (first + reader.readOn(position).size() != messages.size()) { std::abort(); }
    return 0;
}
