#pragma once
// What each kind of view does with the agent's touches and keys: plain views offer the call to
// the extension registered for their class and pass it to their superview; controls, scroll
// views, cells, navigation bars and text inputs act as they would under a finger.

#include "halvora/platform/controls.h"
#include "halvora/responder.h"

namespace halvora::control {

// Whether a view of `role` counts as `kind`: every kind of control is a control, table and
// collection views are scroll views.
bool isKindOf(platform::ViewRole role, platform::ViewRole kind);

// `touches` is never empty; its first member is the touch being delivered.
void touchesBegan(const platform::ViewRef& view, const HLVTouches& touches, const HLVTouchEvent& event);
void touchesMoved(const platform::ViewRef& view, const HLVTouches& touches, const HLVTouchEvent& event);
void touchesEnded(const platform::ViewRef& view, const HLVTouches& touches, const HLVTouchEvent& event);
// A touch the agent will never finish (its session ended): cells lose their highlight and a
// dragged scroll view settles within its limits, from the target up. Nothing is activated.
void touchesCancelled(const platform::ViewRef& view, const HLVTouch& touch);

void keyDown(const platform::ViewRef& view, const HLVKeyPress& keyPress);
// Moves the caret to the selection's start plus `offset`; nothing when that is outside the text.
void moveCaretBy(platform::TextInput& input, long offset);

}  // namespace halvora::control
