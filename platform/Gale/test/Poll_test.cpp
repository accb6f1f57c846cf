#include "platform/Gale/test/ServiceFixture.h"

#include <gmock/gmock.h>

namespace Gale {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

constexpr const char* kHerd =
    "/zoo[name=main]/herds/herd[id=7]: id=7 members/member[index=1]/index=1";
const std::string kHerds =
    "mode: POLL subscription { path { elem { name: 'zoo' } elem { name: 'herds' } } }";

class Poll : public ServiceFixture {
protected:
    void poll(const Rpc& rpc, int times = 1) {
        for (int i = 0; i < times; ++i) {
            rpc.client->send(rpc.stream, bytes<gnmi::SubscribeRequest>("poll {}"));
        }
        settle();
    }
    static std::vector<std::string> take(const Rpc& rpc) {
        auto all = brief(rpc);
        rpc.reply().data.clear();
        return all;
    }
};

TEST_F(Poll, StateAndSyncComeAtOnceAndWithEveryPollAgainAndNothingBetween) {
    populate();
    const Rpc rpc = subscribe(kHerds);
    EXPECT_THAT(take(rpc), ElementsAre(kHerd, "sync"));
    poll(rpc);
    EXPECT_THAT(take(rpc), ElementsAre(kHerd, "sync"));
    view->herds.set(7, {{2}});
    view->herds.set(8, {{1}});
    settle();
    EXPECT_THAT(take(rpc), ElementsAre());
    poll(rpc);
    EXPECT_THAT(
        take(rpc),
        ElementsAre("/zoo[name=main]/herds/herd[id=7]: id=7 members/member[index=2]/index=2",
                    "/zoo[name=main]/herds/herd[id=8]: id=8 members/member[index=1]/index=1",
                    "sync"));
    view->herds.clear();
    settle();
    poll(rpc);
    EXPECT_THAT(take(rpc), ElementsAre("sync"));
    EXPECT_EQ(rpc.status(), "");
    EXPECT_EQ(channel().journal.statistics().cursors, 0U) << "nothing is kept between polls";
}

TEST_F(Poll, UpdatesOnlyGivesSyncsAlone) {
    populate();
    const Rpc rpc = subscribe("updates_only: true " + kHerds);
    EXPECT_THAT(take(rpc), ElementsAre("sync"));
    poll(rpc, 2);
    EXPECT_THAT(take(rpc), ElementsAre("sync", "sync"));
}

TEST_F(Poll, PollsThatComeWhileAnAnswerIsUnderWayAreAnsweredInOrder) {
    populate();
    Rpc rpc;
    {
        Journal::Batch batch{channel().journal};
        channel().journal.updateValue(Lane::prefixes, {0, 0, 5}, 8, 1);
        rpc = subscribe(kHerds);
        poll(rpc, 2);
        EXPECT_THAT(brief(rpc), ElementsAre(kHerd)) << "the first answer waits for its snapshot";
    }
    service->subscribers().wake();
    settle();
    EXPECT_THAT(take(rpc), ElementsAre(kHerd, "sync", kHerd, "sync", kHerd, "sync"));
    EXPECT_EQ(rpc.status(), "");
}

TEST_F(Poll, MorePollsThanMayWaitEndTheCall) {
    populate();
    Journal::Batch batch{channel().journal};
    channel().journal.updateValue(Lane::prefixes, {0, 0, 5}, 8, 1);
    const Rpc rpc = subscribe(kHerds);
    poll(rpc, 2);
    EXPECT_EQ(rpc.status(), "");
    poll(rpc);
    EXPECT_EQ(rpc.status(), "8");
    EXPECT_THAT(rpc.text(), HasSubstr("2 polls wait"));
    EXPECT_EQ(service->subscribers().size(), 0U);
}

TEST_F(Poll, HalfCloseEndsWithOkAfterWhatWasAskedForIsAnswered) {
    populate();
    const Rpc once = subscribe(kHerds, true);
    EXPECT_THAT(brief(once), ElementsAre(kHerd, "sync"));
    EXPECT_EQ(once.status(), "0");

    const Rpc rpc = subscribe(kHerds);
    rpc.client->send(rpc.stream, bytes<gnmi::SubscribeRequest>("poll {}"));
    rpc.client->send(rpc.stream, bytes<gnmi::SubscribeRequest>("poll {}"), true);
    settle();
    EXPECT_THAT(brief(rpc), ElementsAre(kHerd, "sync", kHerd, "sync", kHerd, "sync"));
    EXPECT_EQ(rpc.status(), "0");
    EXPECT_EQ(service->subscribers().size(), 0U);
}

TEST_F(Poll, ASecondSubscribeAndGarbageEndTheCall) {
    const Rpc second = subscribe(kHerds);
    second.client->send(second.stream, bytes<gnmi::SubscribeRequest>("subscribe {}"));
    settle();
    EXPECT_EQ(second.status(), "3");
    EXPECT_THAT(second.text(), HasSubstr("one subscribe"));
    const Rpc garbage = subscribe(kHerds);
    garbage.client->send(garbage.stream, "\xff\xff rubbish");
    settle();
    EXPECT_EQ(garbage.status(), "3");
    EXPECT_THAT(garbage.text(), HasSubstr("gnmi.SubscribeRequest"));
}

TEST_F(Poll, PartsOfEntriesAreGivenAgainWithEveryPoll) {
    populate();
    const Rpc rpc = subscribe(
        "mode: POLL subscription { path { elem { name: 'zoo' } elem { name: 'beasts' } "
        "elem { name: 'beast' } elem { name: 'state' } elem { name: 'colour' } } }");
    const auto first = take(rpc);
    EXPECT_THAT(first,
                ElementsAre("/zoo[name=main]/beasts/beast[index=1]: state/colour=red",
                            "/zoo[name=main]/beasts/beast[index=2]: state/colour=blue",
                            "sync"));
    poll(rpc);
    EXPECT_EQ(take(rpc), first);
    view->beasts.set(2, "");
    settle();
    poll(rpc);
    EXPECT_THAT(take(rpc),
                ElementsAre("/zoo[name=main]/beasts/beast[index=1]: state/colour=red", "sync"));
}

}  // namespace
}  // namespace Gale
