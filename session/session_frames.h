#pragma once
// The frame-streaming state a session keeps while it is active.

#include <atomic>
#include <cstdint>
#include <memory>

#include "capture/frame_change_detector.h"
#include "capture/jpeg_encoder.h"
#include "halvora/platform/rgba_frame.h"
#include "halvora/session.h"

namespace halvora {

struct SessionFrames {
    // Shared with the sending queue, which is the only writer.
    std::shared_ptr<std::atomic<std::uint64_t>> counter = std::make_shared<std::atomic<std::uint64_t>>(0);
    FrameChangeDetector changeDetector;
    JpegEncoder encoder;
    RgbaFrame capture;
    HLVSession::WindowFilter windowFilter;
    bool loopRunning = false;
};

}  // namespace halvora
