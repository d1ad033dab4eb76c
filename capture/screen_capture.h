#pragma once
// Draws the application's windows into one picture, the way the agent sees the screen.

#include <cstdint>
#include <functional>
#include <vector>

#include "halvora/platform/application.h"
#include "halvora/platform/rgba_frame.h"
#include "halvora/platform/screen.h"

namespace halvora {

// The longer side of a frame, in pixels, at most, unless the application chose another: a
// desktop window up to full HD is seen one pixel per point, as its user sees it.
inline constexpr int kDefaultMaxFrameSide = 1920;

// The smaller of 1 and `maxSide` / the longer side of `area` (the key window) in points, in single
// precision, so a frame's longer side never exceeds `maxSide` pixels. High-DPI windows are drawn
// at one pixel per point too.
float captureScale(platform::Rect area, int maxSide = kDefaultMaxFrameSide);

// What frames show where a sensitive view draws: the masks' dark grey, opaque.
inline constexpr std::uint8_t kRedactedFill[4] = {0x26, 0x26, 0x28, 0xff};
// Around a sensitive view's drawn area, in points, for glyphs overhanging their text box.
inline constexpr double kRedactionMarginPoints = 2.0;

// The window choice: the key window always, the overlay never, others as `others` answers (yes
// when empty).
bool isCapturedWindow(const platform::Window& window, const platform::WindowRef& keyWindow,
                      const std::function<bool(const platform::Window&)>& others);

// Sizes `canvas` to the key window at `scale` (reusing its buffer), clears it to transparent,
// draws each window `accept` admits into its own frame, back to front, and then blanks where each
// of `sensitive` draws. False, with the canvas emptied, when there is no key window, the picture
// would be empty, or a sensitive view's place is unknown: no frame rather than a readable one.
bool captureWindows(platform::Application& application, float scale,
                    const std::function<bool(const platform::Window&)>& accept,
                    const std::vector<platform::ViewRef>& sensitive, RgbaFrame& canvas);

// Fills with kRedactedFill each rectangle of each sensitive view's drawn area, exact or bounding
// (plus the margin, rounded outwards to whole pixels), placed relative to `origin` (the key
// window's top-left corner on the screen). False, leaving the canvas as it was, when any area is
// unknown or not made of finite rectangles.
bool blankSensitiveAreas(const std::vector<platform::ViewRef>& sensitive, platform::Point origin, float scale,
                         RgbaFrame& canvas);

}  // namespace halvora
