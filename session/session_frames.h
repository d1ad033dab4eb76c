#pragma once
// The frame-streaming state a session keeps while it is active.

#include <atomic>
#include <cstdint>
#include <memory>

#include "capture/frame_change_detector.h"
#include "capture/jpeg_encoder.h"
#include "capture/screen_capture.h"
#include "halvora/platform/main_queue.h"
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
    int maxFrameSide = kDefaultMaxFrameSide;
    bool loopRunning = false;

    // Pacing. A pass is asked for by a render, a "sync" or a refused capture. Asked while the loop
    // is idle it runs at once; asked while a pass is queued, running or in the 0.1 s that follow
    // it, it runs when that time is over. Toolkits that cannot tell when they render are polled.
    bool busy = false;
    bool asked = false;
    std::shared_ptr<void> renders;  // null when polled

    // Changed regions: only for an agent that announced it draws them, and never for the first
    // frame, after a "sync" or a screen change, or 10 s after the last whole frame.
    bool agentDrawsRegions = false;
    bool wholeDue = true;
    platform::TimerHandle wholeTimer;
};

}  // namespace halvora
