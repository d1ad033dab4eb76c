#include "capture/frame_change_detector.h"

#include <algorithm>
#include <cstring>

namespace halvora {

void joinRegions(std::vector<PixelRect>& regions, std::size_t most) {
    auto joined = [](const PixelRect& a, const PixelRect& b) {
        const int left = std::min(a.x, b.x), top = std::min(a.y, b.y);
        const int right = std::max(a.x + a.width, b.x + b.width), bottom = std::max(a.y + a.height, b.y + b.height);
        return PixelRect{left, top, right - left, bottom - top};
    };
    while (regions.size() > std::max<std::size_t>(most, 1)) {
        std::size_t first = 0, second = 1;
        long long leastWaste = -1;
        for (std::size_t i = 0; i < regions.size(); ++i)
            for (std::size_t j = i + 1; j < regions.size(); ++j) {
                const long long waste = joined(regions[i], regions[j]).area() - regions[i].area() - regions[j].area();
                if (leastWaste < 0 || waste < leastWaste) {
                    leastWaste = waste;
                    first = i;
                    second = j;
                }
            }
        regions[first] = joined(regions[first], regions[second]);
        regions.erase(regions.begin() + static_cast<std::ptrdiff_t>(second));
    }
}

FrameChanges FrameChangeDetector::remember(const RgbaFrame& frame) {
    // assign() reuses the existing capacity, so stable sizes copy without allocating.
    last_.assign(frame.pixels.begin(), frame.pixels.begin() + static_cast<std::ptrdiff_t>(frame.bytesPerRow * frame.height));
    width_ = frame.width;
    height_ = frame.height;
    bytesPerRow_ = frame.bytesPerRow;
    known_ = true;
    return {.whole = true, .regions = {}};
}

FrameChanges FrameChangeDetector::compare(const RgbaFrame& frame) {
    // The geometry is part of the picture: the same bytes at another width are another image.
    if (!frame.consistent()) {
        // Nothing can be read from it safely: the next frame is new as a whole.
        known_ = false;
        return {.whole = true, .regions = {}};
    }
    if (!known_ || frame.width != width_ || frame.height != height_ || frame.bytesPerRow != bytesPerRow_) {
        return remember(frame);
    }
    FrameChanges changes;
    const int columns = (width_ + tile_ - 1) / tile_;
    const std::size_t rowBytes = static_cast<std::size_t>(width_) * RgbaFrame::kBytesPerPixel;
    const std::size_t tileBytes = static_cast<std::size_t>(tile_) * RgbaFrame::kBytesPerPixel;
    // Rectangles of the band above still open for extending downwards, as indexes into regions.
    std::vector<std::size_t> open;
    std::vector<std::size_t> stillOpen;
    for (int top = 0; top < height_; top += tile_) {
        const int bottom = std::min(top + tile_, height_);
        bandTiles_.assign(static_cast<std::size_t>(columns), 0);
        int changedTiles = 0;
        for (int y = top; y < bottom; ++y) {
            const std::uint8_t* now = frame.row(y);
            std::uint8_t* before = last_.data() + bytesPerRow_ * static_cast<std::size_t>(y);
            if (std::memcmp(now, before, rowBytes) == 0) continue;
            // Only the tiles not yet known to have changed in this band are compared again.
            if (changedTiles < columns) {
                for (int column = 0; column < columns; ++column) {
                    if (bandTiles_[static_cast<std::size_t>(column)]) continue;
                    const std::size_t offset = static_cast<std::size_t>(column) * tileBytes;
                    const std::size_t length = std::min(tileBytes, rowBytes - offset);
                    if (std::memcmp(now + offset, before + offset, length) != 0) {
                        bandTiles_[static_cast<std::size_t>(column)] = 1;
                        ++changedTiles;
                    }
                }
            }
            std::memcpy(before, now, rowBytes);
        }
        stillOpen.clear();
        for (int column = 0; column < columns;) {
            if (!bandTiles_[static_cast<std::size_t>(column)]) {
                ++column;
                continue;
            }
            int end = column;
            while (end < columns && bandTiles_[static_cast<std::size_t>(end)]) ++end;
            const PixelRect run{column * tile_, top, std::min(end * tile_, width_) - column * tile_, bottom - top};
            // The same columns changed in the band above: that rectangle grows down instead.
            auto above = std::find_if(open.begin(), open.end(), [&](std::size_t index) {
                const PixelRect& r = changes.regions[index];
                return r.x == run.x && r.width == run.width && r.y + r.height == top;
            });
            if (above != open.end()) {
                changes.regions[*above].height += run.height;
                stillOpen.push_back(*above);
            } else {
                stillOpen.push_back(changes.regions.size());
                changes.regions.push_back(run);
            }
            column = end;
        }
        std::swap(open, stillOpen);
    }
    return changes;
}

}  // namespace halvora
