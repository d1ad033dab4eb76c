#pragma once
// One captured picture: RGBA8888 with premultiplied alpha, rows top to bottom. The buffer is kept
// between captures so that a steady screen size costs no allocation.

#include <cstddef>
#include <cstdint>
#include <limits>
#include <vector>

namespace halvora::platform {

struct RgbaFrame {
    static constexpr int kBytesPerPixel = 4;

    int width = 0;
    int height = 0;
    std::size_t bytesPerRow = 0;
    std::vector<std::uint8_t> pixels;

    // Sets the size with tightly packed rows. Shrinking keeps the vector's capacity, so a later
    // frame of the old size does not allocate either. Refuses (and leaves the frame empty) when a
    // side is negative or the buffer would not be addressable.
    bool resize(int newWidth, int newHeight) {
        if (newWidth < 0 || newHeight < 0 ||
            static_cast<std::size_t>(newWidth) >
                std::numeric_limits<std::size_t>::max() / kBytesPerPixel / (newHeight ? newHeight : 1)) {
            clear();
            return false;
        }
        width = newWidth;
        height = newHeight;
        bytesPerRow = static_cast<std::size_t>(newWidth) * kBytesPerPixel;
        pixels.resize(bytesPerRow * static_cast<std::size_t>(newHeight));
        return true;
    }

    void clear() {
        width = height = 0;
        bytesPerRow = 0;
        pixels.clear();
    }

    bool empty() const { return width <= 0 || height <= 0; }

    // A frame whose fields agree with its buffer: what readers may rely on before touching pixels.
    bool consistent() const {
        if (width < 0 || height < 0) return false;
        if (bytesPerRow < static_cast<std::size_t>(width) * kBytesPerPixel) return false;
        if (height > 0 && bytesPerRow > std::numeric_limits<std::size_t>::max() / static_cast<std::size_t>(height))
            return false;
        return pixels.size() >= bytesPerRow * static_cast<std::size_t>(height);
    }

    std::uint8_t* row(int y) { return pixels.data() + bytesPerRow * static_cast<std::size_t>(y); }
    const std::uint8_t* row(int y) const { return pixels.data() + bytesPerRow * static_cast<std::size_t>(y); }
};

}  // namespace halvora::platform

namespace halvora {
using platform::RgbaFrame;
}  // namespace halvora
