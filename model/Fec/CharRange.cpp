#include "model/Fec/CharRange.h"

#include <charconv>
#include <string>

#include "platform/Vel/Errors.h"

namespace Pel {

void CharRange::needPre(std::string_view text) {
    if (rest_.substr(0, text.size()) != text) {
        throw Vel::DeserialisationError{"\"" + std::string{text} + "\" expected"};
    }
    rest_.remove_prefix(text.size());
}

std::uint64_t CharRange::needNumber() {
    std::uint64_t value = 0;
    const char* const end = rest_.data() + rest_.size();
    const auto [after, error] = std::from_chars(rest_.data(), end, value);
    if (error == std::errc::result_out_of_range) {
        throw Vel::RangeError{"number of more than 64 bits not allowed"};
    }
    if (error != std::errc{}) { throw Vel::DeserialisationError{"number expected"}; }
    rest_.remove_prefix(static_cast<std::size_t>(after - rest_.data()));
    return value;
}

void CharRange::needEnd() const {
    if (!rest_.empty()) {
        throw Vel::DeserialisationError{"end expected before \"" + std::string{rest_} + "\""};
    }
}

}  // namespace Pel
