#pragma once
// Decides what changed in a captured frame since the last one handed on: nothing (a still screen
// costs one comparison and no encoding or traffic), the whole picture, or a few rectangles.

#include <cstddef>
#include <cstdint>
#include <vector>

#include "capture/pixel_rect.h"
#include "halvora/platform/rgba_frame.h"

namespace halvora {

struct FrameChanges {
    // The frame is new as a whole: the first, another size, or after invalidate().
    bool whole = false;
    // Otherwise the changed tiles, joined into rectangles: side by side in a band of tiles, and
    // then down while the next band changed over the same columns. Within the frame, top to bottom.
    std::vector<PixelRect> regions;

    bool none() const { return !whole && regions.empty(); }
};

// Joins rectangles until at most `most` are left, each time the two whose bounding rectangle
// covers the least area they did not: a message carries only so many pictures.
void joinRegions(std::vector<PixelRect>& regions, std::size_t most);

class FrameChangeDetector {
public:
    // Tiles of 32x32 pixels: four 8x8 JPEG blocks a side, small enough that a caret or a typed
    // letter changes one or two, large enough that a region's JPEG headers stay a small part of it.
    static constexpr int kDefaultTileSide = 32;

    explicit FrameChangeDetector(int tileSide = kDefaultTileSide) : tile_(tileSide > 0 ? tileSide : kDefaultTileSide) {}

    // What differs from the last frame, which `frame` then replaces (remembered before it is
    // sent, so a frame that cannot be delivered still counts as the last one). Rows that did not
    // change are neither compared twice nor copied; the remembered copy reuses its buffer.
    FrameChanges compare(const RgbaFrame& frame);

    // Whether anything changed (compare() without the rectangles' use).
    bool changed(const RgbaFrame& frame) { return !compare(frame).none(); }

    // Forgets the last frame, so the next one is new as a whole even when identical.
    void invalidate() { known_ = false; }

private:
    FrameChanges remember(const RgbaFrame& frame);

    int tile_;
    bool known_ = false;
    int width_ = 0;
    int height_ = 0;
    std::size_t bytesPerRow_ = 0;
    std::vector<std::uint8_t> last_;
    std::vector<std::uint8_t> bandTiles_;  // per tile column of the band being compared: changed
};

}  // namespace halvora
