#include "platform/Gale/Wire/test/TestService.h"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <stdexcept>
#include <utility>

#include "platform/Gale/Wire/Router.h"

namespace Gale::Wire {
namespace {

std::string_view text(std::span<const std::byte> bytes) {
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

/// The two words of a request, the first of them a number.
std::pair<unsigned, std::string> parse(std::span<const std::byte> bytes) {
    const std::string_view request = text(bytes);
    unsigned number = 0;
    const auto end = std::from_chars(request.data(), request.data() + request.size(), number).ptr;
    const auto used = static_cast<std::size_t>(end - request.data());
    return {number, std::string{request.substr(std::min(used + 1, request.size()))}};
}

void putMessage(std::byte* out, std::string_view message) {
    putPrefix(out, message.size());
    std::memcpy(out + kPrefixBytes, message.data(), message.size());
}

class Handler : public CallHandler {
public:
    Handler(TestService& service, Call& call) : service_{service}, call_{call} {
        ++service_.handlers;
        ++service_.made;
    }
    ~Handler() override { --service_.handlers; }
    void onMessage(std::span<const std::byte>) override {}
    void onHalfClose() override {}
    void onCancelled(const Status& why) override { service_.cancelled.push_back(why); }

protected:
    TestService& service_;
    Call& call_;
};

class Echo final : public Handler {
public:
    using Handler::Handler;
    void onMessage(std::span<const std::byte> message) override {
        for (const MetadataEntry& entry : call_.metadata()) {
            if (entry.name == "x-echo") { call_.addInitialMetadata(entry.name, entry.value); }
            if (entry.name == "x-echo-bin") { call_.addTrailer(entry.name, entry.value); }
        }
        call_.reply(message);
    }
};

class Fail final : public Handler {
public:
    using Handler::Handler;
    void onMessage(std::span<const std::byte> message) override {
        auto [code, why] = parse(message);
        call_.finish({static_cast<Code>(code), std::move(why)});
    }
};

class Throw final : public Handler {
public:
    using Handler::Handler;
    void onMessage(std::span<const std::byte>) override { throw std::runtime_error{"oops"}; }
};

class Numbers final : public Handler, public MessageSource {
public:
    using Handler::Handler;
    void onMessage(std::span<const std::byte> message) override {
        const auto [count, size] = parse(message);
        count_ = count;
        message_.assign(std::max<std::size_t>(std::stoul(size), sizeof next_), 'x');
        call_.start(*this);
    }
    Fill fill(std::span<std::byte> out) override {
        ++service_.fills;
        const std::size_t size = kPrefixBytes + message_.size();
        std::size_t used = 0;
        for (; next_ < count_; ++next_) {
            if (out.size() - used < size) { return Fill::more(used, size); }
            std::memcpy(message_.data(), &next_, sizeof next_);
            putMessage(&out[used], message_);
            used += size;
            ++service_.pulled;
        }
        return Fill::finished(used, {});
    }

private:
    unsigned count_ = 0;
    unsigned next_ = 0;
    std::string message_;
};

/// A queue as a source.
class Queue : public Handler, public MessageSource {
public:
    using Handler::Handler;
    void push(std::string message) {
        messages_.push_back(std::move(message));
        call_.resume();
    }
    Fill fill(std::span<std::byte> out) override {
        std::size_t used = 0;
        for (; !messages_.empty(); messages_.pop_front()) {
            const std::size_t size = kPrefixBytes + messages_.front().size();
            if (out.size() - used < size) { return Fill::more(used, size); }
            putMessage(&out[used], messages_.front());
            used += size;
        }
        return over_ ? Fill::finished(used, {}) : Fill::idle(used);
    }

protected:
    std::deque<std::string> messages_;
    bool over_ = false;
};

class Chat final : public Queue {
public:
    Chat(TestService& service, Call& call) : Queue{service, call} {
        for (const MetadataEntry& entry : call_.metadata()) {
            if (entry.name == "x-echo") { call_.addInitialMetadata(entry.name, entry.value); }
            if (entry.name == "x-echo-bin") { call_.addTrailer(entry.name, entry.value); }
        }
        call_.start(*this);
    }
    void onMessage(std::span<const std::byte> message) override {
        push(std::string{text(message)});
    }
    void onHalfClose() override {
        over_ = true;
        call_.resume();
    }
};

class Early final : public Handler {
public:
    using Handler::Handler;
    void onMessage(std::span<const std::byte>) override {
        call_.finish({Code::InvalidArgument, "no thanks"});
    }
};

template <class T>
HandlerFactory factory(TestService& service) {
    return [&service](Call& call) { return std::make_unique<T>(service, call); };
}

}  // namespace

class LiveHandler final : public Queue {
public:
    LiveHandler(TestService& service, Call& call) : Queue{service, call} {
        service_.live_.insert(this);
    }
    ~LiveHandler() override { service_.live_.erase(this); }
    void onMessage(std::span<const std::byte>) override { call_.start(*this); }
    void finish(const Status& status) { call_.finish(status); }
};

void TestService::addTo(Router& router, TestService& service) {
    router.add("/test.T/Echo", MethodKind::Unary, factory<Echo>(service));
    router.add("/test.T/Fail", MethodKind::Unary, factory<Fail>(service));
    router.add("/test.T/Throw", MethodKind::Unary, factory<Throw>(service));
    router.add("/test.T/Sleep", MethodKind::Unary, factory<Handler>(service));
    router.add("/test.T/Numbers", MethodKind::ServerStreaming, factory<Numbers>(service));
    router.add("/test.T/Chat", MethodKind::Bidi, factory<Chat>(service));
    router.add("/test.T/Early", MethodKind::Bidi, factory<Early>(service));
    router.add("/test.T/Live", MethodKind::Bidi, factory<LiveHandler>(service));
}

void TestService::push(const std::string& message) {
    for (LiveHandler* handler : live_) { handler->push(message); }
}

void TestService::endLive(const Status& status) {
    for (LiveHandler* handler : live_) { handler->finish(status); }
}

}  // namespace Gale::Wire
