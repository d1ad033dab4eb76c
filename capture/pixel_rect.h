#pragma once
// A rectangle of a captured frame, in whole pixels.

namespace halvora {

struct PixelRect {
    int x = 0;
    int y = 0;
    int width = 0;
    int height = 0;
    bool operator==(const PixelRect&) const = default;
    long long area() const { return static_cast<long long>(width) * height; }
};

}  // namespace halvora
