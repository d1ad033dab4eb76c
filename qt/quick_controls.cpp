// What the agent's touches and keys do to Qt Quick Controls: each operation goes through the
// control's own properties, invokable methods and signals, so that the application's handlers
// (onClicked, onToggled, onMoved, onValueModified...) run as they do for a user.
#include <QCoreApplication>
#include <QEventPoint>
#include <QMouseEvent>
#include <QPointingDevice>
#include <QQuickWindow>

#include <algorithm>
#include <cmath>

#include "qt/quick_view.h"
#include "qt/view_roles.h"

namespace halvora::qt {

using platform::ViewRole;

namespace {

bool isA(const QQuickItem* item, ViewRole role) { return item && roleOf(item) == role; }

// A click as a user's makes it: a checkable button toggles (a checked exclusive one stays
// checked), then `toggled` and `clicked`.
void clickButton(QQuickItem* button) {
    if (button->property("checkable").toBool()) {
        const bool checked = button->property("checked").toBool();
        if (!(checked && button->property("autoExclusive").toBool())) {
            button->setProperty("checked", !checked);
            QMetaObject::invokeMethod(button, "toggled");
        }
    }
    QMetaObject::invokeMethod(button, "clicked");
}

bool isButton(const QQuickItem* item) { return item && item->inherits("QQuickAbstractButton"); }

// A RangeSlider moves the handle nearest the value; a Slider has one.
QObject* sliderHandle(QQuickItem* slider, double value) {
    if (!slider->inherits("QQuickRangeSlider")) return slider;
    auto* first = slider->property("first").value<QObject*>();
    auto* second = slider->property("second").value<QObject*>();
    if (!first || !second) return slider;
    return std::abs(first->property("value").toDouble() - value) <= std::abs(second->property("value").toDouble() - value)
               ? first
               : second;
}

QList<QObject*> tapHandlers(const QQuickItem* item) {
    QList<QObject*> handlers;
    for (QObject* child : item->children()) {
        if (child->inherits("QQuickTapHandler") && child->property("enabled").toBool()) handlers.append(child);
    }
    return handlers;
}

// The delegate's index in its view, from where it lies in the content.
int indexOfCell(QQuickItem* view, QQuickItem* cell) {
    int index = -1;
    const QPointF centre(cell->x() + cell->width() / 2, cell->y() + cell->height() / 2);
    QMetaObject::invokeMethod(view, "indexAt", Q_RETURN_ARG(int, index), Q_ARG(double, centre.x()),
                              Q_ARG(double, centre.y()));
    return index;
}

// Offsets in UTF-16 code units: what QString counts and what Qt's text items take.
int textLengthOf(const QQuickItem* item) { return item->property("length").toInt(); }

}  // namespace

bool QuickView::accessibilityActivate() {
    if (!isButton(item_.data()) || !item_->isEnabled()) return false;
    clickButton(item_.data());
    return true;
}

bool QuickView::hasTapGesture() const {
    return item_ && ((item_->inherits("QQuickMouseArea") && item_->isEnabled()) || !tapHandlers(item_.data()).isEmpty());
}

bool QuickView::triggerTapGestures(platform::Point windowPoint) {
    if (!item_) return false;
    bool any = false;
    const QPointF scene(windowPoint.x, windowPoint.y);
    if (item_->inherits("QQuickMouseArea") && item_->isEnabled()) {
        // A MouseArea reports its click from a press and a release delivered to it alone.
        const QPointF local = item_->mapFromScene(scene);
        const QPointF global = item_->window() ? QPointF(item_->window()->mapToGlobal(scene.toPoint())) : scene;
        QMouseEvent press(QEvent::MouseButtonPress, local, scene, global, Qt::LeftButton, Qt::LeftButton, Qt::NoModifier);
        QMouseEvent release(QEvent::MouseButtonRelease, local, scene, global, Qt::LeftButton, Qt::NoButton, Qt::NoModifier);
        QPointer<QQuickItem> guard = item_;
        QCoreApplication::sendEvent(item_.data(), &press);
        if (guard) QCoreApplication::sendEvent(item_.data(), &release);
        any = true;
    }
    if (!item_) return any;
    for (QObject* handler : tapHandlers(item_.data())) {
        QEventPoint point(0, QEventPoint::Released, scene, scene);
        QMetaObject::invokeMethod(handler, "tapped", Q_ARG(QEventPoint, point), Q_ARG(Qt::MouseButton, Qt::LeftButton));
        QMetaObject::invokeMethod(handler, "singleTapped", Q_ARG(QEventPoint, point),
                                  Q_ARG(Qt::MouseButton, Qt::LeftButton));
        any = true;
    }
    return any;
}

platform::Control* QuickView::asControl() {
    const ViewRole role = roleOf(item_.data());
    const bool control = role == ViewRole::control || role == ViewRole::toggle || role == ViewRole::stepper ||
                         role == ViewRole::segmentedControl || role == ViewRole::slider;
    return control ? this : nullptr;
}
platform::Toggle* QuickView::asToggle() { return isA(item_.data(), ViewRole::toggle) ? this : nullptr; }
platform::Stepper* QuickView::asStepper() { return isA(item_.data(), ViewRole::stepper) ? this : nullptr; }
platform::SegmentedControl* QuickView::asSegmentedControl() {
    return isA(item_.data(), ViewRole::segmentedControl) ? this : nullptr;
}
platform::Slider* QuickView::asSlider() { return isA(item_.data(), ViewRole::slider) ? this : nullptr; }
platform::ScrollView* QuickView::asScrollView() {
    return item_ && (item_->inherits("QQuickFlickable") || isA(item_.data(), ViewRole::scrollView)) ? this : nullptr;
}
platform::CellContainer* QuickView::asCellContainer() {
    return item_ && item_->inherits("QQuickItemView") ? this : nullptr;
}
platform::TextInput* QuickView::asTextInput() { return isA(item_.data(), ViewRole::textInput) ? this : nullptr; }

void QuickView::sendActions(platform::ControlEvent event) {
    if (!item_) return;
    if (event == platform::ControlEvent::touchUpInside) {
        if (isButton(item_.data())) clickButton(item_.data());
        return;
    }
    switch (roleOf(item_.data())) {
    case ViewRole::toggle: QMetaObject::invokeMethod(item_.data(), "toggled"); break;
    case ViewRole::stepper: QMetaObject::invokeMethod(item_.data(), "valueModified"); break;
    case ViewRole::slider:
        // A RangeSlider's handle reported its own move when it was set.
        if (item_->metaObject()->indexOfSignal("moved()") >= 0) QMetaObject::invokeMethod(item_.data(), "moved");
        break;
    default: break;  // a TabBar reports through its buttons' clicks and its currentIndex
    }
}

bool QuickView::isOn() const { return item_ && item_->property("checked").toBool(); }
void QuickView::setOn(bool on, bool) {
    if (item_) item_->setProperty("checked", on);
}

double QuickView::value() const { return item_ ? item_->property("value").toDouble() : 0; }
double QuickView::minimumValue() const {
    if (!item_) return 0;
    return std::min(item_->property("from").toDouble(), item_->property("to").toDouble());
}
double QuickView::maximumValue() const {
    if (!item_) return 0;
    return std::max(item_->property("from").toDouble(), item_->property("to").toDouble());
}
double QuickView::stepValue() const { return item_ ? item_->property("stepSize").toDouble() : 0; }
void QuickView::setValue(double value) {
    if (item_) item_->setProperty("value", static_cast<int>(std::lround(value)));  // a SpinBox counts in ints
}
void QuickView::setValue(double value, bool) {
    if (!item_) return;
    QObject* handle = sliderHandle(item_.data(), value);
    handle->setProperty("value", value);
    if (handle != item_.data()) QMetaObject::invokeMethod(handle, "moved");
}

std::vector<double> QuickView::segmentWidths() const {
    std::vector<double> widths;
    if (!item_) return widths;
    const int count = item_->property("count").toInt();
    for (int i = 0; i < count; ++i) {
        QQuickItem* segment = nullptr;
        QMetaObject::invokeMethod(item_.data(), "itemAt", Q_RETURN_ARG(QQuickItem*, segment), Q_ARG(int, i));
        widths.push_back(segment ? segment->width() : 0.0);
    }
    return widths;
}
double QuickView::dividerWidth() const { return item_ ? item_->property("spacing").toDouble() : 0; }
void QuickView::setSelectedSegmentIndex(std::size_t index) {
    if (!item_) return;
    QQuickItem* segment = nullptr;
    QMetaObject::invokeMethod(item_.data(), "itemAt", Q_RETURN_ARG(QQuickItem*, segment), Q_ARG(int, static_cast<int>(index)));
    if (isButton(segment)) {
        clickButton(segment);
    } else {
        item_->setProperty("currentIndex", static_cast<int>(index));
    }
}

namespace {

// A wrapping Tumbler as a scroll view: its items stacked in a column, the offset being where the
// wheel stands (item i at i item heights). Its PathView counts offsets the other way round, in items.
struct Wheel {
    QQuickItem* path = nullptr;
    int count = 0;
    double itemHeight = 0;

    explicit Wheel(QQuickItem* tumbler) {
        if (!tumbler->inherits("QQuickTumbler")) return;
        for (auto* child : tumbler->findChildren<QQuickItem*>()) {
            if (child->inherits("QQuickPathView")) path = child;
        }
        count = tumbler->property("count").toInt();
        const int visible = std::max(1, tumbler->property("visibleItemCount").toInt());
        itemHeight = tumbler->property("availableHeight").toDouble() / visible;
    }
    bool valid() const { return path && count > 0 && itemHeight > 0; }
    double position() const {
        const double items = std::fmod(count - path->property("offset").toDouble(), count);
        return (items < 0 ? items + count : items) * itemHeight;
    }
};

}  // namespace

// Offsets count from the content's origin, so that the top of a ListView is 0 however its
// delegates were laid out; the margins play the part of insets.
platform::Point QuickView::contentOffset() const {
    if (!item_) return {};
    if (const Wheel wheel(item_.data()); wheel.valid()) return {0, wheel.position()};
    return {item_->property("contentX").toDouble() - item_->property("originX").toDouble(),
            item_->property("contentY").toDouble() - item_->property("originY").toDouble()};
}
void QuickView::setContentOffset(platform::Point offset, bool animated) {
    if (!item_) return;
    if (const Wheel wheel(item_.data()); wheel.valid()) {
        const double items = offset.y / wheel.itemHeight;
        if (animated) {
            // Settling: the wheel snaps to the nearest item, which becomes the current one.
            const long index = std::lround(items) % wheel.count;
            item_->setProperty("currentIndex", static_cast<int>(index < 0 ? index + wheel.count : index));
        } else {
            wheel.path->setProperty("offset", std::fmod(wheel.count - std::fmod(items, wheel.count), wheel.count));
        }
        return;
    }
    item_->setProperty("contentX", offset.x + item_->property("originX").toDouble());
    item_->setProperty("contentY", offset.y + item_->property("originY").toDouble());
    if (animated) QMetaObject::invokeMethod(item_.data(), "returnToBounds");
}
platform::Point QuickView::contentSize() const {
    if (!item_) return {};
    if (const Wheel wheel(item_.data()); wheel.valid()) return {item_->width(), wheel.count * wheel.itemHeight};
    return {item_->property("contentWidth").toDouble(), item_->property("contentHeight").toDouble()};
}
platform::Insets QuickView::contentInsets() const {
    if (!item_) return {};
    // A wheel turns round: a whole turn of room either way, so no edge ever stops it.
    if (const Wheel wheel(item_.data()); wheel.valid()) {
        const double turn = wheel.count * wheel.itemHeight;
        return {turn, 0, turn, 0};
    }
    return {item_->property("topMargin").toDouble(), item_->property("leftMargin").toDouble(),
            item_->property("bottomMargin").toDouble(), item_->property("rightMargin").toDouble()};
}
// Flickable.DragOverBounds is the low bit of boundsBehavior.
bool QuickView::bounces() const { return item_ && (item_->property("boundsBehavior").toInt() & 1) != 0; }

// A delegate that is a button shows the press through `down`; unhighlighting resets it, so that it
// follows the user's own presses again afterwards.
void QuickView::setCellHighlighted(const platform::ViewRef& cell, bool highlighted) {
    QQuickItem* cellItem = itemOf(cell);
    if (!cellItem || cellItem->metaObject()->indexOfProperty("down") < 0) return;
    cellItem->setProperty("down", highlighted ? QVariant(true) : QVariant());
}
void QuickView::selectCell(const platform::ViewRef& cell) {
    QQuickItem* cellItem = itemOf(cell);
    if (!item_ || !cellItem) return;
    const int index = indexOfCell(item_.data(), cellItem);
    if (index >= 0) item_->setProperty("currentIndex", index);
    if (isButton(cellItem)) clickButton(cellItem);
}

bool QuickView::isSingleLine() const { return item_ && item_->inherits("QQuickTextInput"); }
void QuickView::becomeFirstResponder() {
    if (item_) item_->forceActiveFocus(Qt::MouseFocusReason);
}
std::size_t QuickView::textLength() const { return item_ ? static_cast<std::size_t>(std::max(0, textLengthOf(item_))) : 0; }

std::size_t QuickView::closestPosition(platform::Point point) const {
    if (!item_) return 0;
    if (!isSingleLine()) {
        int position = 0;
        QMetaObject::invokeMethod(item_.data(), "positionAt", Q_RETURN_ARG(int, position), Q_ARG(double, point.x),
                                  Q_ARG(double, point.y));
        return static_cast<std::size_t>(std::max(0, position));
    }
    // A TextInput's positionAt() is for QML only; on one line, carets move right as positions grow.
    int low = 0;
    int high = textLengthOf(item_);
    auto caretX = [this](int position) {
        QRectF rect;
        QMetaObject::invokeMethod(item_.data(), "positionToRectangle", Q_RETURN_ARG(QRectF, rect), Q_ARG(int, position));
        return rect.x();
    };
    while (low < high) {
        const int middle = (low + high) / 2;
        if (caretX(middle) < point.x) low = middle + 1;
        else high = middle;
    }
    if (low > 0 && point.x - caretX(low - 1) < caretX(low) - point.x) --low;
    return static_cast<std::size_t>(low);
}

std::pair<std::size_t, std::size_t> QuickView::selectedRange() const {
    if (!item_) return {0, 0};
    const auto start = static_cast<std::size_t>(std::max(0, item_->property("selectionStart").toInt()));
    const auto end = static_cast<std::size_t>(std::max(0, item_->property("selectionEnd").toInt()));
    return {start, end};
}
void QuickView::setSelectedRange(std::size_t start, std::size_t end) {
    if (!item_) return;
    if (start == end) {
        item_->setProperty("cursorPosition", static_cast<int>(start));
    } else {
        QMetaObject::invokeMethod(item_.data(), "select", Q_ARG(int, static_cast<int>(start)), Q_ARG(int, static_cast<int>(end)));
    }
}

void QuickView::insertText(const std::string& text) {
    if (!item_ || item_->property("readOnly").toBool()) return;
    const auto [start, end] = selectedRange();
    if (end > start) {
        QMetaObject::invokeMethod(item_.data(), "remove", Q_ARG(int, static_cast<int>(start)), Q_ARG(int, static_cast<int>(end)));
    }
    const QString typed = QString::fromStdString(text);
    QMetaObject::invokeMethod(item_.data(), "insert", Q_ARG(int, static_cast<int>(start)), Q_ARG(QString, typed));
    item_->setProperty("cursorPosition", static_cast<int>(start) + static_cast<int>(typed.size()));
}

void QuickView::deleteBackward() {
    if (!item_ || item_->property("readOnly").toBool()) return;
    auto [start, end] = selectedRange();
    if (start == end) {
        if (start == 0) return;
        --start;
    }
    QMetaObject::invokeMethod(item_.data(), "remove", Q_ARG(int, static_cast<int>(start)), Q_ARG(int, static_cast<int>(end)));
}

}  // namespace halvora::qt
