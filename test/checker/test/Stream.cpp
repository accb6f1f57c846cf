#include "test/checker/test/Stream.h"

#include <algorithm>
#include <stdexcept>

namespace Checker {
namespace {

void playInto(Replay& replay, const Stream& stream) {
    for (const Stream::Message& message : stream.messages) { replay.take(message.response); }
    replay.finish(stream.end);
}

}  // namespace

Stream Stream::load(const std::filesystem::path& recording) {
    Stream stream;
    RecordReader reader;
    if (const std::string error = reader.open(recording); !error.empty()) {
        throw std::runtime_error{error};
    }
    while (true) {
        const RecordReader::Next next = reader.next();
        if (next == RecordReader::Next::broken) { throw std::runtime_error{reader.error()}; }
        if (next == RecordReader::Next::end) { break; }
        Message message;
        message.received = reader.received();
        if (!message.response.ParseFromString(std::string{reader.message()})) {
            throw std::runtime_error{"no SubscribeResponse"};
        }
        stream.messages.push_back(std::move(message));
    }
    stream.end = reader.end();
    return stream;
}

void Stream::save(const std::filesystem::path& recording) const {
    RecordWriter writer;
    std::string error = writer.open(recording);
    if (error.empty()) {
        for (const Message& message : messages) {
            writer.message(message.received, message.response.SerializeAsString());
        }
        error = writer.end(0, end);
    }
    if (!error.empty()) { throw std::runtime_error{error}; }
}

std::vector<Finding> Stream::check(const ReplayOptions& options) const {
    Replay replay{options};
    playInto(replay, *this);
    return replay.findings();
}

std::vector<Finding> Stream::check(const ReplayOptions& options, const Stream& truth) const {
    Replay mine{options};
    playInto(mine, *this);
    Replay theirs{{}};
    playInto(theirs, truth);
    mine.compareWith(theirs);
    return mine.findings();
}

std::string rulesOf(const std::vector<Finding>& findings) {
    std::vector<Rule> seen;
    std::string text;
    for (const Finding& finding : findings) {
        if (std::find(seen.begin(), seen.end(), finding.rule) != seen.end()) { continue; }
        seen.push_back(finding.rule);
        if (!text.empty()) { text += ' '; }
        text += ruleName(finding.rule);
    }
    return text;
}

}  // namespace Checker
