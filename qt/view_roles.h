#pragma once
// The library's role for a Qt Quick item, by type. Qt Quick Controls types are recognised by their
// C++ class names (QObject::inherits), so no private Qt header is needed.

#include "halvora/platform/view.h"

class QQuickItem;

namespace halvora::qt {

platform::ViewRole roleOf(const QQuickItem* item);

// A Page (QtQuick.Controls), the item that makes a screen.
bool isPage(const QQuickItem* item);

}  // namespace halvora::qt
