#pragma once
// A top-level window of the host application.

#include <memory>

#include "halvora/platform/rgba_frame.h"
#include "halvora/platform/view.h"

namespace halvora::platform {

class Window : public View {
public:
    // Draws the window's view hierarchy as it is now (without waiting for pending updates) into
    // `canvas`, scaled by `scale`, with the window's top-left corner at `at` (points, relative to
    // the canvas's origin; pixels are points x scale). Masks over sensitive views are part of the
    // hierarchy and are drawn; the library's overlay never is. Pixels outside the window are left
    // as they were. False when nothing could be drawn.
    virtual bool drawHierarchy(RgbaFrame& canvas, Point at, double scale) = 0;

    // A point of the screen (Screen::bounds' coordinates) in the window's own coordinates.
    virtual Point convertFromScreen(Point point) const {
        const Rect origin = frame();
        return {point.x - origin.x, point.y - origin.y};
    }
};

using WindowRef = std::shared_ptr<Window>;

}  // namespace halvora::platform
