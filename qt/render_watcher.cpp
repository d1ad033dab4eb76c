#include "qt/render_watcher.h"

#include <QCoreApplication>
#include <QEvent>
#include <QGuiApplication>
#include <QQuickWindow>

namespace halvora::qt {

RenderWatcher::RenderWatcher(std::function<void()> onRender, QObject* parent)
    : QObject(parent), onRender_(std::move(onRender)) {
    QCoreApplication::instance()->installEventFilter(this);
    for (QWindow* window : QGuiApplication::topLevelWindows()) watch(window);
}

RenderWatcher::~RenderWatcher() {
    if (QCoreApplication::instance()) QCoreApplication::instance()->removeEventFilter(this);
}

bool RenderWatcher::eventFilter(QObject* watched, QEvent* event) {
    if (event->type() == QEvent::Show && watched->isWindowType()) watch(watched);
    return QObject::eventFilter(watched, event);
}

void RenderWatcher::watch(QObject* object) {
    auto* window = qobject_cast<QQuickWindow*>(object);
    if (!window) return;
    // frameSwapped comes after a presented frame only, not after a grab, so a capture does not
    // call for another. On the threaded loop it is emitted on the render thread: queued to ours.
    connect(window, &QQuickWindow::frameSwapped, this, &RenderWatcher::rendered,
            static_cast<Qt::ConnectionType>(Qt::QueuedConnection | Qt::UniqueConnection));
}

void RenderWatcher::rendered() {
    if (onRender_) onRender_();
}

}  // namespace halvora::qt
