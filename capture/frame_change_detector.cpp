#include "capture/frame_change_detector.h"

#include <algorithm>
#include <cstring>

namespace halvora {

bool FrameChangeDetector::changed(const RgbaFrame& frame) {
    // The geometry is part of the picture: the same bytes at another width are another image.
    if (known_ && frame.width == width_ && frame.height == height_ && frame.bytesPerRow == bytesPerRow_ &&
        frame.pixels.size() == last_.size() &&
        (last_.empty() || std::memcmp(frame.pixels.data(), last_.data(), last_.size()) == 0)) {
        return false;
    }
    // assign() reuses the existing capacity, so stable sizes copy without allocating.
    last_.assign(frame.pixels.begin(), frame.pixels.end());
    width_ = frame.width;
    height_ = frame.height;
    bytesPerRow_ = frame.bytesPerRow;
    known_ = true;
    return true;
}

}  // namespace halvora
