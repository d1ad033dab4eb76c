#pragma once
// Follows the application's Qt Quick windows: every window shown is watched for its screens, the
// overlay item stays the top-most child of whichever window is key, and when the key window changes
// or resizes the overlay model hears that the status bar moved.

#include <QObject>
#include <QPointer>
#include <QQuickWindow>
#include <QTimer>

#include <memory>
#include <vector>

#include "qt/screen_tracker.h"

namespace halvora {
class HLVHalvoraWindow;
}

namespace halvora::qt {

class OverlayItem;

class WindowWatcher final : public QObject {
    Q_OBJECT

public:
    // Watches the windows already shown and, through an application event filter, those shown later.
    explicit WindowWatcher(ScreenTracker::Observer observer = {}, QObject* parent = nullptr);
    ~WindowWatcher() override;

    // The overlay model to draw in the key window; null removes the overlay.
    void setOverlayModel(HLVHalvoraWindow* model);
    OverlayItem* overlayItem() const;
    ScreenTracker& screens() { return screens_; }

    // Looks for the key window now (also done on focus changes and when windows show or hide).
    void updateKeyWindow();

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    void keyWindowResized();
    void placeOverlay();
    // After the key window rendered something new, at most a few times a second: the badge
    // moves when a control now lies under it or a better place came free.
    void recheckBadge();

    ScreenTracker screens_;
    QPointer<OverlayItem> overlay_;
    HLVHalvoraWindow* model_ = nullptr;
    QPointer<QQuickWindow> key_;
    std::vector<QMetaObject::Connection> keyConnections_;
    QTimer badgeCheck_;
};

}  // namespace halvora::qt
