#pragma once
// Tells the library when screens (Pages) appear and disappear. After every frame of a watched window
// (and when it is shown or hidden) the tracker compares the Pages the window shows with those it
// showed before: new ones appear (outer and back ones first), missing ones disappear (front ones
// first). A Page therefore "will appear" on the first frame that shows it: Qt Quick has no hook
// before a Page is first drawn that works for every container.

#include <QObject>
#include <QPointer>
#include <QQuickItem>
#include <QQuickWindow>

#include <functional>
#include <map>
#include <memory>
#include <vector>

#include "halvora/platform/view_controller.h"

namespace halvora::qt {

class PageController;

class ScreenTracker final : public QObject {
    Q_OBJECT

public:
    // Where the events go; the default reports to Halvora::instance().
    using Observer = std::function<void(const platform::ViewControllerRef& screen, bool appearing, bool animated)>;

    explicit ScreenTracker(Observer observer = {}, QObject* parent = nullptr);
    ~ScreenTracker() override;

    // Starts watching a window (again harmless).
    void watch(QQuickWindow* window);
    // Compares now instead of after the next frame.
    void refresh(QQuickWindow* window);

private:
    struct Shown {
        // Guarded: a Page made where a destroyed one was is another screen.
        QPointer<QQuickItem> page;
        std::shared_ptr<PageController> controller;
    };
    void scheduleRefresh(QQuickWindow* window);
    void forget(const QQuickWindow* window);

    Observer observer_;
    std::map<const QQuickWindow*, std::vector<Shown>> shown_;
    std::map<const QQuickWindow*, bool> refreshPending_;
};

}  // namespace halvora::qt
