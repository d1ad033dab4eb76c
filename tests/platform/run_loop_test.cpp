// The manual-clock run loop every unit suite stands on: its ordering and cancellation rules. Waking
// for posts from other threads is exercised by the end-to-end suites (curl's thread answers).
#include "halvora/platform/run_loop.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace halvora::platform {
namespace {

using namespace std::chrono_literals;
using Names = std::vector<std::string>;

class ManualRunLoopTest : public ::testing::Test {
protected:
    std::shared_ptr<ManualClock> clock = std::make_shared<ManualClock>();
    RunLoop loop{clock};
    const TimePoint start = clock->now();
    Names ran;

    auto record(std::string name) {
        return [this, name = std::move(name)] { ran.push_back(name + "@" + std::to_string((clock->now() - start) / 1s)); };
    }
};

TEST_F(ManualRunLoopTest, TimersRunAtTheirDueTimeInDueThenPostingOrderAndPostedTasksGoFirst) {
    loop.postAfter(3s, record("c"));
    loop.postAfter(1s, [&] {
        record("a1")();
        loop.post(record("posted"));
        loop.postAfter(1s, record("inner"));  // due inside the advanced window
    });
    loop.postAfter(2s, record("b"));
    loop.postAfter(1s, record("a2"));
    loop.post(record("now"));

    loop.advance(1500ms);
    EXPECT_EQ(ran, (Names{"now@0", "a1@1", "posted@1", "a2@1"}));
    loop.advance(10s);
    EXPECT_EQ(ran, (Names{"now@0", "a1@1", "posted@1", "a2@1", "b@2", "inner@2", "c@3"}));
    EXPECT_EQ(clock->now() - start, 11500ms);
}

TEST_F(ManualRunLoopTest, CancelledTimersNeverRunAndARepeatCanCancelItself) {
    const TimerHandle early = loop.postAfter(1s, record("early"));
    const TimerHandle victim = loop.postAfter(2s, record("victim"));
    loop.postAfter(1s, [&] { victim.cancel(); });
    early.cancel();
    TimerHandle self;
    int repeats = 0;
    self = loop.repeat(1s, [&] {
        if (++repeats == 3) self.cancel();
    });
    loop.advance(10s);
    EXPECT_TRUE(ran.empty());
    EXPECT_EQ(repeats, 3);
    EXPECT_EQ(loop.pendingTimerCount(), 0u);
    TimerHandle().cancel();  // a default handle cancels nothing, harmlessly
}

}  // namespace
}  // namespace halvora::platform
