#include "test/checker/Play.h"

#include <fmt/format.h>
#include <proto/gnmi.pb.h>

namespace Checker {

std::string play(const std::filesystem::path& recording, Replay& replay, Played& played) {
    RecordReader reader;
    if (std::string error = reader.open(recording); !error.empty()) { return error; }
    gnmi::SubscribeResponse response;  // kept: parsing again reuses what it holds
    while (true) {
        const RecordReader::Next next = reader.next();
        if (next == RecordReader::Next::broken) { return reader.error(); }
        if (next == RecordReader::Next::end) { break; }
        const std::string_view bytes = reader.message();
        if (!response.ParseFromArray(bytes.data(), static_cast<int>(bytes.size()))) {
            return fmt::format(
                "{}: message {} is no SubscribeResponse", recording.string(), reader.number());
        }
        replay.take(response);
        if (replay.synced() && response.has_update()) {
            played.lag.add(reader.received() - response.update().timestamp());
        }
    }
    played.end = reader.end();
    replay.finish(played.end);
    return {};
}

}  // namespace Checker
