#include "qt/window_watcher.h"

#include <QEvent>
#include <QGuiApplication>

#include "halvora/platform.h"
#include "overlay/halvora_window.h"
#include "qt/key_window.h"
#include "qt/overlay_item.h"
#include "qt/quick_view.h"

namespace halvora::qt {

WindowWatcher::WindowWatcher(ScreenTracker::Observer observer, QObject* parent)
    : QObject(parent), screens_(std::move(observer), this) {
    badgeCheck_.setSingleShot(true);
    badgeCheck_.setInterval(250);
    connect(&badgeCheck_, &QTimer::timeout, this, &WindowWatcher::recheckBadge);
    QCoreApplication::instance()->installEventFilter(this);
    connect(qGuiApp, &QGuiApplication::focusWindowChanged, this, &WindowWatcher::updateKeyWindow,
            Qt::QueuedConnection);
    for (QQuickWindow* window : visibleQuickWindows()) screens_.watch(window);
    updateKeyWindow();
}

WindowWatcher::~WindowWatcher() {
    if (QCoreApplication::instance()) QCoreApplication::instance()->removeEventFilter(this);
    delete overlay_.data();
}

void WindowWatcher::setOverlayModel(HLVHalvoraWindow* model) {
    model_ = model;
    if (!model_) {
        delete overlay_.data();
        return;
    }
    if (!overlay_) overlay_ = new OverlayItem();
    overlay_->setModel(model_);
    placeOverlay();
}

OverlayItem* WindowWatcher::overlayItem() const { return overlay_.data(); }

bool WindowWatcher::eventFilter(QObject* watched, QEvent* event) {
    // Cheap for every other event: one comparison of the type.
    if ((event->type() == QEvent::Show || event->type() == QEvent::Hide) && watched->isWindowType()) {
        // A window being destroyed hides from ~QWindow, when it is no longer a QQuickWindow: only a
        // shown window is cast.
        if (event->type() == QEvent::Show) {
            if (auto* window = qobject_cast<QQuickWindow*>(watched)) screens_.watch(window);
        }
        // The event comes before the window's visibility is settled; look once it is.
        QMetaObject::invokeMethod(this, &WindowWatcher::updateKeyWindow, Qt::QueuedConnection);
    }
    return QObject::eventFilter(watched, event);
}

void WindowWatcher::updateKeyWindow() {
    QQuickWindow* key = keyQuickWindow();
    if (key == key_) return;
    for (const auto& connection : keyConnections_) disconnect(connection);
    key_ = key;
    if (key) {
        keyConnections_ = {
            connect(key, &QWindow::widthChanged, this, &WindowWatcher::keyWindowResized),
            connect(key, &QWindow::heightChanged, this, &WindowWatcher::keyWindowResized),
            // A window deleted while shown sends no Hide event.
            connect(key, &QObject::destroyed, this, &WindowWatcher::updateKeyWindow, Qt::QueuedConnection),
            connect(key, &QQuickWindow::frameSwapped, this, [this] {
                if (model_ && model_->isActive() && !badgeCheck_.isActive()) badgeCheck_.start();
            }),
        };
    }
    placeOverlay();
    if (model_) model_->statusBarFrameChanged();
}

void WindowWatcher::keyWindowResized() {
    placeOverlay();
    if (model_) model_->statusBarFrameChanged();
}

void WindowWatcher::recheckBadge() {
    if (!model_ || !model_->isActive()) return;
    const platform::Rect place = platform::screen().statusBarFrame();
    const HLVRect shown = model_->bannerFrame();
    // An empty banner is between two places already.
    if (shown.width > 0 && (place.x != shown.x || place.y != shown.y || place.width != shown.width))
        model_->statusBarFrameChanged();
}

void WindowWatcher::placeOverlay() {
    if (!overlay_) return;
    if (!key_) {
        overlay_->setParentItem(nullptr);
        return;
    }
    QQuickItem* root = key_->contentItem();
    if (overlay_->parentItem() != root) overlay_->setParentItem(root);
    overlay_->setPosition({0, 0});
    overlay_->setSize(QSizeF(key_->width(), key_->height()));
    raiseItem(overlay_.data());
}

}  // namespace halvora::qt
