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
    std::pair{"QQuickSpinBox", ViewRole::stepper},
    std::pair{"QQuickTabBar", ViewRole::segmentedControl},
    std::pair{"QQuickSlider", ViewRole::slider},
    std::pair{"QQuickRangeSlider", ViewRole::slider},
    std::pair{"QQuickTumbler", ViewRole::picker},
    std::pair{"QQuickToolBar", ViewRole::navigationBar},
    std::pair{"QQuickAbstractButton", ViewRole::control},
    std::pair{"QQuickGridView", ViewRole::collectionView},
    std::pair{"QQuickItemView", ViewRole::tableView},  // ListView
    std::pair{"QQuickFlickable", ViewRole::scrollView},
    std::pair{"QQuickMouseArea", ViewRole::tapRecognizer},
};

bool isContentItemOf(const QQuickItem* item, const QQuickItem* owner) {
    return owner && owner->property("contentItem").value<QQuickItem*>() == item;
}

// The ListView or GridView whose delegate instance this is (a child of the view's content item);
// none otherwise. Controls that lay their children out with a ListView of their own (TabBar,
// SwipeView) do not make cells.
const QQuickItem* itemViewOfDelegate(const QQuickItem* item) {
    const QQuickItem* content = item->parentItem();
    const QQuickItem* view = content ? content->parentItem() : nullptr;
    if (!view || !view->inherits("QQuickItemView") || !isContentItemOf(content, view)) return nullptr;
    const QQuickItem* container = view->parentItem();
    if (container && container->inherits("QQuickContainer") && isContentItemOf(view, container)) return nullptr;
    return view;
}

bool isTextInput(const QQuickItem* item) {
    return item->inherits("QQuickTextInput") || item->inherits("QQuickTextEdit");
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
    // SwipeView pages are delegates of its ListView, yet screens first; a switch toggles wherever it is.
    if (isPage(item)) return ViewRole::viewController;
    if (item->inherits("QQuickSwitch") || item->inherits("QQuickSwitchDelegate")) return ViewRole::toggle;
    if (const QQuickItem* view = itemViewOfDelegate(item)) {
        return view->inherits("QQuickGridView") ? ViewRole::collectionCell : ViewRole::tableCell;
    }
    // Read-only text (a SpinBox's number, a label-like TextEdit) takes no typing; a tap on it is the
    // enclosing control's.
    if (isTextInput(item)) return item->property("readOnly").toBool() ? ViewRole::plain : ViewRole::textInput;
    // A wrapping Tumbler spins a PathView, which is no Flickable: the Tumbler scrolls itself.
    if (item->inherits("QQuickTumbler") && item->property("wrap").toBool()) return ViewRole::scrollView;
    for (const auto& [className, role] : kRolesByClass)
        if (item->inherits(className)) return role;
    return ViewRole::plain;
}

}  // namespace halvora::qt
