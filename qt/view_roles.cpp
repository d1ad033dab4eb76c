#include "qt/view_roles.h"

#include <QQuickItem>

#include <array>
#include <utility>

#include "qt/overlay_item.h"
#include "qt/redaction_mask_item.h"

namespace halvora::qt {
namespace {

using platform::ViewRole;

// Most specific classes first: a Switch is an AbstractButton, a TextField a TextInput, a ListView
// a Flickable.
constexpr std::array kRolesByClass{
    std::pair{"QQuickPage", ViewRole::viewController},
    std::pair{"QQuickSwitch", ViewRole::toggle},
    std::pair{"QQuickSpinBox", ViewRole::stepper},
    std::pair{"QQuickTabBar", ViewRole::segmentedControl},
    std::pair{"QQuickSlider", ViewRole::slider},
    std::pair{"QQuickTumbler", ViewRole::picker},
    std::pair{"QQuickToolBar", ViewRole::navigationBar},
    std::pair{"QQuickAbstractButton", ViewRole::control},
    std::pair{"QQuickTextInput", ViewRole::textInput},
    std::pair{"QQuickTextEdit", ViewRole::textInput},
    std::pair{"QQuickItemView", ViewRole::tableView},  // ListView, GridView
    std::pair{"QQuickFlickable", ViewRole::scrollView},
    std::pair{"QQuickMouseArea", ViewRole::tapRecognizer},
};

bool isContentItemOf(const QQuickItem* item, const QQuickItem* owner) {
    return owner && owner->property("contentItem").value<QQuickItem*>() == item;
}

// A delegate instance of a ListView or GridView: a child of the view's content item. Controls that
// lay their children out with a ListView of their own (TabBar, SwipeView) do not make cells.
bool isItemViewDelegate(const QQuickItem* item) {
    const QQuickItem* content = item->parentItem();
    const QQuickItem* view = content ? content->parentItem() : nullptr;
    if (!view || !view->inherits("QQuickItemView") || !isContentItemOf(content, view)) return false;
    const QQuickItem* container = view->parentItem();
    return !(container && container->inherits("QQuickContainer") && isContentItemOf(view, container));
}

}  // namespace

// A Popup's own item is a Page underneath; popups, menus and tool tips are not screens.
bool isPage(const QQuickItem* item) {
    return item && item->inherits("QQuickPage") && !item->inherits("QQuickPopupItem");
}

platform::ViewRole roleOf(const QQuickItem* item) {
    if (!item) return ViewRole::plain;
    if (qobject_cast<const RedactionMaskItem*>(item)) return ViewRole::redactionMask;
    if (qobject_cast<const OverlayItem*>(item)) return ViewRole::overlay;
    // SwipeView pages are delegates of its ListView, yet screens first.
    if (isPage(item)) return ViewRole::viewController;
    if (isItemViewDelegate(item)) return ViewRole::tableCell;
    for (const auto& [className, role] : kRolesByClass)
        if (item->inherits(className)) return role;
    return ViewRole::plain;
}

}  // namespace halvora::qt
