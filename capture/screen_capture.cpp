#include "capture/screen_capture.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace halvora {

float captureScale(platform::Rect area, int maxSide) {
    const float longer = static_cast<float>(std::max(area.width, area.height));
    const float cap = static_cast<float>(std::max(maxSide, 1));
    if (!(longer > cap)) return 1.0f;  // also a degenerate (zero or NaN) area
    return cap / longer;
}

bool isCapturedWindow(const platform::Window& window, const platform::WindowRef& keyWindow,
                      const std::function<bool(const platform::Window&)>& others) {
    if (keyWindow && keyWindow->isSameView(window)) return true;
    if (window.role() == platform::ViewRole::overlay) return false;
    return !others || others(window);
}

namespace {

bool isFiniteRect(const platform::Rect& r) {
    return std::isfinite(r.x) && std::isfinite(r.y) && std::isfinite(r.width) && std::isfinite(r.height) &&
           r.width >= 0 && r.height >= 0;
}

void fill(const platform::Rect& r, platform::Point origin, float scale, RgbaFrame& canvas) {
    // Outwards to whole pixels, one more for the smoothing of scaled drawing.
    const double left = std::floor((r.x - kRedactionMarginPoints - origin.x) * scale) - 1;
    const double top = std::floor((r.y - kRedactionMarginPoints - origin.y) * scale) - 1;
    const double right = std::ceil((r.x + r.width + kRedactionMarginPoints - origin.x) * scale) + 1;
    const double bottom = std::ceil((r.y + r.height + kRedactionMarginPoints - origin.y) * scale) + 1;
    const int x0 = static_cast<int>(std::clamp(left, 0.0, static_cast<double>(canvas.width)));
    const int x1 = static_cast<int>(std::clamp(right, 0.0, static_cast<double>(canvas.width)));
    const int y0 = static_cast<int>(std::clamp(top, 0.0, static_cast<double>(canvas.height)));
    const int y1 = static_cast<int>(std::clamp(bottom, 0.0, static_cast<double>(canvas.height)));
    if (x0 >= x1) return;
    for (int y = y0; y < y1; ++y) {
        std::uint8_t* pixel = canvas.row(y) + static_cast<std::size_t>(x0) * RgbaFrame::kBytesPerPixel;
        for (int x = x0; x < x1; ++x, pixel += RgbaFrame::kBytesPerPixel) {
            std::memcpy(pixel, kRedactedFill, RgbaFrame::kBytesPerPixel);
        }
    }
}

}  // namespace

bool blankSensitiveAreas(const std::vector<platform::ViewRef>& sensitive, platform::Point origin, float scale,
                         RgbaFrame& canvas) {
    // Every place is read before any pixel changes, so a refusal leaves nothing half done.
    std::vector<platform::Rect> areas;
    for (const auto& view : sensitive) {
        if (!view || !view->isAlive()) continue;
        const platform::DrawnArea drawn = view->drawnArea();
        using Kind = platform::DrawnArea::Kind;
        if (drawn.kind == Kind::notDrawn) continue;
        if (drawn.kind != Kind::known && drawn.kind != Kind::within) return false;
        for (const platform::Rect& r : drawn.rects) {
            if (!isFiniteRect(r)) return false;
            areas.push_back(r);
        }
    }
    for (const platform::Rect& r : areas) fill(r, origin, scale, canvas);
    return true;
}

bool captureWindows(platform::Application& application, float scale,
                    const std::function<bool(const platform::Window&)>& accept,
                    const std::vector<platform::ViewRef>& sensitive, RgbaFrame& canvas) {
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
    // After drawing: the places are read as the toolkit laid the scene out for this very picture.
    if (!blankSensitiveAreas(sensitive, {keyFrame.x, keyFrame.y}, scale, canvas)) {
        canvas.clear();
        return false;
    }
    return true;
}

}  // namespace halvora
