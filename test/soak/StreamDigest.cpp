#include "test/soak/StreamDigest.h"

#define XXH_INLINE_ALL
#include <xxhash.h>

#include <array>
#include <protozero/pbf_reader.hpp>

namespace Soak {
namespace {

using protozero::data_view;
using protozero::pbf_reader;

std::uint64_t hash(std::string_view bytes, std::uint64_t seed) {
    return XXH3_64bits_withSeed(bytes.data(), bytes.size(), seed);
}

/// Goes on with the hash of a path's elements; what else a path has (target, origin) is the subscriber's.
std::uint64_t hashElems(data_view path, std::uint64_t seed) {
    pbf_reader reader{path};
    while (reader.next(3)) {
        const data_view elem = reader.get_view();
        seed = hash({elem.data(), elem.size()}, seed);
    }
    return seed;
}

/// One entry's share of the digest: shares add up, in whatever order.
std::uint64_t share(std::uint64_t key, std::uint64_t content) {
    const std::array<std::uint64_t, 2> both{key, content};
    return XXH3_64bits(both.data(), sizeof both);
}

}  // namespace

void StreamDigest::set(std::uint64_t key, std::uint64_t content) {
    const auto [at, isNew] = contents_.try_emplace(key, content);
    if (!isNew) {
        digest_ -= share(key, at->second);
        at->second = content;
    }
    digest_ += share(key, content);
}

void StreamDigest::erase(std::uint64_t key) {
    const auto at = contents_.find(key);
    if (at == contents_.end()) { return; }
    digest_ -= share(key, at->second);
    contents_.erase(at);
}

void StreamDigest::take(std::string_view message, std::int64_t received) {
    ++messages_;
    pbf_reader reader{message.data(), message.size()};
    while (reader.next()) {
        switch (reader.tag()) {
            case 1: {
                const data_view update = reader.get_view();
                notification({update.data(), update.size()}, received);
                break;
            }
            case 3:
                synced_ = reader.get_bool() || synced_;
                break;
            default:
                reader.skip();
        }
    }
}

void StreamDigest::notification(std::string_view bytes, std::int64_t received) {
    std::uint64_t prefix = 1;
    std::uint64_t content = 0;  // a sum: leaves have no order
    bool atomic = false;
    bool updates = false;
    pbf_reader reader{bytes.data(), bytes.size()};
    while (reader.next()) {
        switch (reader.tag()) {
            case 1:
                if (const std::int64_t stamp = reader.get_int64(); measuring_ && synced_) {
                    lag_.add(received - stamp);
                }
                break;
            case 2:
                prefix = hashElems(reader.get_view(), prefix);
                break;
            case 4: {
                const data_view update = reader.get_view();
                content += hash({update.data(), update.size()}, 2);
                updates = true;
                break;
            }
            case 5:
                erase(hashElems(reader.get_view(), prefix));
                break;
            case 6:
                atomic = reader.get_bool();
                break;
            default:
                reader.skip();
        }
    }
    if (!updates) { return; }
    if (atomic) { return set(prefix, content); }
    // Leaves on their own: each is an entry.
    pbf_reader again{bytes.data(), bytes.size()};
    while (again.next(4)) {
        pbf_reader update = again.get_message();
        std::uint64_t key = prefix;
        std::uint64_t value = 0;
        while (update.next()) {
            const data_view part = update.get_view();
            if (update.tag() == 1) { key = hashElems(part, prefix); }
            if (update.tag() == 3) { value = hash({part.data(), part.size()}, 2); }
        }
        set(key, value);
    }
}

}  // namespace Soak
