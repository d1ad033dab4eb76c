#include "capture/screen_capture.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace halvora {

float captureScale(platform::Rect screenBounds) {
    const float longer = static_cast<float>(std::max(screenBounds.width, screenBounds.height));
    if (!(longer > kMaxFrameSide)) return 1.0f;  // also a degenerate (zero or NaN) screen
    return kMaxFrameSide / longer;
}

bool isCapturedWindow(const platform::Window& window, const platform::WindowRef& keyWindow,
                      const std::function<bool(const platform::Window&)>& others) {
    if (keyWindow && keyWindow->isSameView(window)) return true;
    if (window.role() == platform::ViewRole::overlay) return false;
    return !others || others(window);
}

bool captureWindows(platform::Application& application, float scale,
                    const std::function<bool(const platform::Window&)>& accept, RgbaFrame& canvas) {
    const auto key = application.keyWindow();
    if (!key || !key->isAlive()) {
        canvas.clear();
        return false;
    }
    const platform::Rect keyFrame = key->frame();
    const platform::Rect size = key->bounds();
    // Rounded rather than ceiled: 844 points x (500 / 844) must stay 500 pixels despite float error.
    const long width = std::lround(size.width * scale);
    const long height = std::lround(size.height * scale);
    if (width <= 0 || height <= 0 || !canvas.resize(static_cast<int>(width), static_cast<int>(height))) {
        canvas.clear();
        return false;
    }
    std::memset(canvas.pixels.data(), 0, canvas.pixels.size());  // not opaque: uncovered stays clear

    for (const auto& window : application.windows()) {
        if (!window || !window->isAlive() || !accept(*window)) continue;
        // Windows are placed by their frames on the screen, relative to the key window's.
        const platform::Rect frame = window->frame();
        window->drawHierarchy(canvas, {frame.x - keyFrame.x, frame.y - keyFrame.y}, scale);
    }
    return true;
}

}  // namespace halvora
