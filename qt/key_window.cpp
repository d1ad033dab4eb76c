#include "qt/key_window.h"

#include <QGuiApplication>
#include <QQuickWindow>

#include <algorithm>

namespace halvora::qt {
namespace {

QQuickWindow* focusQuickWindow() {
    auto* focus = qobject_cast<QQuickWindow*>(QGuiApplication::focusWindow());
    return focus && focus->isVisible() ? focus : nullptr;
}

std::vector<QQuickWindow*> visibleInCreationOrder() {
    std::vector<QQuickWindow*> windows;
    for (QWindow* window : QGuiApplication::topLevelWindows())
        if (auto* quick = qobject_cast<QQuickWindow*>(window); quick && quick->isVisible()) windows.push_back(quick);
    return windows;
}

}  // namespace

std::vector<QQuickWindow*> visibleQuickWindows() {
    std::vector<QQuickWindow*> windows = visibleInCreationOrder();
    if (QQuickWindow* focus = focusQuickWindow()) {
        std::erase(windows, focus);
        windows.push_back(focus);
    }
    return windows;
}

QQuickWindow* keyQuickWindow() {
    if (QQuickWindow* focus = focusQuickWindow()) return focus;
    const std::vector<QQuickWindow*> windows = visibleInCreationOrder();
    return windows.empty() ? nullptr : windows.back();
}

}  // namespace halvora::qt
