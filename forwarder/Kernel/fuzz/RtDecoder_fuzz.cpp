#include <cstddef>
#include <cstdint>
#include <span>

#include "forwarder/Kernel/RtDecoder.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Pel::Forwarder::NetlinkReader reader{std::as_bytes(std::span{data, size})};
    while (const auto frame = reader.next()) { (void)Pel::Forwarder::decode(*frame); }
    return 0;
}
