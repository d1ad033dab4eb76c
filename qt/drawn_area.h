#pragma once
// Where a sensitive item can show in the next frame: what frames blank for it.

#include <QQuickItem>

#include "halvora/platform/view.h"

namespace halvora::qt {

// The item and its visible descendants (a Text's overflowing glyphs included), mapped through
// every transform and cut to the clip rectangles of the item, its descendants and its ancestors,
// on the screen. Exact while the GUI thread knows the geometry the renderer draws.
//
// Where it does not, the answer is the region the item could be in, `within`:
// - a page of a StackView in a transition may be displaced by up to the view's width sideways or
//   its height up and down (the styles' transitions move pages by Animators, which on a threaded
//   render loop run ahead of the items' properties): the item's rectangle swept that far across
//   and along, then cut to the clips above the view;
// - an item moved by a running X or Y Animator is swept between the animation's ends, one turned
//   or scaled by a Rotation or Scale Animator is bounded by the circle its corners can reach.
// Another kind of Animator moving the item leaves its place `unknown`.
platform::DrawnArea drawnAreaOf(const QQuickItem* item);

}  // namespace halvora::qt
