// Running one asynchronous step on the main queue, and how its outcome is printed.
#include <sstream>
#include <thread>

#include <gtest/gtest.h>

#include "tools/cli/step_runner.h"
#include "halvora/platform/clock.h"

namespace halvora::cli {
namespace {

using namespace std::chrono_literals;

class StepRunnerTest : public ::testing::Test {
protected:
    std::shared_ptr<platform::ManualClock> clock = std::make_shared<platform::ManualClock>();
    std::shared_ptr<platform::RunLoop> loop = std::make_shared<platform::RunLoop>(clock);
    std::ostringstream out;
    StepRunner runner{loop, 2s, out};
};

TEST_F(StepRunnerTest, StepFinishedLaterIsTimedOnTheLoopsClock) {
    EXPECT_TRUE(runner.run("later", [this](const Finish& finish) {
        loop->postAfter(250ms, [finish] { finish(StepResult::passed({"found it"})); });
    }));
    EXPECT_EQ(out.str(), stepLine(true, "later", 250ms) + "\n       found it\n");
}

TEST_F(StepRunnerTest, StepThatNeverFinishesTimesOutAndIgnoresItsLateAnswer) {
    bool lateAnswerRan = false;
    EXPECT_FALSE(runner.run("silent", [&](const Finish& finish) {
        loop->postAfter(5s, [&lateAnswerRan, finish] {
            lateAnswerRan = true;
            finish(StepResult::passed());
        });
    }));
    EXPECT_EQ(out.str(), stepLine(false, "silent", 2000ms) + "\n       timed out after 2 s\n");
    loop->advance(10s);
    EXPECT_TRUE(lateAnswerRan);
    // A later step is not confused by the earlier one's answer.
    EXPECT_EQ(awaitStep(loop, 1s, [](const Finish&) {}).details, std::vector<std::string>{"timed out after 1 s"});
}

TEST(StepRunnerThreadTest, FinishFromAnotherThreadWakesTheLoop) {
    auto loop = std::make_shared<platform::RunLoop>(std::make_shared<platform::SystemClock>());
    std::thread worker;
    StepResult result = awaitStep(loop, 60s, [&worker](const Finish& finish) {
        worker = std::thread([finish] { finish(StepResult::passed({"from worker"})); });
    });
    worker.join();
    EXPECT_TRUE(result.ok);
    EXPECT_EQ(result.details, std::vector<std::string>{"from worker"});
}

}  // namespace
}  // namespace halvora::cli
