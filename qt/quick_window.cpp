#include "qt/quick_window.h"

#include <QImage>
#include <QPainter>
#include <QPointer>

#include "qt/key_window.h"
#include "qt/overlay_item.h"
#include "qt/qml_type_name.h"
#include "qt/quick_view.h"

namespace halvora::qt {
namespace {
std::function<void(QQuickWindow*)>& beforeCapture() {
    static std::function<void(QQuickWindow*)> hook;
    return hook;
}
}  // namespace

void QuickWindow::setBeforeCapture(std::function<void(QQuickWindow*)> hook) { beforeCapture() = std::move(hook); }

QuickWindow::QuickWindow(QQuickWindow* window) : window_(window), handle_(window) {}

std::string QuickWindow::className() const { return qmlTypeName(window_.data()); }

platform::Rect QuickWindow::bounds() const {
    if (!window_) return {};
    return {0, 0, static_cast<double>(window_->width()), static_cast<double>(window_->height())};
}

// In screen coordinates, as every window's frame: the capture places windows relative to the key
// window itself.
platform::Rect QuickWindow::frame() const {
    if (!window_) return {};
    const QRect geometry = window_->geometry();
    return {static_cast<double>(geometry.x()), static_cast<double>(geometry.y()),
            static_cast<double>(geometry.width()), static_cast<double>(geometry.height())};
}

void QuickWindow::setFrame(platform::Rect frame) {
    if (window_) window_->setGeometry(QRect(qRound(frame.x), qRound(frame.y), qRound(frame.width), qRound(frame.height)));
}

std::vector<platform::ViewRef> QuickWindow::subviews() const {
    return window_ ? QuickView(window_->contentItem()).subviews() : std::vector<platform::ViewRef>{};
}

void QuickWindow::addSubview(const platform::ViewRef& child) {
    if (window_) QuickView(window_->contentItem()).addSubview(child);
}

void QuickWindow::bringSubviewToFront(const platform::ViewRef& child) {
    if (window_) QuickView(window_->contentItem()).bringSubviewToFront(child);
}

bool QuickWindow::drawHierarchy(platform::RgbaFrame& canvas, platform::Point at, double scale) {
    if (!window_ || !window_->isVisible() || canvas.empty() || !canvas.consistent() || scale <= 0) return false;
    if (beforeCapture()) beforeCapture()(window_.data());
    if (!window_) return false;

    // The overlay stays on screen; only the grab's own render leaves it out.
    std::vector<QPointer<OverlayItem>> overlays;
    for (QQuickItem* child : window_->contentItem()->childItems()) {
        if (auto* overlay = qobject_cast<OverlayItem*>(child)) {
            overlay->setLeftOutOfRenders(true);
            overlays.emplace_back(overlay);
        }
    }
    const QImage shot = window_->grabWindow();
    for (const auto& overlay : overlays) {
        if (overlay) overlay->setLeftOutOfRenders(false);
    }
    if (shot.isNull()) return false;

    QImage target(canvas.pixels.data(), canvas.width, canvas.height, static_cast<qsizetype>(canvas.bytesPerRow),
                  QImage::Format_RGBA8888_Premultiplied);
    QPainter painter(&target);
    painter.setRenderHint(QPainter::SmoothPixmapTransform);
    painter.drawImage(QRectF(at.x * scale, at.y * scale, window_->width() * scale, window_->height() * scale), shot);
    return true;
}

platform::Point QuickWindow::convertFromScreen(platform::Point point) const {
    if (!window_) return point;
    const QQuickWindow* key = keyQuickWindow();
    const QPoint keyOrigin = key ? key->position() : QPoint();
    return {point.x + keyOrigin.x() - window_->x(), point.y + keyOrigin.y() - window_->y()};
}

platform::ViewRef QuickWindow::hitTest(platform::Point point) {
    return window_ ? QuickView(window_->contentItem()).hitTest(point) : nullptr;
}

platform::WindowRef windowFor(QQuickWindow* window) {
    return window ? std::make_shared<QuickWindow>(window) : nullptr;
}

}  // namespace halvora::qt
