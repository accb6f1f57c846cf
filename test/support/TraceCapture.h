#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "platform/Blink/RingFile.h"

namespace TestSupport {

/// What is traced from its construction on, read back from the process's own ring file (made on
/// first use, in a temporary directory, if there is none).
class TraceCapture {
public:
    TraceCapture();
    std::vector<Blink::Message> messages() const;
    /// The texts only, of one handle (all handles when empty), in order.
    std::vector<std::string> texts(std::string_view handle = {}) const;
    /// How often exactly this text came.
    std::size_t count(std::string_view text) const;
    bool has(std::string_view text) const { return count(text) > 0; }

private:
    std::uint64_t from_;
};

}  // namespace TestSupport
