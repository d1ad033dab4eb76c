#include "halvora/platform/run_loop.h"

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <map>
#include <mutex>
#include <optional>
#include <thread>
#include <utility>

namespace halvora::platform {
namespace {

[[noreturn]] void fatal(const char* message) {
    std::fprintf(stderr, "halvora: %s\n", message);
    std::abort();
}

// Long delays ("never", in effect) must not overflow the time point.
TimePoint later(TimePoint from, Duration by) {
    if (by > TimePoint::max() - from) return TimePoint::max();
    return from + by;
}

// Waits on the real clock are cut into bounded slices: the library's wait_for adds the duration
// to its own now(), which must not overflow either.
constexpr Duration kLongestWait = std::chrono::hours(1);

}  // namespace

struct RunLoop::Impl {
    // Timers are ordered by due time, then by the order they were scheduled, so that timers
    // due at the same instant run in posting order.
    using TimerKey = std::pair<TimePoint, std::uint64_t>;
    struct Timer {
        std::shared_ptr<Task> task;  // shared: a repeating timer reschedules the same task
        std::shared_ptr<TimerState> state;
        Duration interval{};  // zero for a one-shot timer
    };
    // One unit of work taken off the queues, to be run with the mutex released.
    struct Runnable {
        Task task;
        std::shared_ptr<Task> timerTask;
        std::shared_ptr<TimerState> state;
    };

    explicit Impl(std::shared_ptr<Clock> c)
        : clock(c ? std::move(c) : std::make_shared<SystemClock>()),
          manualClock(dynamic_cast<ManualClock*>(clock.get())),
          mainThread(std::this_thread::get_id()) {
        if (clock->isManual() && manualClock == nullptr) {
            fatal("RunLoop: a manual clock must be a ManualClock so the loop can advance it");
        }
    }

    const std::shared_ptr<Clock> clock;
    ManualClock* const manualClock;  // null on a clock that moves by itself
    std::atomic<std::thread::id> mainThread;

    mutable std::mutex mutex;
    std::condition_variable wake;
    std::deque<Task> immediate;
    std::map<TimerKey, Timer> timers;
    std::uint64_t nextSequence = 0;
    bool quitRequested = false;

    bool isManual() const { return manualClock != nullptr; }

    // The calling thread now runs this loop's tasks.
    void enter() { mainThread.store(std::this_thread::get_id()); }

    TimerHandle schedule(Duration delay, Duration interval, Task task) {
        auto state = std::make_shared<TimerState>();
        if (delay < Duration::zero()) delay = Duration::zero();
        {
            std::lock_guard lock(mutex);
            timers.emplace(TimerKey{later(clock->now(), delay), nextSequence++},
                           Timer{std::make_shared<Task>(std::move(task)), state, interval});
        }
        wake.notify_all();
        return TimerHandle(state);
    }

    // Drops cancelled timers from the front so that the front is the next one that will run.
    void dropCancelledFrontLocked() {
        while (!timers.empty() && timers.begin()->second.state->cancelled.load()) {
            timers.erase(timers.begin());
        }
    }

    std::optional<TimePoint> nextDueLocked() {
        dropCancelledFrontLocked();
        if (timers.empty()) return std::nullopt;
        return timers.begin()->first.first;
    }

    // Posted tasks come first; then the earliest timer that is due at `now`.
    std::optional<Runnable> takeNextLocked(TimePoint now) {
        if (!immediate.empty()) {
            Runnable r{std::move(immediate.front()), nullptr, nullptr};
            immediate.pop_front();
            return r;
        }
        dropCancelledFrontLocked();
        if (timers.empty() || timers.begin()->first.first > now) return std::nullopt;
        auto node = timers.extract(timers.begin());
        Timer& timer = node.mapped();
        if (timer.interval > Duration::zero()) {
            // Reschedule before running, so that the repeat survives a throwing task and a task
            // cancelling its own timer finds the next occurrence already marked.
            timers.emplace(TimerKey{later(node.key().first, timer.interval), nextSequence++}, timer);
        }
        return Runnable{{}, std::move(timer.task), std::move(timer.state)};
    }

    std::optional<Runnable> takeNext() {
        std::lock_guard lock(mutex);
        return takeNextLocked(clock->now());
    }

    // Runs with the mutex released. Returns false when the timer was cancelled meanwhile.
    static bool execute(Runnable& r) {
        if (r.timerTask) {
            if (r.state->cancelled.load()) return false;
            (*r.timerTask)();
        } else {
            r.task();
        }
        return true;
    }

    std::size_t runReady() {
        std::size_t count = 0;
        while (auto r = takeNext()) {
            if (execute(*r)) ++count;
        }
        return count;
    }

    void moveClockTo(TimePoint target) {
        const TimePoint now = manualClock->now();
        if (target > now) manualClock->advance(target - now);
    }

    bool consumeQuitLocked() { return std::exchange(quitRequested, false); }

    // Blocks until something is posted, quit() is called, or `until` (if any) passes.
    void waitLocked(std::unique_lock<std::mutex>& lock, std::optional<TimePoint> until) {
        if (until) {
            const Duration left = *until - clock->now();
            if (left > Duration::zero()) wake.wait_for(lock, std::min(left, kLongestWait));
        } else {
            wake.wait(lock);
        }
    }
};

RunLoop::RunLoop(std::shared_ptr<Clock> clock) : impl_(std::make_unique<Impl>(std::move(clock))) {}

RunLoop::~RunLoop() {
    // Destroy unrun tasks outside the lock: their captures may post to this loop as they go.
    for (;;) {
        std::deque<Task> immediate;
        std::map<Impl::TimerKey, Impl::Timer> timers;
        {
            std::lock_guard lock(impl_->mutex);
            if (impl_->immediate.empty() && impl_->timers.empty()) break;
            immediate.swap(impl_->immediate);
            timers.swap(impl_->timers);
        }
    }
}

void RunLoop::post(Task task) {
    {
        std::lock_guard lock(impl_->mutex);
        impl_->immediate.push_back(std::move(task));
    }
    impl_->wake.notify_all();
}

TimerHandle RunLoop::postAfter(Duration delay, Task task) {
    return impl_->schedule(delay, Duration::zero(), std::move(task));
}

TimerHandle RunLoop::repeat(Duration interval, Task task) {
    // A zero interval would make the timer due again at once, forever; use the smallest step.
    if (interval <= Duration::zero()) interval = Duration(1);
    return impl_->schedule(interval, interval, std::move(task));
}

bool RunLoop::isCurrentThread() const {
    return impl_->mainThread.load() == std::this_thread::get_id();
}

void RunLoop::run() {
    Impl& d = *impl_;
    d.enter();
    for (;;) {
        std::unique_lock lock(d.mutex);
        if (d.consumeQuitLocked()) return;
        if (auto r = d.takeNextLocked(d.clock->now())) {
            lock.unlock();
            Impl::execute(*r);
            continue;
        }
        // Nothing will become runnable on a manual clock unless someone advances it.
        if (d.isManual()) return;
        d.waitLocked(lock, d.nextDueLocked());
    }
}

bool RunLoop::runUntil(const std::function<bool()>& done, Duration timeout) {
    Impl& d = *impl_;
    d.enter();
    if (timeout < Duration::zero()) timeout = Duration::zero();
    const TimePoint deadline = later(d.clock->now(), timeout);
    for (;;) {
        if (done()) return true;
        std::unique_lock lock(d.mutex);
        if (d.consumeQuitLocked()) {
            lock.unlock();
            return done();
        }
        const TimePoint now = d.clock->now();
        // A real clock keeps moving while tasks run, so the deadline is checked before each task;
        // a manual one stands still, so everything due at the deadline still gets to run.
        const bool pastDeadline = now >= deadline;
        if (!d.isManual() && pastDeadline) {
            lock.unlock();
            return done();
        }
        if (auto r = d.takeNextLocked(now)) {
            lock.unlock();
            Impl::execute(*r);
            continue;
        }
        if (pastDeadline) {
            lock.unlock();
            return done();
        }
        std::optional<TimePoint> until = d.nextDueLocked();
        if (!until || *until > deadline) until = deadline;
        if (d.isManual()) {
            lock.unlock();
            d.moveClockTo(*until);
        } else {
            d.waitLocked(lock, until);
        }
    }
}

void RunLoop::quit() {
    {
        std::lock_guard lock(impl_->mutex);
        impl_->quitRequested = true;
    }
    impl_->wake.notify_all();
}

std::size_t RunLoop::runPending() {
    impl_->enter();
    return impl_->runReady();
}

void RunLoop::advance(Duration by) {
    Impl& d = *impl_;
    if (!d.isManual()) fatal("RunLoop::advance needs a ManualClock; this loop runs on a real clock");
    if (by < Duration::zero()) fatal("RunLoop::advance called with a negative duration");
    d.enter();
    const TimePoint end = later(d.clock->now(), by);
    for (;;) {
        d.runReady();
        std::optional<TimePoint> next;
        {
            std::lock_guard lock(d.mutex);
            next = d.nextDueLocked();
        }
        if (!next || *next > end) break;
        d.moveClockTo(*next);
    }
    d.moveClockTo(end);
}

const Clock& RunLoop::clock() const { return *impl_->clock; }

std::size_t RunLoop::pendingTimerCount() const {
    std::lock_guard lock(impl_->mutex);
    std::size_t count = 0;
    for (const auto& entry : impl_->timers) {
        if (!entry.second.state->cancelled.load()) ++count;
    }
    return count;
}

}  // namespace halvora::platform
