#include "halvora/platform/run_loop.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace halvora::platform {
namespace {

using namespace std::chrono_literals;

class ManualRunLoopTest : public ::testing::Test {
protected:
    std::shared_ptr<ManualClock> clock = std::make_shared<ManualClock>();
    RunLoop loop{clock};
    std::vector<std::string> ran;

    auto record(std::string name) {
        return [this, name = std::move(name)] { ran.push_back(name); };
    }
};

TEST_F(ManualRunLoopTest, TimersRunInDueOrderAndInPostingOrderOnTies) {
    loop.postAfter(3s, record("c"));
    loop.postAfter(1s, record("a1"));
    loop.postAfter(2s, record("b"));
    loop.postAfter(1s, record("a2"));
    loop.post(record("now"));

    loop.advance(1500ms);
    EXPECT_EQ(ran, (std::vector<std::string>{"now", "a1", "a2"}));
    loop.advance(10s);
    EXPECT_EQ(ran, (std::vector<std::string>{"now", "a1", "a2", "b", "c"}));
}

TEST_F(ManualRunLoopTest, AdvanceRunsEachTimerAtItsDueTimeAndPostedTasksAfterIt) {
    const TimePoint start = clock->now();
    std::vector<Duration> seen;
    loop.postAfter(2s, [&] {
        seen.push_back(clock->now() - start);
        loop.post([&] { seen.push_back(clock->now() - start); });
    });
    loop.postAfter(2s, [&] { seen.push_back(clock->now() - start); });
    loop.postAfter(5s, [&] { seen.push_back(clock->now() - start); });

    loop.advance(10s);
    EXPECT_EQ(seen, (std::vector<Duration>{2s, 2s, 2s, 5s}));
    EXPECT_EQ(clock->now() - start, 10s);
}

TEST_F(ManualRunLoopTest, TimerPostedInsideTheAdvancedWindowRunsInThatAdvance) {
    loop.postAfter(1s, [&] { loop.postAfter(2s, record("inner")); });
    loop.advance(3s);
    EXPECT_EQ(ran, std::vector<std::string>{"inner"});
    EXPECT_EQ(loop.pendingTimerCount(), 0u);
}

TEST_F(ManualRunLoopTest, RepeatFiresOncePerIntervalOverAnAdvance) {
    int fired = 0;
    const TimerHandle handle = loop.repeat(1s, [&] { ++fired; });
    loop.advance(999ms);
    EXPECT_EQ(fired, 0);
    loop.advance(9s + 1ms);
    EXPECT_EQ(fired, 10);
    EXPECT_EQ(loop.pendingTimerCount(), 1u);
    handle.cancel();
    loop.advance(5s);
    EXPECT_EQ(fired, 10);
    EXPECT_EQ(loop.pendingTimerCount(), 0u);
}

TEST_F(ManualRunLoopTest, CancelledTimersNeverRun) {
    const TimerHandle early = loop.postAfter(1s, record("early"));
    const TimerHandle victim = loop.postAfter(2s, record("victim"));
    loop.postAfter(1s, [&] { victim.cancel(); });
    early.cancel();
    EXPECT_EQ(loop.pendingTimerCount(), 2u);

    TimerHandle self;
    int repeats = 0;
    self = loop.repeat(1s, [&] {
        if (++repeats == 3) self.cancel();
    });

    loop.advance(10s);
    EXPECT_TRUE(ran.empty());
    EXPECT_EQ(repeats, 3);
    EXPECT_EQ(loop.pendingTimerCount(), 0u);
    EXPECT_FALSE(TimerHandle().isCancelled());
    TimerHandle().cancel();  // a default handle cancels nothing, harmlessly
}

TEST_F(ManualRunLoopTest, RunPendingRunsWhatIsDueIncludingWhatTasksPostForNow) {
    loop.post([&] {
        ran.push_back("first");
        loop.post(record("posted"));
        loop.postAfter(0s, record("zero delay"));
    });
    loop.postAfter(1s, record("later"));
    EXPECT_EQ(loop.runPending(), 3u);
    EXPECT_EQ(ran, (std::vector<std::string>{"first", "posted", "zero delay"}));
    EXPECT_EQ(loop.runPending(), 0u);
}

TEST_F(ManualRunLoopTest, RunUntilAdvancesToTheNextTimerButNeverPastTheDeadline) {
    const TimePoint start = clock->now();
    bool done = false;
    loop.postAfter(5s, [&] { done = true; });
    EXPECT_TRUE(loop.runUntil([&] { return done; }, 1min));
    EXPECT_EQ(clock->now() - start, 5s);

    loop.postAfter(10s, record("too late"));
    EXPECT_FALSE(loop.runUntil([] { return false; }, 3s));
    EXPECT_EQ(clock->now() - start, 8s);
    EXPECT_TRUE(ran.empty());
}

TEST_F(ManualRunLoopTest, RunReturnsOnQuitOrWhenOnlyFutureTimersRemain) {
    loop.post(record("a"));
    loop.postAfter(1s, record("future"));
    loop.run();
    EXPECT_EQ(ran, std::vector<std::string>{"a"});

    loop.post([&] { loop.quit(); });
    loop.post(record("after quit"));
    loop.run();
    EXPECT_EQ(ran, std::vector<std::string>{"a"});
    loop.run();
    EXPECT_EQ(ran, (std::vector<std::string>{"a", "after quit"}));
}

TEST(RunLoopThreadTest, MainThreadIsTheConstructorThenWhoeverRunsTheLoop) {
    RunLoop loop(std::make_shared<ManualClock>());
    EXPECT_TRUE(loop.isCurrentThread());
    bool insideTask = false;
    std::thread other([&] {
        EXPECT_FALSE(loop.isCurrentThread());
        loop.post([&] { insideTask = loop.isCurrentThread(); });
        loop.runPending();
    });
    other.join();
    EXPECT_TRUE(insideTask);
    EXPECT_FALSE(loop.isCurrentThread());
}

TEST(RunLoopThreadTest, RunUntilAndRunOnTheSystemClockWakeForPostsFromAnotherThread) {
    RunLoop loop;
    std::atomic<bool> done{false};
    std::thread poster([&] { loop.post([&] { done = true; }); });
    EXPECT_TRUE(loop.runUntil([&] { return done.load(); }, 60s));
    poster.join();

    // A timer posted from another thread while the loop sleeps is picked up too.
    std::atomic<bool> fired{false};
    std::thread timerPoster([&] { loop.postAfter(1ms, [&] { fired = true; }); });
    EXPECT_TRUE(loop.runUntil([&] { return fired.load(); }, 60s));
    timerPoster.join();

    // run() returns after a quit posted from another thread.
    std::thread quitter([&] { loop.post([&] { loop.quit(); }); });
    loop.run();
    quitter.join();
}

TEST(RunLoopDeathTest, AdvanceOnASystemClockIsAProgrammingError) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(RunLoop().advance(1s), "ManualClock");
}

}  // namespace
}  // namespace halvora::platform
