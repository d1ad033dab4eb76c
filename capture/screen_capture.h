#pragma once
// Draws the application's windows into one small picture, the way the agent sees the screen.

#include <functional>

#include "halvora/platform/application.h"
#include "halvora/platform/rgba_frame.h"
#include "halvora/platform/screen.h"

namespace halvora {

// The longer side of a frame, in pixels, at most.
inline constexpr float kMaxFrameSide = 500.0f;

// The smaller of 1 and 500 / the longer side of the screen in points, in single precision, so a
// frame's longer side never exceeds 500 pixels.
float captureScale(platform::Rect screenBounds);

// Sizes `canvas` to the key window at `scale` (reusing its buffer), clears it to transparent, and
// draws each window `accept` admits into its own frame, back to front. False, with the canvas
// emptied, when there is no key window or the picture would be empty.
// The window choice: the key window always, the overlay never, others as `others` answers (yes
// when empty).
bool isCapturedWindow(const platform::Window& window, const platform::WindowRef& keyWindow,
                      const std::function<bool(const platform::Window&)>& others);

bool captureWindows(platform::Application& application, float scale,
                    const std::function<bool(const platform::Window&)>& accept, RgbaFrame& canvas);

}  // namespace halvora
