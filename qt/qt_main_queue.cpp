#include "qt/qt_main_queue.h"

#include <QCoreApplication>
#include <QObject>
#include <QThread>
#include <QTimer>

#include <algorithm>
#include <chrono>
#include <limits>
#include <memory>
#include <utility>

namespace halvora::qt {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

int remainingMilliseconds(steady_clock::time_point deadline) {
    const auto left = std::chrono::ceil<milliseconds>(deadline - steady_clock::now()).count();
    return static_cast<int>(std::clamp<long long>(left, 0, std::numeric_limits<int>::max()));
}

}  // namespace

QtMainQueue::QtMainQueue() : context_(new QObject(QCoreApplication::instance())) {}

QtMainQueue::~QtMainQueue() {
    if (context_ && context_->thread() == QThread::currentThread()) delete context_.data();
}

void QtMainQueue::post(Task task) {
    QObject* context = context_.data();
    if (!context) return;
    QMetaObject::invokeMethod(context, std::move(task), Qt::QueuedConnection);
}

platform::TimerHandle QtMainQueue::postAfter(platform::Duration delay, Task task) {
    auto state = std::make_shared<platform::TimerState>();
    // The delay counts from this call, not from when the GUI thread gets to start the timer.
    const auto deadline = steady_clock::now() + delay;
    QPointer<QObject> context = context_;
    post([context, deadline, state, task = std::move(task)]() mutable {
        if (!context || state->cancelled) return;
        auto* timer = new QTimer(context.data());
        timer->setSingleShot(true);
        timer->setTimerType(Qt::PreciseTimer);
        QObject::connect(timer, &QTimer::timeout, timer, [timer, state, task = std::move(task)] {
            timer->deleteLater();
            if (!state->cancelled) task();
        });
        timer->start(remainingMilliseconds(deadline));
    });
    return platform::TimerHandle(state);
}

platform::TimerHandle QtMainQueue::repeat(platform::Duration interval, Task task) {
    auto state = std::make_shared<platform::TimerState>();
    const int period = static_cast<int>(
        std::clamp<long long>(std::chrono::ceil<milliseconds>(interval).count(), 0, std::numeric_limits<int>::max()));
    QPointer<QObject> context = context_;
    post([context, period, state, task = std::move(task)]() mutable {
        if (!context || state->cancelled) return;
        auto* timer = new QTimer(context.data());
        timer->setTimerType(Qt::PreciseTimer);
        // A cancelled timer is stopped at its next tick.
        QObject::connect(timer, &QTimer::timeout, timer, [timer, state, task = std::move(task)] {
            if (state->cancelled) {
                timer->stop();
                timer->deleteLater();
                return;
            }
            task();
        });
        timer->start(period);
    });
    return platform::TimerHandle(state);
}

bool QtMainQueue::isCurrentThread() const {
    const QObject* context = context_.data();
    return context && context->thread() == QThread::currentThread();
}

}  // namespace halvora::qt
