#include "qt/drawn_area.h"

#include <QQuickWindow>

#include <algorithm>
#include <cmath>
#include <vector>

namespace halvora::qt {
namespace {

using Rects = std::vector<QRectF>;

QRectF clipInScene(const QQuickItem* item) { return item->mapRectToScene(item->clipRect()); }

// The item and its visible descendants, each cut to the clips between it and `item`.
QRectF drawnSceneRect(const QQuickItem* item) {
    QRectF rect = item->mapRectToScene(item->boundingRect().united(QRectF(0, 0, item->width(), item->height())));
    for (const QQuickItem* child : item->childItems()) {
        if (child->isVisible()) rect = rect.united(drawnSceneRect(child));
    }
    // A clipping item cuts its own painting and its children's alike.
    return item->clip() ? rect.intersected(clipInScene(item)) : rect;
}

void cut(Rects& rects, const QRectF& clip) {
    for (QRectF& r : rects) r = r.intersected(clip);
    std::erase_if(rects, [](const QRectF& r) { return r.isEmpty(); });
}

// Moved by up to `dx` sideways or `dy` up and down (one or the other), in scene units.
Rects sweptCross(const Rects& rects, qreal dx, qreal dy) {
    Rects swept;
    for (const QRectF& r : rects) {
        if (dx > 0) swept.push_back(r.adjusted(-dx, 0, dx, 0));
        if (dy > 0) swept.push_back(r.adjusted(0, -dy, 0, dy));
        if (dx <= 0 && dy <= 0) swept.push_back(r);
    }
    return swept;
}

bool isBusyStackView(const QQuickItem* item) {
    // StackView's class is private to Qt Quick Controls; "busy" is its documented QML property.
    return item->inherits("QQuickStackView") && item->property("busy").toBool();
}

// Whether an animation, or the group that drives it, runs now.
bool isRunning(const QObject* animation) {
    for (const QObject* object = animation; object && !object->isQuickItemType(); object = object->parent()) {
        // QQuickAbstractAnimation is private; "running" is every animation's QML property.
        if (object->inherits("QQuickAbstractAnimation") && object->property("running").toBool()) return true;
    }
    return false;
}

enum class Motion { none, along, turned, other };

// Animators run on the render thread of a threaded render loop and write the item's property back
// only when they stop, so the GUI thread's geometry can lag what is drawn. Their classes are private
// to Qt Quick: recognised by name, read through their QML properties (target, from, to).
struct RunningAnimator {
    Motion motion = Motion::none;
    bool vertical = false;
    qreal from = 0, to = 0;
};

RunningAnimator animatorOf(const QObject* object) {
    if (!object->inherits("QQuickAnimator") || !isRunning(object)) return {};
    const QByteArray name = object->metaObject()->className();
    const qreal from = object->property("from").toReal();
    const qreal to = object->property("to").toReal();
    if (name == "QQuickXAnimator") return {Motion::along, false, from, to};
    if (name == "QQuickYAnimator") return {Motion::along, true, from, to};
    if (name == "QQuickRotationAnimator") return {Motion::turned, false, 1, 1};
    if (name == "QQuickScaleAnimator") return {Motion::turned, false, from, to};
    if (name == "QQuickOpacityAnimator" || name == "QQuickUniformAnimator") return {};  // nothing moves
    return {Motion::other, false, 0, 0};
}

// Sweeps `rects` (scene) for an animator moving `target`. False when the motion cannot be bounded.
bool sweepForAnimator(const QQuickItem* target, const RunningAnimator& animator, Rects& rects) {
    const QQuickItem* parent = target->parentItem();
    if (animator.motion == Motion::other || !parent) return false;
    for (QRectF& r : rects) {
        QRectF local = parent->mapRectFromScene(r);  // where the target's position is measured
        if (animator.motion == Motion::along) {
            // Between both ends, whichever the GUI thread holds now (the start, or the rest).
            const qreal now = animator.vertical ? target->y() : target->x();
            const qreal back = std::max({0.0, now - animator.from, now - animator.to});
            const qreal ahead = std::max({0.0, animator.from - now, animator.to - now});
            local = animator.vertical ? local.adjusted(0, -back, 0, ahead) : local.adjusted(-back, 0, ahead, 0);
        } else {
            // Any turn about the origin, at the largest scale it reaches.
            const QPointF origin = target->mapToItem(parent, target->transformOriginPoint());
            const qreal scaleNow = std::abs(target->scale()) > 1e-6 ? std::abs(target->scale()) : 1.0;
            const qreal grow = std::max({1.0, std::abs(animator.from), std::abs(animator.to)}) / scaleNow;
            qreal radius = 0;
            for (const QPointF corner : {local.topLeft(), local.topRight(), local.bottomLeft(), local.bottomRight()}) {
                radius = std::max(radius, std::hypot(corner.x() - origin.x(), corner.y() - origin.y()));
            }
            radius *= std::max(grow, 1.0);
            local = QRectF(origin.x() - radius, origin.y() - radius, 2 * radius, 2 * radius);
        }
        r = parent->mapRectToScene(local);
    }
    return true;
}

// Animators moving `item`: those among its non-item QObject descendants (declared inside it, or
// `XAnimator on x`, or a Behavior's) that target it or name no target. Sets `moved` when one runs.
bool sweepForAnimatorsOn(const QQuickItem* item, const QObject* holder, Rects& rects, bool& moved) {
    for (const QObject* child : holder->children()) {
        if (child->isQuickItemType()) continue;
        if (child->inherits("QQuickAnimator")) {
            const auto* target = child->property("target").value<QQuickItem*>();
            if (target && target != item) continue;
            const RunningAnimator animator = animatorOf(child);
            if (animator.motion == Motion::none) continue;
            moved = true;
            if (!sweepForAnimator(item, animator, rects)) return false;
        } else if (!sweepForAnimatorsOn(item, child, rects, moved)) {
            return false;
        }
    }
    return true;
}

}  // namespace

platform::DrawnArea drawnAreaOf(const QQuickItem* item) {
    const QQuickWindow* window = item ? item->window() : nullptr;
    if (!window || !window->isVisible() || !item->isVisible()) return platform::DrawnArea::notDrawn();

    Rects rects{drawnSceneRect(item)};
    bool exact = true;
    for (const QQuickItem* level = item; level; level = level->parentItem()) {
        if (level != item) {
            // Pages in a transition are displaced by up to the view's size, sideways or up and down.
            if (isBusyStackView(level)) {
                const QRectF view = level->mapRectToScene(QRectF(0, 0, level->width(), level->height()));
                rects = sweptCross(rects, view.width(), view.height());
                exact = false;
            }
            if (level->clip()) cut(rects, clipInScene(level));
        }
        bool moved = false;
        if (!sweepForAnimatorsOn(level, level, rects, moved)) return {};
        if (moved) exact = false;
        if (rects.empty()) return platform::DrawnArea::notDrawn();
    }
    cut(rects, QRectF(0, 0, window->width(), window->height()));
    if (rects.empty()) return platform::DrawnArea::notDrawn();

    std::vector<platform::Rect> onScreen;
    onScreen.reserve(rects.size());
    for (const QRectF& r : rects) onScreen.push_back({r.x() + window->x(), r.y() + window->y(), r.width(), r.height()});
    return exact ? platform::DrawnArea::at(std::move(onScreen)) : platform::DrawnArea::within(std::move(onScreen));
}

}  // namespace halvora::qt
