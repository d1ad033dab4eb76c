#pragma once
// Where the sharing indicator goes on a desktop window. There is no status bar to cover, and a
// strip across the window's top would hide and block the application's own header, so the
// indicator is a red frame around the window, which takes no input, and a small badge with the
// text, which takes the tap: placed along the window's edges where it covers no control.

#include <QRectF>
#include <QSizeF>

class QQuickWindow;

namespace halvora::qt {

// The frame's width in points, drawn inside the window's edges.
inline constexpr double kSharingFrameWidth = 3;

// The badge's size for the banner's text in the banner's font.
QSizeF sharingBadgeSize();

// The place for a badge of `size` in `window`: of top centre, bottom centre, the four corners and
// the middle of the sides, the one covering the least area of visible controls (items that take
// the pointer, the keyboard focus or text input; containers such as panes and pages do not
// count, nor does the library's overlay), then the fewest texts, then `current` (so the badge
// does not jump about), then the first in that order.
QRectF sharingBadgePlace(QQuickWindow* window, QSizeF size, QRectF current = {});

}  // namespace halvora::qt
