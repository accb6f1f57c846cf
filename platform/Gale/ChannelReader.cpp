#include "platform/Gale/ChannelReader.h"

#include "platform/Gale/Channel.h"

#include <utility>

namespace Gale {

ChannelReader::ChannelReader(Channel& channel,
                             CursorFilter filter,
                             Cursor::Mode mode,
                             std::function<void()> onFilled)
    : channel_(channel),
      filter_(std::move(filter)),
      mode_(mode),
      demand_(channel.demand, std::move(onFilled)) {}

Cursor::Result ChannelReader::next(std::span<CursorMessage> out) {
    if (!demand_.filled()) { return {0, Cursor::State::idle}; }
    if (!cursor_) { cursor_.emplace(channel_.journal, filter_, mode_); }
    return cursor_->next(out);
}

std::string_view ChannelReader::notification(const Channel& channel,
                                             const Reference& entry,
                                             const Content& content,
                                             PackedNotification& made) {
    if (!content.isValue()) { return content.view(); }
    made.clear();
    made.stampIs(content.stamp());
    channel.view->encodeValue(entry.lane, entry.key, content.value(), made);
    return made.bytes();
}

CursorStatistics ChannelReader::statistics() const {
    return cursor_ ? cursor_->statistics() : CursorStatistics{};
}

}  // namespace Gale
