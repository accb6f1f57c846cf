// The judge on streams written by hand: what each rule says, the files, and the program's exit codes.

#include "test/checker/test/Stream.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdlib>
#include <fstream>
#include <functional>

#include "test/checker/LagHistogram.h"
#include "test/checker/Play.h"
#include "test/support/TempDir.h"

namespace Checker {
namespace {

using testing::HasSubstr;

void elems(gnmi::Path& path, std::initializer_list<const char*> names) {
    for (const char* const name : names) { path.add_elem()->set_name(name); }
}

void entryPathOf(gnmi::Path& path,
                 const char* container,
                 const char* list,
                 const char* keyName,
                 const std::string& key) {
    elems(path, {"network-instances", "network-instance", "afts", container, list});
    (*path.mutable_elem(1)->mutable_key())["name"] = "DEFAULT";
    (*path.mutable_elem(4)->mutable_key())[keyName] = key;
}

void counterPathOf(gnmi::Path& path, std::uint64_t index) {
    elems(path,
          {"network-instances", "network-instance", "afts", "counters", "next-hops", "next-hop"});
    (*path.mutable_elem(1)->mutable_key())["name"] = "DEFAULT";
    (*path.mutable_elem(5)->mutable_key())["index"] = std::to_string(index);
}

gnmi::Update& leaf(gnmi::Notification& to, std::initializer_list<const char*> names) {
    gnmi::Update& update = *to.add_update();
    elems(*update.mutable_path(), names);
    return update;
}

/// A stream told message by message; each is stamped later than the one before.
class Story {
public:
    Story& hop(std::uint64_t index, const char* address = "10.0.0.1") {
        gnmi::Notification& n = atomic();
        entryPathOf(*n.mutable_prefix(), "next-hops", "next-hop", "index", std::to_string(index));
        leaf(n, {"index"}).mutable_val()->set_uint_val(index);
        leaf(n, {"state", "index"}).mutable_val()->set_uint_val(index);
        leaf(n, {"state", "ip-address"}).mutable_val()->set_string_val(address);
        return *this;
    }
    Story& group(std::uint64_t id, std::initializer_list<std::uint64_t> members) {
        gnmi::Notification& n = atomic();
        entryPathOf(
            *n.mutable_prefix(), "next-hop-groups", "next-hop-group", "id", std::to_string(id));
        leaf(n, {"id"}).mutable_val()->set_uint_val(id);
        leaf(n, {"state", "id"}).mutable_val()->set_uint_val(id);
        for (const std::uint64_t member : members) {
            const auto put = [&](std::initializer_list<const char*> names, std::uint64_t value) {
                gnmi::Update& update = leaf(n, names);
                (*update.mutable_path()->mutable_elem(1)->mutable_key())["index"] =
                    std::to_string(member);
                update.mutable_val()->set_uint_val(value);
            };
            put({"next-hops", "next-hop", "index"}, member);
            put({"next-hops", "next-hop", "state", "index"}, member);
            put({"next-hops", "next-hop", "state", "weight"}, 1);
        }
        return *this;
    }
    Story& route(const char* prefix, std::uint64_t group) {
        gnmi::Notification& n = atomic();
        entryPathOf(*n.mutable_prefix(), "ipv4-unicast", "ipv4-entry", "prefix", prefix);
        leaf(n, {"prefix"}).mutable_val()->set_string_val(prefix);
        leaf(n, {"state", "prefix"}).mutable_val()->set_string_val(prefix);
        leaf(n, {"state", "next-hop-group"}).mutable_val()->set_uint_val(group);
        return *this;
    }
    /// Of the route before.
    Story& from(const char* protocol) {
        leaf(last(), {"state", "origin-protocol"}).mutable_val()->set_string_val(protocol);
        return *this;
    }
    Story& summary(const char* protocol, std::uint64_t count) {
        gnmi::Notification& n = notification();
        elems(*n.mutable_prefix(),
              {"network-instances",
               "network-instance",
               "afts",
               "aft-summaries",
               "ipv4-unicast",
               "protocols",
               "protocol"});
        (*n.mutable_prefix()->mutable_elem(1)->mutable_key())["name"] = "DEFAULT";
        (*n.mutable_prefix()->mutable_elem(6)->mutable_key())["origin-protocol"] = protocol;
        leaf(n, {"state", "counters", "aft-entries"}).mutable_val()->set_uint_val(count);
        return *this;
    }
    Story& counters(std::uint64_t index, std::uint64_t packets) {
        gnmi::Notification& n = notification();
        counterPathOf(*n.mutable_prefix(), index);
        leaf(n, {"index"}).mutable_val()->set_uint_val(index);
        leaf(n, {"state", "index"}).mutable_val()->set_uint_val(index);
        leaf(n, {"state", "packets-forwarded"}).mutable_val()->set_uint_val(packets);
        return *this;
    }
    /// The counters before: these octets are not known.
    Story& withoutOctets() {
        elems(*last().add_delete_(), {"state", "octets-forwarded"});
        return *this;
    }
    Story& noCounters(std::uint64_t index) {
        counterPathOf(deletion(), index);
        return *this;
    }
    Story& noHop(std::uint64_t index) {
        entryPathOf(deletion(), "next-hops", "next-hop", "index", std::to_string(index));
        return *this;
    }
    Story& noGroup(std::uint64_t id) {
        entryPathOf(deletion(), "next-hop-groups", "next-hop-group", "id", std::to_string(id));
        return *this;
    }
    Story& noRoute(const char* prefix) {
        entryPathOf(deletion(), "ipv4-unicast", "ipv4-entry", "prefix", prefix);
        return *this;
    }
    Story& stateSynced(bool value) {
        gnmi::Notification& n = notification();
        elems(*n.mutable_prefix(), {"network-instances", "network-instance", "afts"});
        (*n.mutable_prefix()->mutable_elem(1)->mutable_key())["name"] = "DEFAULT";
        leaf(n, {"state-synced", "state", "ipv4-unicast"}).mutable_val()->set_bool_val(value);
        return *this;
    }
    Story& sync() {
        stream_.messages.emplace_back().response.set_sync_response(true);
        return *this;
    }
    gnmi::Notification& last() { return *stream_.messages.back().response.mutable_update(); }
    const Stream& stream() const { return stream_; }
    std::string rules(const ReplayOptions& options = {}) const {
        return rulesOf(stream_.check(options));
    }

private:
    gnmi::Notification& notification() {
        gnmi::Notification& made = *stream_.messages.emplace_back().response.mutable_update();
        made.set_timestamp(++stamp_);
        return made;
    }
    gnmi::Notification& atomic() {
        notification().set_atomic(true);
        return last();
    }
    gnmi::Path& deletion() { return *notification().add_delete_(); }

    Stream stream_;
    std::int64_t stamp_ = 1000;
};

Story small() {
    Story story;
    story.hop(1).hop(2).group(7, {1, 2}).route("192.0.2.0/24", 7).stateSynced(true).sync();
    return story;
}

TEST(Checker, AStreamThatKeepsToTheRulesIsClean) {
    Story story = small();
    story.hop(3).group(8, {3}).route("192.0.2.0/24", 8).noGroup(7).noHop(2).noHop(1);
    story.hop(1, "10.0.0.9").stateSynced(false);
    EXPECT_EQ(story.rules(), "");
}

TEST(Checker, AFindingNamesMessageEntryAndRule) {
    Story story = small();
    story.noGroup(7);
    const auto findings = story.stream().check();
    ASSERT_EQ(findings.size(), 1U);
    EXPECT_EQ(findings[0].line(),
              "message 7: dangling-group: "
              "/network-instances/network-instance[name=DEFAULT]/afts/next-hop-groups/"
              "next-hop-group[id=7]: "
              "deleted while /network-instances/network-instance[name=DEFAULT]/afts/ipv4-unicast/"
              "ipv4-entry[prefix=192.0.2.0/24] refers to it");
}

TEST(Checker, AReferenceThatStaysUnmetIsOneFinding) {
    Story story = small();
    story.route("198.51.100.0/24", 9).route("198.51.100.0/24", 9).hop(1, "10.0.0.2");
    EXPECT_EQ(story.stream().check().size(), 1U);
}

TEST(Checker, ALaggardMayDangleWithinAnEpochOnly) {
    // The second group's delete ends before its prefix's, then the next epoch begins with an update.
    Story within = small();
    within.group(8, {1}).route("198.51.100.0/24", 8);
    within.noGroup(8).noRoute("198.51.100.0/24");
    within.hop(1, "10.0.0.2");
    EXPECT_EQ(within.rules(), "dangling-group");
    EXPECT_EQ(within.rules({.laggard = true}), "dangling-group")
        << "a delete of a later lane after one of an earlier lane is another epoch";

    Story sameLane = small();
    sameLane.hop(3).group(8, {3}).group(9, {3});
    auto& backup = leaf(sameLane.last(), {"state", "backup-next-hop-group"});
    backup.mutable_val()->set_uint_val(8);
    sameLane.noGroup(8).noGroup(9).noHop(3).hop(1, "10.0.0.2");
    EXPECT_EQ(sameLane.rules(), "dangling-group");
    EXPECT_EQ(sameLane.rules({.laggard = true}), "");
}

TEST(Checker, ALaggardMustNotDangleAtTheEndOfAnEpoch) {
    Story story = small();
    story.noGroup(7);
    EXPECT_EQ(story.rules({.laggard = true}), "") << "the epoch may go on";
    EXPECT_EQ(story.rules({.laggard = true, .quietEnd = true}), "dangling-group");
    story.hop(1, "10.0.0.2");
    EXPECT_EQ(story.rules({.laggard = true}), "dangling-group") << "updates begin the next one";
}

TEST(Checker, AnEntryThatChangedDuringTheInitialSetMayComeAgain) {
    Story story;
    story.hop(1).hop(1, "10.0.0.2").noHop(1).sync();
    EXPECT_EQ(story.rules(), "");
    EXPECT_EQ(story.rules({.quietStart = true}), "initial-duplicate");
}

TEST(Checker, TheSameContentAgainWithALaterStampIsAllowed) {
    // It changed and changed back while the client was behind.
    Story story = small();
    story.hop(1);
    EXPECT_EQ(story.rules(), "");
}

TEST(Checker, MixedNotificationsAreFound) {
    Story story = small();
    story.hop(3);
    story.last().set_atomic(false);
    entryPathOf(*story.last().add_delete_(), "next-hops", "next-hop", "index", "9");
    story.last().mutable_prefix()->clear_elem();
    EXPECT_THAT(story.rules(), HasSubstr("mixed"));
}

TEST(Checker, LeavesOutsideAtomicEntriesHaveStampsAndDeletesToo) {
    Story backwards = small();
    backwards.stateSynced(false).last().set_timestamp(5);
    EXPECT_EQ(backwards.rules(), "stamp-backwards");
    Story repeated = small();
    repeated.stateSynced(true).last().set_timestamp(1005);
    EXPECT_EQ(repeated.rules(), "repeated");
}

TEST(Checker, CountersGoBeforeTheirNextHopAndComeAfterIt) {
    EXPECT_EQ(Story{}.hop(7).counters(7, 1).sync().counters(7, 2).noCounters(7).noHop(7).rules(),
              "");
    EXPECT_EQ(Story{}.counters(7, 1).hop(7).sync().rules(), "dangling-next-hop");
    EXPECT_EQ(Story{}.hop(7).counters(7, 1).sync().noHop(7).noCounters(7).rules(),
              "dangling-next-hop");
    EXPECT_EQ(Story{}.hop(7).counters(7, 1).sync().noHop(7).rules({.laggard = true}), "")
        << "may be in the middle of an epoch";
    EXPECT_EQ(
        Story{}.hop(7).counters(7, 1).sync().noHop(7).rules({.laggard = true, .quietEnd = true}),
        "dangling-next-hop");
    // After they went nothing names the next hop any more.
    EXPECT_EQ(Story{}.hop(7).counters(7, 1).sync().noCounters(7).noHop(7).counters(7, 2).rules(),
              "dangling-next-hop");
}

TEST(Checker, OneNotificationOfCountersMayTellAndDelete) {
    EXPECT_EQ(Story{}.hop(7).counters(7, 1).withoutOctets().sync().rules(), "");
    EXPECT_EQ(Story{}.hop(7).counters(7, 1).withoutOctets().sync().noCounters(8).rules(),
              "delete-absent");
}

TEST(Checker, CountersHaveTheirLeavesOnly) {
    const auto with = [](const std::function<void(gnmi::Notification&)>& change) {
        Story story;
        story.hop(7).counters(7, 1);
        change(story.last());
        return story.sync().rules();
    };
    EXPECT_EQ(with([](auto& n) {
                  leaf(n, {"state", "drops"}).mutable_val()->set_uint_val(1);
              }),
              "leaf-set");
    EXPECT_EQ(with([](auto& n) { n.mutable_update(2)->mutable_val()->set_string_val("1"); }),
              "leaf-type");
    EXPECT_EQ(with([](auto& n) { n.mutable_update(1)->mutable_val()->set_uint_val(8); }),
              "key-leaf");
}

TEST(Checker, ASummaryCountsThePrefixesThatAreThereAtAQuietEnd) {
    const auto story = [] {
        Story made;
        made.group(7, {}).route("192.0.2.0/24", 7).from("BGP").route("198.51.100.0/24", 7);
        return made.from("BGP");
    };
    const ReplayOptions quiet{.quietEnd = true};
    EXPECT_EQ(story().summary("BGP", 2).sync().rules(quiet), "");
    EXPECT_EQ(story().summary("BGP", 1).sync().rules(quiet), "summary-count");
    EXPECT_EQ(story().summary("BGP", 1).sync().rules({}), "") << "it may be on its way";
    EXPECT_EQ(story().summary("BGP", 1).sync().rules({.quietStart = true}), "summary-count");
    EXPECT_EQ(story().sync().rules(quiet), "summary-count") << "there is none";
    EXPECT_EQ(story().sync().rules({.quietEnd = true, .references = false}), "") << "nor asked for";
    EXPECT_EQ(story().summary("BGP", 2).summary("ISIS", 1).sync().rules(quiet), "summary-count");
    EXPECT_EQ(story().summary("BGP", 2).sync().noRoute("192.0.2.0/24").rules(quiet),
              "summary-count");
}

TEST(Checker, AFlagComesAfterWhatItSpeaksOf) {
    const auto path = [](List list, const char* key) { return entryPath(list, "DEFAULT", key); };
    const ReplayOptions options{.quietEnd = true,
                                .beforeSynced = {path(List::group, "7"),
                                                 path(List::ipv4, "192.0.2.0/24"),
                                                 path(List::ipv6, "2001:db8::/32")}};
    const auto story = [] {
        Story made;
        return made.sync().group(7, {});
    };
    EXPECT_EQ(story().route("192.0.2.0/24", 7).stateSynced(true).rules(options), "")
        << "the other table has a flag of its own";
    EXPECT_EQ(story().stateSynced(true).route("192.0.2.0/24", 7).rules(options), "flag-early");
    EXPECT_EQ(story().stateSynced(false).route("192.0.2.0/24", 7).rules(options), "flag-missing");
    EXPECT_EQ(
        story().route("192.0.2.0/24", 7).noRoute("192.0.2.0/24").stateSynced(true).rules(options),
        "")
        << "it has been told, and may go";
    Story early;
    early.sync().route("192.0.2.0/24", 7).stateSynced(true).group(7, {});
    EXPECT_EQ(early.rules(options), "dangling-group flag-early");
}

TEST(Checker, APartOfTheAftHasItsReferencesElsewhere) {
    Story story;
    story.route("192.0.2.0/24", 7).sync();
    EXPECT_EQ(story.rules(), "dangling-group");
    EXPECT_EQ(story.rules({.references = false}), "");
}

TEST(Checker, AOnceEndsWithItsSyncAndOk) {
    Story story = small();
    EXPECT_EQ(story.rules({.once = true}), "");
    story.hop(1, "10.0.0.2");
    EXPECT_EQ(story.rules({.once = true}), "once-tail");
}

TEST(Checker, EndStatesAreComparedEntryByEntry) {
    Story mine = small();
    mine.hop(3);
    Story truth;
    truth.hop(1).hop(2, "10.0.0.99").group(7, {1, 2}).hop(4).stateSynced(true).sync();
    const auto findings = mine.stream().check({}, truth.stream());
    std::string text;
    for (const Finding& finding : findings) { text += finding.line() + "\n"; }
    EXPECT_EQ(rulesOf(findings), "stale-entry content-differs lost-entry") << text;
    EXPECT_THAT(text,
                HasSubstr("the stream led to [state/ip-address = \"10.0.0.1\"], the truth has "
                          "[state/ip-address = \"10.0.0.99\"]"));
}

TEST(Checker, ALeafIsComparedWhole) {
    Story mine;
    Story truth;
    mine.summary("BGP", 1).sync();
    truth.summary("BGP", 12).sync();
    const auto findings = mine.stream().check({}, truth.stream());
    ASSERT_EQ(findings.size(), 1U);
    EXPECT_THAT(findings.front().line(), HasSubstr("the stream led to [1], the truth has [12]"));
}

// Files

class Files : public testing::Test {
protected:
    std::filesystem::path write(const std::string& bytes) {
        const auto path = directory_.path() / "recording";
        std::ofstream{path, std::ios::binary} << bytes;
        return path;
    }
    std::string playing(const std::filesystem::path& path) {
        Replay replay{{}};
        Played played;
        return play(path, replay, played);
    }
    std::string whole() {
        const auto path = directory_.path() / "whole";
        small().stream().save(path);
        std::ifstream in{path, std::ios::binary};
        return {std::istreambuf_iterator<char>{in}, {}};
    }
    int exitCode(const std::string& arguments) {
        const int status =
            std::system((std::string{PEL_CHECKER} + " " + arguments + " >/dev/null 2>&1").c_str());
        return WEXITSTATUS(status);
    }

    TestSupport::TempDir directory_;
};

TEST_F(Files, WhatWasWrittenIsReadBack) {
    const auto path = directory_.path() / "r";
    Stream stream = small().stream();
    stream.messages[0].received = 42;
    stream.end = {14, "no progress"};
    stream.save(path);
    const Stream back = Stream::load(path);
    ASSERT_EQ(back.messages.size(), stream.messages.size());
    EXPECT_EQ(back.messages[0].received, 42);
    EXPECT_EQ(back.messages[0].response.SerializeAsString(),
              stream.messages[0].response.SerializeAsString());
    EXPECT_EQ(back.end.code, 14U);
    EXPECT_EQ(back.end.text, "no progress");
}

TEST_F(Files, EveryCutIsSaid) {
    const std::string bytes = whole();
    EXPECT_EQ(playing(write(bytes)), "");
    for (std::size_t size = 0; size < bytes.size(); ++size) {
        ASSERT_NE(playing(write(bytes.substr(0, size))), "") << size << " bytes";
    }
    EXPECT_THAT(playing(write(bytes + "x")), HasSubstr("goes on after its end record"));
}

TEST_F(Files, NonsenseIsSaid) {
    EXPECT_THAT(playing(directory_.path() / "nowhere"), HasSubstr("No such file"));
    EXPECT_THAT(playing(write("")), HasSubstr("no recording"));
    EXPECT_THAT(playing(write("something else")), HasSubstr("no recording"));
    EXPECT_THAT(playing(write(std::string{RecordingFormat::kMagic} + std::string(12, '\x7f'))),
                HasSubstr("a message of 2139062143 bytes makes no sense"));
    std::string bytes{RecordingFormat::kMagic};
    bytes += std::string(8, '\0') + std::string{"\x02\0\0\0\xff\xff", 6};
    EXPECT_THAT(playing(write(bytes)), HasSubstr("message 1 is no SubscribeResponse"));
}

TEST_F(Files, TheProgramEndsWith0Clean1Findings2Unusable) {
    const std::string clean = write(whole()).string();
    EXPECT_EQ(exitCode(clean), 0);
    EXPECT_EQ(exitCode(clean + " --end-state " + clean), 0);
    const auto spoilt = directory_.path() / "spoilt";
    Story story = small();
    story.noGroup(7);
    story.stream().save(spoilt);
    EXPECT_EQ(exitCode(spoilt.string()), 1);
    EXPECT_EQ(exitCode(clean + " --end-state " + spoilt.string()), 1);
    EXPECT_EQ(exitCode(directory_.path() / "nowhere"), 2);
    EXPECT_EQ(exitCode(""), 2);
    EXPECT_EQ(exitCode(clean + " --no-such-option"), 2);
}

TEST(LagHistogram, QuantilesAreWithinASixteenth) {
    LagHistogram lag;
    for (std::int64_t i = 1; i <= 1000; ++i) { lag.add(i * 1'000'000); }
    EXPECT_NEAR(static_cast<double>(lag.quantile(0.5)), 500e6, 500e6 / 16);
    EXPECT_NEAR(static_cast<double>(lag.quantile(0.99)), 990e6, 990e6 / 16);
    EXPECT_EQ(lag.max(), 1'000'000'000);
    EXPECT_EQ(LagHistogram{}.quantile(0.99), 0);
}

}  // namespace
}  // namespace Checker
