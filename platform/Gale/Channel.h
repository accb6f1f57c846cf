#pragma once

#include "platform/Gale/Journal.h"
#include "platform/Gale/Provider.h"
#include "platform/Gale/Schema.h"
#include "platform/Gale/View.h"

#include <functional>
#include <memory>
#include <string>

namespace Gale {

/// A view at work: its schema, its journal, and the provider that fills it. Made and destroyed on
/// the scheduler's thread; the I/O thread reads all but the provider.
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
    std::unique_ptr<Provider> provider;  // scheduler's thread only
};

}  // namespace Gale
