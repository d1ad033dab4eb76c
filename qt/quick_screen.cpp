#include "qt/quick_screen.h"

#include <QGuiApplication>
#include <QQuickWindow>
#include <QScreen>

#include <algorithm>

#include "qt/key_window.h"
#include "qt/sharing_badge.h"

namespace halvora::qt {

platform::Rect QuickScreen::bounds() const {
    if (QQuickWindow* key = keyQuickWindow()) return {0, 0, static_cast<double>(key->width()), static_cast<double>(key->height())};
    if (QScreen* primary = QGuiApplication::primaryScreen())
        return {0, 0, static_cast<double>(primary->size().width()), static_cast<double>(primary->size().height())};
    return {};
}

platform::Rect QuickScreen::statusBarFrame() const {
    lastBadge_ = sharingBadgePlace(keyQuickWindow(), sharingBadgeSize(), lastBadge_);
    return {lastBadge_.x(), lastBadge_.y(), lastBadge_.width(), lastBadge_.height()};
}

}  // namespace halvora::qt
