// Posting order and cancelling across threads are the rules of the Qt main queue the session tests
// cannot see: there every post comes from the GUI thread.
#include <gtest/gtest.h>

#include <chrono>
#include <map>
#include <thread>
#include <vector>

#include "halvora/platform.h"
#include "quick_test_support.h"

namespace halvora::qt {
namespace {

TEST(QtMainQueueTest, TasksFromManyThreadsRunOnTheGuiThreadInTheirPostingOrder) {
    auto& queue = platform::mainQueue();
    constexpr int kThreads = 4, kTasks = 200;
    std::map<int, std::vector<int>> ranByThread;  // touched on the GUI thread only
    bool allOnGuiThread = true;
    int ran = 0;
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
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
    ASSERT_TRUE(test::eventually([&] { return ran == kThreads * kTasks; }));
    EXPECT_TRUE(allOnGuiThread);
    std::vector<int> expected(kTasks);
    for (int i = 0; i < kTasks; ++i) expected[static_cast<std::size_t>(i)] = i;
    for (const auto& [thread, order] : ranByThread) EXPECT_EQ(order, expected) << "thread " << thread;

    // A timer cancelled from another thread never runs, even when a later one has.
    bool cancelledRan = false, laterRan = false;
    auto cancelled = queue.postAfter(std::chrono::milliseconds(20), [&] { cancelledRan = true; });
    queue.postAfter(std::chrono::milliseconds(60), [&] { laterRan = true; });
    std::thread([&] { cancelled.cancel(); }).join();
    ASSERT_TRUE(test::eventually([&] { return laterRan; }));
    EXPECT_FALSE(cancelledRan);
}

}  // namespace
}  // namespace halvora::qt
