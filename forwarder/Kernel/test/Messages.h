#pragma once

#include <gtest/gtest.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>

#include <cstdint>
#include <cstring>
#include <span>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "forwarder/Kernel/RtDecoder.h"

/// Netlink messages for tests: captured ones, and ones made by hand.
namespace Pel::Forwarder {

inline std::vector<std::byte> fromHex(std::string_view hex) {
    std::vector<std::byte> bytes;
    for (std::size_t i = 0; i + 1 < hex.size(); i += 2) {
        bytes.push_back(
            static_cast<std::byte>(std::stoi(std::string{hex.substr(i, 2)}, nullptr, 16)));
    }
    return bytes;
}

inline std::vector<RtMessage> decodeAll(std::span<const std::byte> datagram) {
    std::vector<RtMessage> result;
    NetlinkReader reader{datagram};
    while (const auto frame = reader.next()) {
        if (auto message = decode(*frame)) { result.push_back(std::move(*message)); }
    }
    return result;
}

template <class T>
T only(const std::vector<std::byte>& datagram) {
    const auto all = decodeAll(datagram);
    EXPECT_EQ(all.size(), 1U);
    if (all.empty() || !std::holds_alternative<T>(all[0].body)) {
        ADD_FAILURE() << "not one message of the type";
        return T{};
    }
    return std::get<T>(all[0].body);
}

inline ifinfomsg linkHeader(int ifindex, unsigned flags) {
    ifinfomsg header{};
    header.ifi_index = ifindex;
    header.ifi_flags = flags;
    return header;
}

/// Builds messages that this machine's kernel cannot send.
class MessageBuilder {
public:
    template <class Header>
    MessageBuilder(std::uint16_t type, const Header& header) {
        nlmsghdr netlink{};
        netlink.nlmsg_type = type;
        append(&netlink, sizeof netlink);
        append(&header, sizeof header);
    }
    template <class T>
    MessageBuilder& put(std::uint16_t type, const T& value) {
        return raw(type, &value, sizeof value);
    }
    MessageBuilder& text(std::uint16_t type, const std::string& value) {
        return raw(type, value.c_str(), value.size() + 1);
    }
    MessageBuilder& begin(std::uint16_t type) {
        open_.push_back(bytes_.size());
        return raw(static_cast<std::uint16_t>(type | NLA_F_NESTED), nullptr, 0);
    }
    MessageBuilder& end() {
        const auto length = static_cast<std::uint16_t>(bytes_.size() - open_.back());
        std::memcpy(&bytes_[open_.back()], &length, sizeof length);
        open_.pop_back();
        return *this;
    }
    std::vector<std::byte> bytes() {
        const auto length = static_cast<std::uint32_t>(bytes_.size());
        std::memcpy(bytes_.data(), &length, sizeof length);
        return bytes_;
    }

private:
    MessageBuilder& raw(std::uint16_t type, const void* data, std::size_t size) {
        const std::uint16_t header[2] = {static_cast<std::uint16_t>(size + 4), type};
        append(header, sizeof header);
        append(data, size);
        bytes_.resize((bytes_.size() + 3) & ~std::size_t{3});
        return *this;
    }
    void append(const void* data, std::size_t size) {
        const auto* const from = static_cast<const std::byte*>(data);
        bytes_.insert(bytes_.end(), from, from + size);
    }
    std::vector<std::byte> bytes_;
    std::vector<std::size_t> open_;
};

}  // namespace Pel::Forwarder
