#include "qt/quick_application.h"

#include <QGuiApplication>
#include <QQuickWindow>

#include "qt/halvora_attached.h"
#include "qt/key_window.h"
#include "qt/page_controller.h"
#include "qt/quick_view.h"
#include "qt/quick_window.h"
#include "qt/redaction_mask_item.h"
#include "qt/shown_pages.h"

namespace halvora::qt {

QuickApplication::QuickApplication() : maskOwner_(new QObject(QCoreApplication::instance())) {}

QuickApplication::~QuickApplication() = default;

platform::ApplicationState QuickApplication::state() const {
    switch (QGuiApplication::applicationState()) {
    case Qt::ApplicationActive: return platform::ApplicationState::active;
    case Qt::ApplicationInactive: return platform::ApplicationState::inactive;
    case Qt::ApplicationHidden:
    case Qt::ApplicationSuspended: return platform::ApplicationState::background;
    }
    return platform::ApplicationState::inactive;
}

std::vector<platform::WindowRef> QuickApplication::windows() const {
    std::vector<platform::WindowRef> windows;
    for (QQuickWindow* window : visibleQuickWindows()) windows.push_back(windowFor(window));
    return windows;
}

platform::WindowRef QuickApplication::keyWindow() const { return windowFor(keyQuickWindow()); }

platform::ViewControllerRef QuickApplication::topViewController() const {
    const std::vector<ShownPage> pages = shownPages(keyQuickWindow());
    if (pages.empty()) return nullptr;
    return std::make_shared<PageController>(pages.back().page);
}

platform::ViewRef QuickApplication::firstResponder() const {
    QQuickWindow* window = keyQuickWindow();
    return window ? viewFor(window->activeFocusItem()) : nullptr;
}

std::vector<platform::ViewRef> QuickApplication::sensitiveViews() const {
    std::vector<platform::ViewRef> views;
    for (QQuickItem* item : HalvoraAttached::allRedactedItems()) views.push_back(viewFor(item));
    return views;
}

platform::ViewRef QuickApplication::makeRedactionMask(platform::Rect frame) {
    auto* mask = new RedactionMaskItem(QRectF(frame.x, frame.y, frame.width, frame.height), maskOwner_.data());
    return viewFor(mask);
}

}  // namespace halvora::qt
