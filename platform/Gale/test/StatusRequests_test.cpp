#include "platform/Gale/StatusRequests.h"

#include "platform/Kiln/YieldPolicy.h"

#include <gtest/gtest.h>

#include <memory>
#include <utility>
#include <vector>

namespace Gale {
namespace {

/// The I/O thread is the test: it answers when it likes.
class StatusRequestsTest : public testing::Test {
protected:
    void ask() {
        requests->add([this](const ServiceStatus& status) {
            answers.push_back(status.streams ? static_cast<int>(status.streams->refused.count)
                                             : -1);
        });
    }
    /// The answer to the question of that number.
    void tell(std::size_t question, std::uint64_t refused) {
        StreamsStatus streams;
        streams.refused.count = refused;
        questions.at(question)(std::move(streams));
        scheduler->runUntilIdle();
    }
    void advance(Kiln::Duration by) {
        clock.advance(by);
        scheduler->runUntilIdle();
    }

    Kiln::VirtualClock clock;
    Vel::Ref<Kiln::TaskScheduler> scheduler =
        Vel::make<Kiln::TaskScheduler>(clock, std::make_unique<Kiln::NeverYield>());
    std::vector<StatusRequests::Told> questions;
    std::vector<int> answers;  // refused calls; -1: without the I/O thread
    std::unique_ptr<StatusRequests> requests = std::make_unique<StatusRequests>(
        scheduler,
        [this](StatusRequests::Told told) { questions.push_back(std::move(told)); },
        [](std::optional<StreamsStatus> streams) {
            ServiceStatus status;
            status.streams = std::move(streams);
            return status;
        });
};

using Answers = std::vector<int>;

TEST_F(StatusRequestsTest, TheIoThreadIsAskedOnceForAllWhoWait) {
    ask();
    ask();
    ASSERT_EQ(questions.size(), 1U);
    EXPECT_EQ(answers, Answers{});
    tell(0, 7);
    EXPECT_EQ(answers, (Answers{7, 7}));
    ask();
    ASSERT_EQ(questions.size(), 2U);
    tell(1, 8);
    EXPECT_EQ(answers, (Answers{7, 7, 8}));
    advance(std::chrono::seconds{5});
    EXPECT_EQ(answers.size(), 3U) << "nobody is answered twice";
}

TEST_F(StatusRequestsTest, WhoHasWaitedForASecondIsAnsweredWithoutIt) {
    ask();
    advance(std::chrono::milliseconds{600});
    ask();
    advance(std::chrono::milliseconds{399});
    EXPECT_EQ(answers, Answers{});
    advance(std::chrono::milliseconds{1});
    EXPECT_EQ(answers, Answers{-1}) << "the other one has still time";
    tell(0, 7);
    EXPECT_EQ(answers, (Answers{-1, 7}));
}

TEST_F(StatusRequestsTest, AThreadThatHangsHasOneQuestionHoweverOftenItIsAsked) {
    for (int i = 0; i < 100; ++i) {
        ask();
        advance(std::chrono::seconds{1});
    }
    EXPECT_EQ(questions.size(), 1U);
    EXPECT_EQ(answers, Answers(100, -1));
    tell(0, 7);  // for nobody
    ask();
    EXPECT_EQ(questions.size(), 2U);
}

TEST_F(StatusRequestsTest, TheEndAnswersAllAndALateAnswerFindsNobody) {
    ask();
    requests->answerAll(std::nullopt);
    EXPECT_EQ(answers, Answers{-1});
    requests.reset();
    tell(0, 7);
    EXPECT_EQ(answers, Answers{-1});
}

}  // namespace
}  // namespace Gale
