#include "qt/sharing_badge.h"

#include <QFontMetricsF>
#include <QGuiApplication>
#include <QQuickItem>
#include <QQuickWindow>

#include <array>
#include <cmath>
#include <tuple>

#include "overlay/halvora_window.h"
#include "qt/overlay_item.h"

namespace halvora::qt {
namespace {

constexpr double kPaddingX = 10;
constexpr double kHeight = 20;
constexpr std::size_t kPlaces = 8;

// What each candidate place would cover.
struct Cover {
    double controlArea = 0;
    int texts = 0;
};

// Qt Quick's own classes below are private to it, so they are recognised by class name.
bool isContainer(const QQuickItem* item) {
    // Panes (ToolBar, Page, Frame...) and popups take the pointer only so that it does not fall
    // through them; what the user operates are the controls inside.
    return item->inherits("QQuickPane") || item->inherits("QQuickPopupItem") || item->inherits("QQuickOverlay");
}

bool isControl(const QQuickItem* item) {
    if (isContainer(item)) return false;
    if (item->acceptedMouseButtons() != Qt::NoButton || item->acceptTouchEvents() || item->activeFocusOnTab() ||
        item->flags().testFlag(QQuickItem::ItemAcceptsInputMethod))
        return true;
    // TapHandler, DragHandler and the other pointer handlers are QObject children of their item.
    for (const QObject* child : item->children()) {
        if (child->inherits("QQuickPointerHandler")) return true;
    }
    return false;
}

bool isText(const QQuickItem* item) {
    return item->inherits("QQuickText") || item->inherits("QQuickTextInput") || item->inherits("QQuickTextEdit");
}

void measure(const QQuickItem* item, const std::array<QRectF, kPlaces>& places, std::array<Cover, kPlaces>& covers) {
    if (qobject_cast<const OverlayItem*>(item) || !item->isVisible() || item->opacity() <= 0) return;
    const QRectF shown = item->mapRectToScene(item->boundingRect());
    bool anywhere = false;
    const bool control = isControl(item);
    const bool text = !control && isText(item);
    for (std::size_t i = 0; i < kPlaces; ++i) {
        if (!shown.intersects(places[i])) continue;
        anywhere = true;
        if (control) {
            const QRectF covered = shown.intersected(places[i]);
            covers[i].controlArea += covered.width() * covered.height();
        } else if (text) {
            ++covers[i].texts;
        }
    }
    // What a clipping item holds shows only inside it.
    if (item->clip() && !anywhere) return;
    for (const QQuickItem* child : item->childItems()) measure(child, places, covers);
}

}  // namespace

QSizeF sharingBadgeSize() {
    QFont font = QGuiApplication::font();
    font.setPixelSize(static_cast<int>(HLVHalvoraWindow::kBannerFontSize));
    const double text = QFontMetricsF(font).horizontalAdvance(QString::fromUtf8(HLVHalvoraWindow::kBannerText));
    return {std::ceil(text + 2 * kPaddingX), kHeight};
}

QRectF sharingBadgePlace(QQuickWindow* window, QSizeF size, QRectF current) {
    if (!window) return {};
    const double w = window->width();
    const double h = window->height();
    const double left = kSharingFrameWidth;
    const double centre = std::round((w - size.width()) / 2);
    const double right = w - kSharingFrameWidth - size.width();
    const double top = kSharingFrameWidth;
    const double middle = std::round((h - size.height()) / 2);
    const double bottom = h - kSharingFrameWidth - size.height();
    const std::array<QRectF, kPlaces> places{{{QPointF(centre, top), size}, {QPointF(centre, bottom), size},
                                              {QPointF(right, top), size}, {QPointF(right, bottom), size},
                                              {QPointF(left, top), size}, {QPointF(left, bottom), size},
                                              {QPointF(right, middle), size}, {QPointF(left, middle), size}}};
    std::array<Cover, kPlaces> covers{};
    measure(window->contentItem(), places, covers);
    std::size_t best = 0;
    const auto score = [&](std::size_t i) { return std::make_tuple(covers[i].controlArea, covers[i].texts, places[i] != current); };
    for (std::size_t i = 1; i < kPlaces; ++i) {
        if (score(i) < score(best)) best = i;
    }
    return places[best];
}

}  // namespace halvora::qt
