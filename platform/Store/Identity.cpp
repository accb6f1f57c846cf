#include "platform/Store/Identity.h"

#include <algorithm>
#include <cstring>
#include <fstream>
#include <random>

namespace Store {
namespace {

std::array<char, 40> thisBoot() {
    std::array<char, 40> boot{};
    std::string text;
    std::ifstream{"/proc/sys/kernel/random/boot_id"} >> text;
    std::copy_n(text.begin(), std::min(text.size(), boot.size()), boot.begin());
    return boot;
}

}  // namespace

Identity Identity::make() {
    std::random_device random;
    const std::uint64_t high = random();
    return {kLayoutVersion, kByteOrder, thisBoot(), (high << 32 | random()) | 1};
}

std::optional<Identity> Identity::decode(std::string_view bytes) {
    Identity identity;
    if (bytes.size() < sizeof identity) { return std::nullopt; }
    std::memcpy(&identity, bytes.data(), sizeof identity);
    return identity;
}

std::string Identity::encode() const {
    std::string bytes(sizeof *this, '\0');
    std::memcpy(bytes.data(), this, sizeof *this);
    return bytes;
}

bool Identity::ofThisBoot() const {
    return boot == thisBoot();
}

std::string Identity::objection() const {
    if (byteOrder != kByteOrder) { return "was written in another byte order"; }
    if (version != kLayoutVersion) {
        return "has layout version " + std::to_string(version) + ", this program reads version " +
               std::to_string(kLayoutVersion);
    }
    return ofThisBoot() ? std::string{} : "is of another boot";
}

}  // namespace Store
