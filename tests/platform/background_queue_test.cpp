// The sending queue. Its order shows end to end as gap-free frame numbers at the agent
// (tests/faults/faults_e2e.mjs); here, that nothing queued is lost when it goes away.
#include "halvora/platform/background_queue.h"

#include <gtest/gtest.h>

#include <future>
#include <thread>
#include <vector>

namespace halvora::platform {
namespace {

TEST(BackgroundQueueTest, DestructorFinishesQueuedTasksIncludingOnesTheyPostOnItsOwnThread) {
    std::vector<int> ran;
    std::thread::id worker;
    std::promise<void> gate;
    {
        BackgroundQueue queue;
        // Hold the worker until everything is queued, so the order below is the queue's alone.
        queue.post([opened = gate.get_future().share(), &worker] {
            opened.wait();
            worker = std::this_thread::get_id();
        });
        queue.post([&] {
            ran.push_back(1);
            queue.post([&] { ran.push_back(3); });
        });
        queue.post([&] { ran.push_back(2); });
        gate.set_value();
    }
    EXPECT_EQ(ran, (std::vector<int>{1, 2, 3}));
    EXPECT_NE(worker, std::this_thread::get_id());
}

}  // namespace
}  // namespace halvora::platform
