#include "halvora/platform/background_queue.h"

#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <mutex>
#include <thread>
#include <vector>

namespace halvora::platform {
namespace {

TEST(BackgroundQueueTest, RunsTasksInPostingOrderOnOneOtherThreadAndDrainWaitsForThem) {
    BackgroundQueue queue;
    std::vector<int> order;  // only touched by the worker until drain() returns
    std::vector<std::thread::id> threads;
    for (int i = 0; i < 200; ++i) {
        queue.post([&, i] {
            order.push_back(i);
            threads.push_back(std::this_thread::get_id());
        });
    }
    queue.drain();
    ASSERT_EQ(order.size(), 200u);
    for (int i = 0; i < 200; ++i) EXPECT_EQ(order[static_cast<std::size_t>(i)], i);
    for (const auto& id : threads) {
        EXPECT_EQ(id, threads.front());
        EXPECT_NE(id, std::this_thread::get_id());
    }
}

TEST(BackgroundQueueTest, DrainCoversTasksPostedFromOtherThreads) {
    BackgroundQueue queue;
    std::mutex mutex;
    int count = 0;
    std::vector<std::thread> posters;
    for (int t = 0; t < 4; ++t) {
        posters.emplace_back([&] {
            for (int i = 0; i < 50; ++i) {
                queue.post([&] {
                    std::lock_guard lock(mutex);
                    ++count;
                });
            }
        });
    }
    for (auto& poster : posters) poster.join();
    queue.drain();
    std::lock_guard lock(mutex);
    EXPECT_EQ(count, 200);
}

TEST(BackgroundQueueTest, DestructorFinishesQueuedTasksIncludingOnesTheyPost) {
    std::vector<int> ran;
    std::promise<void> gate;
    {
        BackgroundQueue queue;
        // Hold the worker until everything is queued, so the order below is the queue's alone.
        queue.post([opened = gate.get_future().share()] { opened.wait(); });
        queue.post([&] {
            ran.push_back(1);
            queue.post([&] { ran.push_back(3); });
        });
        queue.post([&] { ran.push_back(2); });
        gate.set_value();
    }
    EXPECT_EQ(ran, (std::vector<int>{1, 2, 3}));
}

}  // namespace
}  // namespace halvora::platform
