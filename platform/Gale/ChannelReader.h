#pragma once

#include "platform/Gale/Cursor.h"
#include "platform/Gale/Demand.h"
#include "platform/Gale/PackedNotification.h"

#include <functional>
#include <optional>
#include <span>
#include <string_view>
#include <utility>

namespace Gale {

class Channel;

/// A call's cursor in the journal of a channel. The one place where a call gets at a channel's
/// entries, and so where it demands them and waits until they are there. I/O thread.
class ChannelReader final {
public:
    /// The channel outlives the reader. `onFilled`: the entries, which were not there yet, are; not
    /// called from the constructor.
    ChannelReader(Channel& channel,
                  CursorFilter filter,
                  Cursor::Mode mode,
                  std::function<void()> onFilled);

    /// As Cursor::next; idle until the entries are there.
    Cursor::Result next(std::span<CursorMessage> out);
    /// From the beginning once more.
    void restart() { cursor_.reset(); }
    /// Once next() has given something: as those of Cursor.
    void resend(CursorRound round) { cursor_->resend(std::move(round)); }
    bool resending() const { return cursor_ && cursor_->resending(); }
    Position told() const { return cursor_->told(); }
    /// What an entry of the channel holds, as PackedNotification::bytes(); what has to be made goes to
    /// `made`. Valid as long as both are.
    static std::string_view notification(const Channel& channel,
                                         const Reference& entry,
                                         const Content& content,
                                         PackedNotification& made);

    CursorStatistics statistics() const;

private:
    Channel& channel_;
    const CursorFilter filter_;
    const Cursor::Mode mode_;
    Demand::Token demand_;  // before the cursor, which goes first
    std::optional<Cursor> cursor_;
};

}  // namespace Gale
