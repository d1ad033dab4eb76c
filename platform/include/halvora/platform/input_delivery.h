#pragma once
// An optional capability of a toolkit: delivering the agent's pointer and keys as the toolkit's
// own input events, through a window's ordinary event delivery, so that the toolkit decides which
// view takes them exactly as it does for the user's mouse, touchscreen and keyboard. A toolkit
// that offers it answers Application::inputDelivery(); the library then uses it instead of acting
// on each kind of control itself.

#include <string>

#include "halvora/platform/window.h"

namespace halvora::platform {

struct KeyModifiers {
    bool control = false;
    bool shift = false;
    bool alt = false;
    bool meta = false;
};

enum class MouseButton { primary, secondary, middle };

// One press, move or release of one of the agent's pointers.
struct PointerInput {
    enum class Phase { press, move, release };
    Phase phase = Phase::press;
    // Small and stable from press to release; a finger's touch point id.
    int id = 0;
    // A finger on a touchscreen, or the mouse (one pointer only).
    bool isFinger = false;
    MouseButton button = MouseButton::primary;
    // On a press: its click count (2 for a double click's second press); 0 lets the toolkit count
    // as it does for its own mouse.
    int clicks = 0;
    // In the window's own coordinates. Moves and releases may lie outside the window, as a held
    // mouse's do.
    Point position;
    KeyModifiers modifiers;
};

// One key stroke (press and release) for the view with the keyboard focus in the key window.
struct KeyInput {
    // As a browser names them (W3C UI Events): "a", "Enter", "ArrowLeft"...; "KeyA", "Enter"...
    std::string key;
    std::string code;
    // What the stroke types (UTF-8; several UTF-16 units for an emoji); empty for a named key and
    // for a shortcut.
    std::string text;
    KeyModifiers modifiers;
    bool autoRepeat = false;
};

class InputDelivery {
public:
    virtual ~InputDelivery() = default;

    // False when the pointer is not delivered: its press came while the user's own pointer was
    // down (the user wins), or it was cancelled since. Nothing more of that pointer is delivered.
    virtual bool deliverPointer(const WindowRef& window, const PointerInput& input) = 0;
    // One turn of the mouse wheel over `position` (window coordinates), in notches, positive
    // towards the end of the content.
    virtual void deliverWheel(const WindowRef& window, Point position, Point notches, KeyModifiers modifiers) = 0;
    virtual void deliverKey(const KeyInput& input) = 0;
    // Every agent pointer that is down lets go without acting, as when the toolkit cancels a
    // touch: nothing is clicked, drags stop where they are.
    virtual void cancelPointers() = 0;
};

}  // namespace halvora::platform
