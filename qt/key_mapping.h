#pragma once
// Keys as a browser names them (W3C UI Events "key" and "code" values) in Qt's terms.

#include <Qt>
#include <QString>

#include <string>

#include "halvora/platform/input_delivery.h"

namespace halvora::qt {

struct QtKey {
    int key = 0;  // a Qt::Key; 0 when the stroke names no key Qt knows and types nothing
    Qt::KeyboardModifiers modifiers;
    QString text;
};

Qt::KeyboardModifiers qtModifiers(platform::KeyModifiers modifiers);

// The Qt key a stroke is: a named key ("Enter", "ArrowLeft", "F5"), else the physical key when a
// shortcut modifier is held (Ctrl+A is Key_A on any layout), else the character typed. Shift+Tab
// is Key_Backtab, as the window system reports it; keypad keys carry the keypad modifier.
QtKey qtKeyOf(const platform::KeyInput& input);

}  // namespace halvora::qt
