#include "platform/Gale/JsonForms.h"

#include "platform/Gale/PackedNotification.h"

#include <utility>

namespace Gale {

SharedBytes JsonForms::of(const Schema::Kind& kind, const SharedBytes& notification) {
    const char* const at = notification.view().data();
    if (const auto found = young_.forms.find(at); found != young_.forms.end()) {
        return found->second.json;
    }
    if (const auto found = old_.forms.find(at); found != old_.forms.end()) {
        Form form = std::move(found->second);
        old_.bytes -= form.bytes();
        old_.forms.erase(found);
        return keep(std::move(form));
    }
    scratch_.clear();
    PackedNotification::unpack(notification.view(), unpacked_);
    converter_.convert(kind, unpacked_, scratch_);
    ++made_;
    return keep({notification, SharedBytes::copyOf(scratch_)});
}

const SharedBytes& JsonForms::keep(Form form) {
    if (young_.bytes + form.bytes() > mostBytes_ / 2) { old_ = std::exchange(young_, {}); }
    young_.bytes += form.bytes();
    const char* const at = form.from.view().data();
    return young_.forms.insert_or_assign(at, std::move(form)).first->second.json;
}

}  // namespace Gale
