#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "platform/Blink/Trace.h"
#include "platform/Hubdb/EntityManager.h"
#include "platform/Mesa/Table.h"
#include "platform/Vel/Attribute.h"
#include "platform/Vel/Fields.h"

namespace Pel {

/// An entity of the state database whose whole content is one record, mirrored and read-only to
/// this process. The record's bytes are those of its RecordCodec.
template <class Record>
class MirroredRecord : public Hubdb::MirroredEntity {
public:
    using Hubdb::MirroredEntity::MirroredEntity;

    const Record& record() const { return record_; }
    /// The record differs from the one before.
    Vel::Publisher<>& onRecord() const { return changed_; }

    bool recordIs(std::string_view bytes) override {
        std::optional<Record> decoded = Mesa::RecordCodec<Record>::decode(bytes);
        if (!decoded) {
            static constinit Blink::CallSite site{
                5, "{}: the record does not verify", __FILE__, "recordIs", __LINE__, {}};
            Blink::trace<1>(site, Blink::handle("Model"), name());
            return false;
        }
        replace(std::move(*decoded));
        return true;
    }
    void recordDel() override { replace(Record{}); }

protected:
    /// Tells what differs; the new record is in place.
    virtual void recordChanged(const Record& /*previous*/) {}
    void replace(Record next) {
        if (Vel::isEq(record_, next)) { return; }
        const auto keep = Vel::keepAlive(this);
        const Record previous = std::exchange(record_, std::move(next));
        recordChanged(previous);
        changed_.publish();
    }

private:
    Record record_;
    mutable Vel::Publisher<> changed_;
};

}  // namespace Pel
