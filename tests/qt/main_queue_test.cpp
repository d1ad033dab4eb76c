#include <QThread>
#include <gtest/gtest.h>

#include <chrono>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "halvora/platform.h"
#include "quick_test_support.h"

namespace halvora::qt {
namespace {

using namespace std::chrono_literals;
using test::eventually;

TEST(QtMainQueueTest, TasksFromManyThreadsRunOnTheGuiThreadInTheirPostingOrder) {
    auto& queue = platform::mainQueue();
    constexpr int kThreads = 4, kTasks = 200;
    std::map<int, std::vector<int>> ranByThread;  // touched on the GUI thread only
    bool allOnGuiThread = true;
    int ran = 0;
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            EXPECT_FALSE(queue.isCurrentThread());
            for (int i = 0; i < kTasks; ++i) {
                queue.post([&, t, i] {
                    allOnGuiThread = allOnGuiThread && queue.isCurrentThread();
                    ranByThread[t].push_back(i);
                    ++ran;
                });
            }
        });
    }
    for (auto& thread : threads) thread.join();
    EXPECT_TRUE(queue.isCurrentThread());
    ASSERT_TRUE(eventually([&] { return ran == kThreads * kTasks; }));
    EXPECT_TRUE(allOnGuiThread);
    for (const auto& [thread, order] : ranByThread) {
        std::vector<int> expected(kTasks);
        for (int i = 0; i < kTasks; ++i) expected[static_cast<std::size_t>(i)] = i;
        EXPECT_EQ(order, expected) << "thread " << thread;
    }
}

TEST(QtMainQueueTest, DelayedTasksRunByDeadlineAfterPlainPosts) {
    auto& queue = platform::mainQueue();
    std::vector<std::string> order;
    queue.postAfter(60ms, [&] { order.push_back("late"); });
    std::thread([&] { queue.postAfter(10ms, [&] { order.push_back("early"); }); }).join();
    queue.post([&] { order.push_back("now"); });
    ASSERT_TRUE(eventually([&] { return order.size() == 3; }));
    EXPECT_EQ(order, (std::vector<std::string>{"now", "early", "late"}));
}

TEST(QtMainQueueTest, CancelledTasksNeverRunWhicheverThreadCancels) {
    auto& queue = platform::mainQueue();
    bool delayedRan = false;
    int ticks = 0;
    auto delayed = queue.postAfter(30ms, [&] { delayedRan = true; });
    std::thread([delayed] { delayed.cancel(); }).join();

    platform::TimerHandle repeating;
    repeating = queue.repeat(5ms, [&] {
        if (++ticks == 3) std::thread([repeating] { repeating.cancel(); }).join();
    });
    bool sentinel = false;
    queue.postAfter(150ms, [&] { sentinel = true; });
    ASSERT_TRUE(eventually([&] { return sentinel; }));
    EXPECT_FALSE(delayedRan);
    EXPECT_EQ(ticks, 3);
    EXPECT_TRUE(repeating.isCancelled());
}

}  // namespace
}  // namespace halvora::qt
