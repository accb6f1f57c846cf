#pragma once

#include "platform/Gale/Cursor.h"
#include "platform/Gale/EntryFilter.h"
#include "platform/Gale/Server.h"
#include "platform/Gale/ValueEncoding.h"
#include "platform/Gale/Wire/Status.h"
#include "platform/Kiln/Clock.h"

#include <cstddef>
#include <memory>
#include <span>
#include <string>
#include <variant>
#include <vector>

namespace gnmi {
class SubscribeRequest;
}

namespace Gale {

class Channel;

/// Entries of a stream that go out again and again, see Cursor::resend.
struct Resend {
    Kiln::Duration interval{};
    bool changedOnly = false;
    CursorFilter filter;
};

/// What a Subscribe call asks for, checked and compiled.
struct SubscribePlan {
    Channel* channel = nullptr;
    Cursor::Mode mode = Cursor::Mode::stream;
    bool poll = false;  ///< mode is once, for each poll anew
    std::size_t paths = 0;
    ValueEncoding encoding = ValueEncoding::proto;
    std::string target;  ///< echoed in every response; empty: none
    std::shared_ptr<const EntryFilter> filter;
    CursorFilter cursorFilter;
    std::vector<Resend> resends;
};

/// The plan of a call's first message, or the status that ends the call.
std::variant<SubscribePlan, Wire::Status> planSubscribe(
    const gnmi::SubscribeRequest& request,
    std::span<const std::unique_ptr<Channel>> channels,
    const Limits& limits);

}  // namespace Gale
