#pragma once

#include "platform/Gale/Demand.h"
#include "platform/Gale/Journal.h"
#include "platform/Gale/LazyFill.h"
#include "platform/Gale/Provider.h"
#include "platform/Gale/Schema.h"
#include "platform/Gale/View.h"

#include <functional>
#include <memory>
#include <string>

namespace Gale {

/// A view at work: its schema, its journal, and the provider that fills it, always or on demand.
/// Made and destroyed on the scheduler's thread; the I/O thread uses all but the last two members.
class Channel final {
public:
    /// `onAdvance`: see Journal::Options.
    Channel(std::string channelOrigin,
            std::unique_ptr<View> channelView,
            std::function<void()> onAdvance)
        : origin(std::move(channelOrigin)),
          view(std::move(channelView)),
          schema(*view),
          journal({.onAdvance = std::move(onAdvance), .referenceOf = [this](std::uint64_t value) {
                       return view->referenceOf(value);
                   }}) {}

    const std::string origin;
    const std::unique_ptr<View> view;
    const Schema schema;
    Journal journal;
    Demand demand;  ///< a call holds a token while it has a cursor; I/O thread only
    std::unique_ptr<Provider> provider;  ///< null while a lazy channel is empty
    std::shared_ptr<LazyFill> lazyFill;  ///< null: the channel is eager
};

}  // namespace Gale
