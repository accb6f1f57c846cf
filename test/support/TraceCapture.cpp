#include "test/support/TraceCapture.h"

#include <algorithm>
#include <cstdlib>
#include <memory>

#include "platform/Blink/RingWriter.h"
#include "test/support/TempDir.h"

namespace TestSupport {
namespace {

void ensureRing() {
    if (Blink::RingWriter::current() != nullptr) { return; }
    static TempDir directory;
    Blink::rootIs(directory.path());
    Blink::handlesDeleteOnForkIs(true);  // what a death test's child traces is not this process's
    Blink::init("-test.bk", nullptr, nullptr, 0, 24, Blink::Threading::multi, false, 512);
}

}  // namespace

TraceCapture::TraceCapture() : from_{(ensureRing(), Blink::nextMessageNumber())} {}

std::vector<Blink::Message> TraceCapture::messages() const {
    Blink::RingReader reader;
    if (Blink::defaultHandle() == nullptr || !reader.open(Blink::defaultHandle()->path()).empty()) {
        std::abort();
    }
    return reader.read(from_);
}

std::vector<std::string> TraceCapture::texts(std::string_view handle) const {
    std::vector<std::string> result;
    for (Blink::Message& message : messages()) {
        if (handle.empty() || message.handle == handle) {
            result.push_back(std::move(message.text));
        }
    }
    return result;
}

std::size_t TraceCapture::count(std::string_view text) const {
    const auto all = texts();
    return static_cast<std::size_t>(std::count(all.begin(), all.end(), text));
}

}  // namespace TestSupport
