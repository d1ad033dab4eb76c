#pragma once
// Decides whether a captured frame differs from the last one handed on, so that a still screen
// costs one comparison and no encoding or traffic.

#include <cstddef>
#include <cstdint>
#include <vector>

#include "halvora/platform/rgba_frame.h"

namespace halvora {

class FrameChangeDetector {
public:
    // False when the frame has the same size and bytes as the last one; otherwise remembers it
    // (before it is sent, so a frame that cannot be delivered still counts as the last one) and
    // returns true. The remembered copy reuses its buffer.
    bool changed(const RgbaFrame& frame);

    // Forgets the last frame, so the next one counts as changed even when identical.
    void invalidate() { known_ = false; }

    bool hasLastFrame() const { return known_; }

private:
    bool known_ = false;
    int width_ = 0;
    int height_ = 0;
    std::size_t bytesPerRow_ = 0;
    std::vector<std::uint8_t> last_;
};

}  // namespace halvora
