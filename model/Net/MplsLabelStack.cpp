#include "model/Net/MplsLabelStack.h"

namespace Nexo {

std::string MplsLabelStack::stringValue() const {
    std::string text = "[";
    for (const MplsLabel label : labels_) {
        if (text.size() > 1) { text += ", "; }
        text += std::to_string(label.value());
    }
    return text + "]";
}

}  // namespace Nexo
