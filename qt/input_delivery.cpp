#include "qt/input_delivery.h"

#include <algorithm>
#include <QCoreApplication>
#include <QElapsedTimer>
#include <QGuiApplication>
#include <QKeyEvent>
#include <QMouseEvent>
#include <QPointingDevice>
#include <QQuickItem>
#include <QQuickWindow>
#include <QStyleHints>
#include <QTouchEvent>
#include <QWheelEvent>

#include <cmath>

#include "qt/key_mapping.h"
#include "qt/key_window.h"
#include "qt/quick_window.h"

#if QT_CONFIG(shortcut)
// Qt Gui's own entry for key events that did not come from the window system: it offers the key
// to the focus object as a ShortcutOverride and, unless taken, to the application's shortcut map
// (Shortcut items, Action shortcuts). Qt has no public call for that step; Qt Test reaches it the
// same way. Exported by Qt Gui, declared here since no public header does.
Q_GUI_EXPORT bool qt_sendShortcutOverrideEvent(QObject* o, ulong timestamp, int k, Qt::KeyboardModifiers mods,
                                               const QString& text, bool autorep, ushort count);
#endif

namespace halvora::qt {
namespace {

// The one agent mouse of the process; events from it are the agent's.
const QPointingDevice* agentMouse = nullptr;

// Far enough from any real device's: Qt keys its per-device state by this id.
constexpr qint64 kAgentMouseId = 0x484C5600;

// Event timestamps in milliseconds, as the window system's: Qt Quick's handlers time taps,
// double taps and long presses with them. They strictly increase: moves an agent's packet
// brings in one burst would otherwise share a millisecond, and Flickable divides by the time
// between moves to get its velocity.
quint64 now() {
    static QElapsedTimer clock = [] {
        QElapsedTimer started;
        started.start();
        return started;
    }();
    static quint64 last = 0;
    last = std::max(last + 1, static_cast<quint64>(clock.elapsed()) + 1);
    return last;
}

Qt::MouseButton qtButton(platform::MouseButton button) {
    switch (button) {
    case platform::MouseButton::secondary: return Qt::RightButton;
    case platform::MouseButton::middle: return Qt::MiddleButton;
    case platform::MouseButton::primary: break;
    }
    return Qt::LeftButton;
}

QQuickWindow* quickWindowOf(const platform::WindowRef& window) {
    auto* quick = dynamic_cast<QuickWindow*>(window.get());
    return quick ? quick->quickWindow() : nullptr;
}

// Keeps moves of a held mouse within reach of the window: Qt takes any finite point, but a point a
// million pixels away only ever means "far outside".
QPointF bounded(platform::Point point, const QQuickWindow& window) {
    const double reach = 4.0 * std::max(window.width(), window.height()) + 1000;
    return {std::clamp(point.x, -reach, reach), std::clamp(point.y, -reach, reach)};
}

void send(QQuickWindow* window, QEvent::Type type, QPointF at, Qt::MouseButton button, Qt::MouseButtons buttons,
          Qt::KeyboardModifiers modifiers) {
    QMouseEvent event(type, at, at, window->mapToGlobal(at), button, buttons, modifiers, agentMouse);
    event.setTimestamp(now());
    QCoreApplication::sendEvent(window, &event);
}

}  // namespace

QuickInputDelivery::QuickInputDelivery(QObject* parent)
    : QObject(parent),
      mouse_(new QPointingDevice(QStringLiteral("Halvora agent"), kAgentMouseId, QInputDevice::DeviceType::Mouse,
                                 QPointingDevice::PointerType::Generic,
                                 // A wheel of notches: a touchpad's pixel scrolling would make Flickables
                                 // wait for pixel deltas.
                                 QInputDevice::Capability::Position | QInputDevice::Capability::Scroll,
                                 1, 3, QString(), QPointingDeviceUniqueId(), this)) {
    agentMouse = mouse_;
    QCoreApplication::instance()->installEventFilter(this);
}

QuickInputDelivery::~QuickInputDelivery() {
    if (agentMouse == mouse_) agentMouse = nullptr;
}

bool QuickInputDelivery::isAgentDevice(const QInputDevice* device) { return device && device == agentMouse; }

bool QuickInputDelivery::userPointerIsDown() const {
    return QGuiApplication::mouseButtons() != Qt::NoButton || userTouching_;
}

// The user's own presses, wherever they go: the user's hand wins over the agent's.
bool QuickInputDelivery::eventFilter(QObject* watched, QEvent* event) {
    switch (event->type()) {
    case QEvent::MouseButtonPress:
    case QEvent::TouchBegin: {
        const auto* pointerEvent = static_cast<const QPointerEvent*>(event);
        if (isAgentDevice(pointerEvent->pointingDevice())) break;
        if (event->type() == QEvent::TouchBegin) userTouching_ = true;
        if (held_.window) cancelPointers();
        break;
    }
    case QEvent::TouchEnd:
    case QEvent::TouchCancel:
        if (!isAgentDevice(static_cast<const QPointerEvent*>(event)->pointingDevice())) userTouching_ = false;
        break;
    default:
        break;
    }
    return QObject::eventFilter(watched, event);
}

bool QuickInputDelivery::isDoubleClick(QQuickWindow* window, QPointF at, Qt::MouseButton button, int clicks) const {
    if (clicks > 0) return clicks % 2 == 0;
    const QStyleHints* hints = QGuiApplication::styleHints();
    const QPointF moved = at - lastPress_.position;
    return lastPress_.window == window && lastPress_.button == button &&
           now() - lastPress_.timestamp < static_cast<quint64>(hints->mouseDoubleClickInterval()) &&
           std::abs(moved.x()) <= hints->mouseDoubleClickDistance() &&
           std::abs(moved.y()) <= hints->mouseDoubleClickDistance();
}

bool QuickInputDelivery::deliverPointer(const platform::WindowRef& window, const platform::PointerInput& input) {
    QQuickWindow* quick = quickWindowOf(window);
    if (!quick) return false;
    const Qt::KeyboardModifiers modifiers = qtModifiers(input.modifiers);
    const QPointF at = bounded(input.position, *quick);
    switch (input.phase) {
    case platform::PointerInput::Phase::press: {
        // One mouse: a second pointer of the agent's waits for none, it is dropped.
        if (held_.window || userPointerIsDown()) return false;
        const Qt::MouseButton button = qtButton(input.button);
        const bool doubleClick = isDoubleClick(quick, at, button, input.clicks);
        held_ = {quick, input.id, button, at};
        // A double click's second press starts no third.
        lastPress_ = doubleClick ? Press{} : Press{quick, at, button, now()};
        QPointer<QQuickWindow> guard(quick);
        send(quick, QEvent::MouseButtonPress, at, button, button, modifiers);
        // As the window system does: the second press of a double click is followed by the
        // double-click event itself.
        if (doubleClick && guard && held_.window == quick) {
            send(quick, QEvent::MouseButtonDblClick, at, button, button, modifiers);
        }
        return true;
    }
    case platform::PointerInput::Phase::move:
        if (held_.window != quick || held_.id != input.id) return false;
        if (at == held_.position) return true;
        held_.position = at;
        send(quick, QEvent::MouseMove, at, Qt::NoButton, held_.buttons, modifiers);
        return true;
    case platform::PointerInput::Phase::release: {
        if (held_.window != quick || held_.id != input.id) return false;
        const auto button = static_cast<Qt::MouseButton>(held_.buttons.toInt());
        const QPointF last = held_.position;
        held_ = {};
        if (at != last) send(quick, QEvent::MouseMove, at, Qt::NoButton, button, modifiers);
        send(quick, QEvent::MouseButtonRelease, at, button, Qt::NoButton, modifiers);
        return true;
    }
    }
    return false;
}

void QuickInputDelivery::deliverWheel(const platform::WindowRef& window, platform::Point position,
                                      platform::Point notches, platform::KeyModifiers modifiers) {
    QQuickWindow* quick = quickWindowOf(window);
    if (!quick || (notches.x == 0 && notches.y == 0)) return;
    // A notch is 15 degrees, 120 eighths; the wheel's forward turn scrolls towards the start.
    const QPoint angle(static_cast<int>(std::lround(-notches.x * 120)), static_cast<int>(std::lround(-notches.y * 120)));
    const QPointF at(position.x, position.y);
    QWheelEvent event(at, quick->mapToGlobal(at), QPoint(), angle, held_.window ? held_.buttons : Qt::NoButton,
                      qtModifiers(modifiers), Qt::NoScrollPhase, false, Qt::MouseEventNotSynthesized, agentMouse);
    event.setTimestamp(now());
    QCoreApplication::sendEvent(quick, &event);
}

void QuickInputDelivery::deliverKey(const platform::KeyInput& input) {
    QQuickWindow* window = keyQuickWindow();
    const QtKey key = qtKeyOf(input);
    if (!window || (key.key == 0 && key.text.isEmpty())) return;
    const quint64 timestamp = now();
#if QT_CONFIG(shortcut)
    QObject* focus = window->activeFocusItem() ? static_cast<QObject*>(window->activeFocusItem()) : window;
    if (qt_sendShortcutOverrideEvent(focus, timestamp, key.key, key.modifiers, key.text, input.autoRepeat, 1)) return;
#endif
    QPointer<QQuickWindow> guard(window);
    QKeyEvent press(QEvent::KeyPress, key.key, key.modifiers, key.text, input.autoRepeat);
    press.setTimestamp(timestamp);
    QCoreApplication::sendEvent(window, &press);
    if (!guard) return;
    QKeyEvent release(QEvent::KeyRelease, key.key, key.modifiers, key.text, input.autoRepeat);
    release.setTimestamp(now());
    QCoreApplication::sendEvent(window, &release);
}

// Qt has no cancel event for a mouse: clearing the agent mouse's grabs is how Qt itself cancels a
// press (a Button stops being down without a click, a handler reports `canceled`).
void QuickInputDelivery::cancelPointers() {
    if (!held_.window) {
        held_ = {};
        return;
    }
    QQuickWindow* window = held_.window;
    const QPointF at = held_.position;
    held_ = {};
    QMouseEvent probe(QEvent::MouseMove, at, at, window->mapToGlobal(at), Qt::NoButton, Qt::NoButton,
                      Qt::NoModifier, agentMouse);
    const QEventPoint& point = probe.point(0);
    probe.setExclusiveGrabber(point, nullptr);
    probe.clearPassiveGrabbers(point);
}

}  // namespace halvora::qt
