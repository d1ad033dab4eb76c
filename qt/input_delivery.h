#pragma once
// The agent's pointer and keys as Qt input events, sent through a window's own event delivery as
// the window system's would arrive: Qt Quick then picks the item, and popups, drawers, Actions,
// pointer handlers, MouseAreas, Flickables, the focus chain, validators and shortcuts behave as
// for the user. The agent's pointer is a virtual mouse of its own, so Qt keeps its presses and
// grabs apart from the user's; while the user's own pointer is pressed the agent's presses are
// dropped, and a press of the user's lets go of the agent's.

#include <QObject>
#include <QPointer>
#include <QPointF>

#include "halvora/platform/input_delivery.h"

class QInputDevice;
class QPointingDevice;
class QQuickWindow;

namespace halvora::qt {

class QuickInputDelivery final : public QObject, public platform::InputDelivery {
public:
    explicit QuickInputDelivery(QObject* parent);
    ~QuickInputDelivery() override;

    bool deliverPointer(const platform::WindowRef& window, const platform::PointerInput& input) override;
    void deliverWheel(const platform::WindowRef& window, platform::Point position, platform::Point notches,
                      platform::KeyModifiers modifiers) override;
    void deliverKey(const platform::KeyInput& input) override;
    void cancelPointers() override;

    // Whether an event came from the agent rather than the user's own devices.
    static bool isAgentDevice(const QInputDevice* device);

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    bool userPointerIsDown() const;
    bool isDoubleClick(QQuickWindow* window, QPointF at, Qt::MouseButton button, int clicks) const;

    QPointingDevice* mouse_;
    // The agent's mouse, while a button of it is down.
    struct Held {
        QPointer<QQuickWindow> window;
        int id = -1;
        Qt::MouseButtons buttons;
        QPointF position;
    } held_;
    // The previous press, for double clicks.
    struct Press {
        QPointer<QQuickWindow> window;
        QPointF position;
        Qt::MouseButton button = Qt::NoButton;
        quint64 timestamp = 0;
    } lastPress_;
    bool userTouching_ = false;
};

}  // namespace halvora::qt
