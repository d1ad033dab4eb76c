#pragma once
// The library's main queue on the Qt GUI thread's event loop. Tasks posted from any thread run in
// order on the thread that created the queue (the GUI thread); delayed and repeating tasks use
// precise QTimers there.

#include <QPointer>

#include "halvora/platform/main_queue.h"

class QObject;

namespace halvora::qt {

class QtMainQueue final : public platform::MainQueue {
public:
    // Create on the GUI thread, after the QGuiApplication.
    QtMainQueue();
    ~QtMainQueue() override;
    QtMainQueue(const QtMainQueue&) = delete;
    QtMainQueue& operator=(const QtMainQueue&) = delete;

    void post(Task task) override;
    platform::TimerHandle postAfter(platform::Duration delay, Task task) override;
    platform::TimerHandle repeat(platform::Duration interval, Task task) override;
    bool isCurrentThread() const override;

private:
    // Lives on the GUI thread as a child of the application, so it disappears with the event
    // loop; tasks posted after that are dropped.
    QPointer<QObject> context_;
};

}  // namespace halvora::qt
