// The library's own screens' buttons as controls: what screens/ wires its actions to.
#include <QMetaObject>

#include "qt/quick_view.h"
#include "qt/view_roles.h"

namespace halvora::qt {

platform::Control* QuickView::asControl() {
    const platform::ViewRole role = roleOf(item_.data());
    const bool control = role == platform::ViewRole::control || role == platform::ViewRole::toggle ||
                         role == platform::ViewRole::stepper || role == platform::ViewRole::segmentedControl ||
                         role == platform::ViewRole::slider;
    return control ? this : nullptr;
}

// A tap released inside a button is its `clicked` signal, which is what addTarget() listens to.
void QuickView::sendActions(platform::ControlEvent event) {
    if (item_ && event == platform::ControlEvent::touchUpInside && item_->inherits("QQuickAbstractButton")) {
        QMetaObject::invokeMethod(item_.data(), "clicked");
    }
}

}  // namespace halvora::qt
