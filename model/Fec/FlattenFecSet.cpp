#include "model/Fec/FlattenFecSet.h"

#include <utility>

#include "platform/Vel/Assert.h"

namespace Pel {

FlattenFecSet::FlattenFecSet(std::string path)
    : Stash::Set{std::move(path)},
      onFecPresent_{fec_.onPresent().subscribe([this] { handlePresent(); })},
      onNextHopPresent_{nextHop_.onPresent().subscribe([this] { handlePresent(); })} {}

void FlattenFecSet::mountIs(Store::Reader& reader, const std::vector<std::string>& collections) {
    for (const std::string& collection : collections) {
        if (collection == kFecCollection) {
            fec_.mountIs(reader, name() + "/" + collection, kFecType);
            fecMounted_ = true;
        } else {
            VEL_ASSERT(collection == kNextHopCollection);
            nextHop_.mountIs(reader, name() + "/" + collection, kNextHopType);
            nextHopMounted_ = true;
        }
    }
}

void FlattenFecSet::handlePresent() {
    const bool ready = (fecMounted_ || nextHopMounted_) && (!fecMounted_ || fec_.present()) &&
                       (!nextHopMounted_ || nextHop_.present());
    if (std::exchange(ready_, ready) != ready) { onReady_.publish(); }
}

}  // namespace Pel
