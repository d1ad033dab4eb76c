#include "qt/screen_tracker.h"

#include <algorithm>

#include "halvora/halvora.h"
#include "qt/page_controller.h"
#include "qt/shown_pages.h"

namespace halvora::qt {
namespace {

void reportToLibrary(const platform::ViewControllerRef& screen, bool appearing, bool animated) {
    if (appearing) Halvora::instance().viewWillAppear(screen, animated);
    else Halvora::instance().viewDidDisappear(screen, animated);
}

}  // namespace

ScreenTracker::ScreenTracker(Observer observer, QObject* parent)
    : QObject(parent), observer_(observer ? std::move(observer) : Observer(reportToLibrary)) {}

ScreenTracker::~ScreenTracker() = default;

void ScreenTracker::watch(QQuickWindow* window) {
    if (!window || shown_.contains(window)) return;
    shown_[window] = {};
    // afterAnimating is emitted on the GUI thread before every frame's synchronisation, whichever
    // render loop runs.
    connect(window, &QQuickWindow::afterAnimating, this, [this, window] { scheduleRefresh(window); });
    connect(window, &QWindow::visibleChanged, this, [this, window] { scheduleRefresh(window); });
    connect(window, &QObject::destroyed, this, [this, window] { forget(window); });
    scheduleRefresh(window);
}

void ScreenTracker::scheduleRefresh(QQuickWindow* window) {
    bool& pending = refreshPending_[window];
    if (pending) return;
    pending = true;
    QPointer<QQuickWindow> guarded(window);
    QMetaObject::invokeMethod(this, [this, guarded, window] {
        if (!guarded) {
            refreshPending_.erase(window);
            return;
        }
        refreshPending_[window] = false;
        refresh(guarded.data());
    }, Qt::QueuedConnection);
}

void ScreenTracker::refresh(QQuickWindow* window) {
    auto& before = shown_[window];
    const std::vector<ShownPage> now = shownPages(window);
    auto shownNow = [&now](const QPointer<QQuickItem>& page) {
        return page && std::any_of(now.begin(), now.end(), [&](const ShownPage& p) { return p.page == page.data(); });
    };

    std::vector<Shown> after;
    std::vector<std::pair<std::shared_ptr<PageController>, bool>> appeared;
    for (const ShownPage& page : now) {
        auto known = std::find_if(before.begin(), before.end(),
                                  [&](const Shown& s) { return s.page && s.page.data() == page.page; });
        if (known != before.end()) {
            after.push_back(*known);
        } else {
            after.push_back({page.page, std::make_shared<PageController>(page.page)});
            appeared.emplace_back(after.back().controller, page.animated);
        }
    }
    std::vector<Shown> gone;
    for (const Shown& s : before)
        if (!shownNow(s.page)) gone.push_back(s);
    const bool animated = std::any_of(now.begin(), now.end(), [](const ShownPage& p) { return p.animated; });
    before = std::move(after);

    // Observers may run the event loop or change the tree: they only hear about the state saved above.
    for (auto it = gone.rbegin(); it != gone.rend(); ++it) observer_(it->controller, false, animated);
    for (const auto& [controller, pageAnimated] : appeared) observer_(controller, true, pageAnimated);
}

void ScreenTracker::forget(const QQuickWindow* window) {
    auto found = shown_.find(window);
    if (found == shown_.end()) return;
    const std::vector<Shown> gone = std::move(found->second);
    shown_.erase(found);
    refreshPending_.erase(window);
    for (auto it = gone.rbegin(); it != gone.rend(); ++it) observer_(it->controller, false, false);
}

}  // namespace halvora::qt

