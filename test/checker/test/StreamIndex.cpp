#include "test/checker/test/StreamIndex.h"

#include "test/checker/AftSchema.h"

namespace Checker {

StreamIndex::StreamIndex(const Stream& stream) {
    bool live = false;
    for (std::size_t i = 0; i < stream.messages.size(); ++i) {
        const gnmi::SubscribeResponse& response = stream.messages[i].response;
        if (!response.has_update()) {
            live = true;
            sync_ = i;
            continue;
        }
        const gnmi::Notification& notification = response.update();
        Elems elems;
        append(elems, notification.prefix());
        if (notification.delete__size() == 1) { append(elems, notification.delete_(0)); }
        const Place place = placeOf(elems);
        if (place.kind != Place::Kind::entry) { continue; }
        Step step;
        step.at = i;
        step.entry = entryPath(place.list, place.instance, place.key);
        step.list = place.list;
        step.isDelete = notification.delete__size() != 0;
        step.live = live;
        steps_.push_back(step);
    }
    std::map<std::string, Step*> last;
    for (Step& step : steps_) {
        Step*& before = last[step.entry];
        step.first = before == nullptr;
        step.before = before;
        if (before != nullptr) { before->after = &step; }
        before = &step;
        byEntry_[step.entry].push_back(&step);
    }
    for (auto& [entry, step] : last) { step->last = true; }
}

const Step* StreamIndex::find(const std::function<bool(const Step&)>& wanted) const {
    for (const Step& step : steps_) {
        if (wanted(step)) { return &step; }
    }
    return nullptr;
}

}  // namespace Checker
