#include "qt/quick_view.h"

#include <algorithm>

#include <QQuickWindow>

#include "qt/drawn_area.h"
#include "qt/overlay_item.h"
#include "qt/qml_type_name.h"
#include "qt/redaction_mask_item.h"
#include "qt/quick_window.h"
#include "qt/view_roles.h"

namespace halvora::qt {

QuickView::QuickView(QQuickItem* item) : item_(item), handle_(item) {}

platform::ViewRole QuickView::role() const { return roleOf(item_.data()); }

std::string QuickView::className() const { return qmlTypeName(item_.data()); }

platform::Rect QuickView::bounds() const {
    if (!item_) return {};
    return {0, 0, item_->width(), item_->height()};
}

platform::Rect QuickView::frame() const {
    if (!item_) return {};
    return {item_->x(), item_->y(), item_->width(), item_->height()};
}

void QuickView::setFrame(platform::Rect frame) {
    if (!item_) return;
    item_->setPosition({frame.x, frame.y});
    item_->setSize({frame.width, frame.height});
}

platform::DrawnArea QuickView::drawnArea() const { return drawnAreaOf(item_.data()); }

std::vector<platform::ViewRef> QuickView::subviews() const {
    std::vector<platform::ViewRef> views;
    for (QQuickItem* child : childItemsInPaintOrder(item_.data())) views.push_back(viewFor(child));
    return views;
}

void QuickView::addSubview(const platform::ViewRef& child) {
    QQuickItem* childItem = itemOf(child);
    if (!item_ || !childItem || childItem == item_) return;
    addChildItem(item_.data(), childItem);
}

void QuickView::bringSubviewToFront(const platform::ViewRef& child) {
    QQuickItem* childItem = itemOf(child);
    if (!item_ || !childItem || childItem->parentItem() != item_) return;
    raiseItem(childItem);
}

void QuickView::removeFromSuperview() {
    if (!item_) return;
    item_->setParentItem(nullptr);
    if (qobject_cast<RedactionMaskItem*>(item_.data())) item_->deleteLater();
}

platform::ViewRef QuickView::superview() const { return item_ ? viewFor(item_->parentItem()) : nullptr; }

std::shared_ptr<platform::Window> QuickView::window() const {
    return item_ ? windowFor(item_->window()) : nullptr;
}

platform::Point QuickView::convertFromWindow(platform::Point point) const {
    if (!item_) return point;
    const QPointF local = item_->mapFromScene(QPointF(point.x, point.y));
    return {local.x(), local.y()};
}

platform::Point QuickView::convertToWindow(platform::Point point) const {
    if (!item_) return point;
    const QPointF scene = item_->mapToScene(QPointF(point.x, point.y));
    return {scene.x(), scene.y()};
}

bool QuickView::pointInside(platform::Point point) const { return item_ && item_->contains(QPointF(point.x, point.y)); }

namespace {

QQuickItem* hitItem(QQuickItem* item, QPointF point) {
    if (!item->isVisible() || !item->isEnabled() || item->opacity() < 0.01 || qobject_cast<OverlayItem*>(item)) {
        return nullptr;
    }
    const bool inside = item->contains(point);
    // Children may lie outside their parent, unless it clips them.
    if (inside || !item->clip()) {
        const std::vector<QQuickItem*> children = childItemsInPaintOrder(item);
        for (auto child = children.rbegin(); child != children.rend(); ++child) {
            if (QQuickItem* hit = hitItem(*child, item->mapToItem(*child, point))) return hit;
        }
    }
    // The popup layer of an ApplicationWindow covers the whole window for its popups and drawers:
    // only what it shows is under a point, never the layer itself. Its class is private to Qt,
    // hence the test by name.
    return inside && !item->inherits("QQuickOverlay") ? item : nullptr;
}

}  // namespace

platform::ViewRef QuickView::hitTest(platform::Point point) {
    return item_ ? viewFor(hitItem(item_.data(), QPointF(point.x, point.y))) : nullptr;
}

platform::ViewRef viewFor(QQuickItem* item) { return item ? std::make_shared<QuickView>(item) : nullptr; }

QQuickItem* itemOf(const platform::ViewRef& view) {
    const auto* quickView = dynamic_cast<const QuickView*>(view.get());
    return quickView ? quickView->item() : nullptr;
}

std::vector<QQuickItem*> childItemsInPaintOrder(const QQuickItem* item) {
    if (!item) return {};
    const QList<QQuickItem*> children = item->childItems();
    std::vector<QQuickItem*> ordered(children.begin(), children.end());
    std::stable_sort(ordered.begin(), ordered.end(), [](QQuickItem* a, QQuickItem* b) { return a->z() < b->z(); });
    return ordered;
}

void addChildItem(QQuickItem* parent, QQuickItem* child) {
    child->setParentItem(parent);
    if (qobject_cast<RedactionMaskItem*>(child)) child->setParent(parent);
    raiseItem(child);
}

void raiseItem(QQuickItem* child) {
    QQuickItem* parent = child->parentItem();
    if (!parent) return;
    const QList<QQuickItem*> siblings = parent->childItems();
    qreal top = child->z();
    QQuickItem* last = nullptr;
    for (QQuickItem* sibling : siblings) {
        if (sibling == child || qobject_cast<OverlayItem*>(sibling)) continue;
        top = std::max(top, sibling->z());
        last = sibling;
    }
    if (top > child->z()) child->setZ(top);
    if (last && siblings.indexOf(child) < siblings.indexOf(last)) child->stackAfter(last);
}

}  // namespace halvora::qt
