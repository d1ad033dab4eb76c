#include "qt/shown_pages.h"

#include <QQuickItem>
#include <QQuickWindow>

#include "qt/overlay_item.h"
#include "qt/quick_view.h"
#include "qt/redaction_mask_item.h"
#include "qt/view_roles.h"

namespace halvora::qt {
namespace {

bool showsOnlyCurrentItem(const QQuickItem* item) {
    return item->inherits("QQuickStackView") || item->inherits("QQuickSwipeView");
}

void collect(QQuickItem* item, bool animated, std::vector<ShownPage>& pages) {
    if (!item->isVisible() || qobject_cast<OverlayItem*>(item) || qobject_cast<RedactionMaskItem*>(item)) return;
    if (isPage(item)) pages.push_back({item, animated});
    if (showsOnlyCurrentItem(item)) {
        // A SwipeView has no "busy"; its pages count as shown without animation.
        const bool busy = item->property("busy").toBool();
        if (auto* current = item->property("currentItem").value<QQuickItem*>()) collect(current, animated || busy, pages);
        return;
    }
    for (QQuickItem* child : childItemsInPaintOrder(item)) collect(child, animated, pages);
}

}  // namespace

std::vector<ShownPage> shownPages(QQuickWindow* window) {
    std::vector<ShownPage> pages;
    if (window && window->isVisible()) collect(window->contentItem(), false, pages);
    return pages;
}

}  // namespace halvora::qt
