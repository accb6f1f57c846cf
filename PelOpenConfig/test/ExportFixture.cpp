#include "PelOpenConfig/test/ExportFixture.h"

#include "platform/Blink/RingFile.h"

namespace Pel::Oc {
namespace {

/// The child of a death test must not write into the ring of the tests that follow.
[[maybe_unused]] const bool ringIsNotShared = (Blink::handlesDeleteOnForkIs(true), true);

}  // namespace

void ExportFixture::fill(Stash::FlattenFecNextHop& nextHop, const std::string& interface) {
    nextHop.interface = Nexo::IntfId{interface};
    nextHop.address = *Nexo::IpGenAddr::parse("10.0.0.1");
    nextHop.mac = Nexo::EthAddr{{0x00, 0x1c, 0x73, 0, 0, 1}};
}

}  // namespace Pel::Oc
