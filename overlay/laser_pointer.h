#pragma once
// The agent's laser pointer: a dot that follows the agent's cursor with a short fading trail, and
// that pulses once the cursor rests. This holds the state and timing; a renderer draws it from the
// read-only state whenever the change callback fires.

#include <chrono>
#include <functional>
#include <memory>
#include <vector>

#include "protocol/record_fields.h"
#include "overlay/color.h"
#include "halvora/platform/main_queue.h"

namespace halvora {

class HLVLaserPointerView {
public:
    static constexpr float kInitialSize = 6.0f;
    static constexpr HLVColor kDefaultColor{0.9137255f, 0.35686275f, 0.3137255f, 1.0f};
    // Moves of this many points or fewer are ignored, so jitter neither moves the dot nor stops a pulse.
    static constexpr double kMinimumMove = 3.0;
    static constexpr std::chrono::milliseconds kRestBeforePulse{800};
    static constexpr std::chrono::milliseconds kPulseTick{50};
    static constexpr float kPulseStep = 0.2f;
    static constexpr std::chrono::milliseconds kTrailPointLifetime{250};
    // Off every screen: where the dot goes when the agent stops pointing.
    static constexpr HLVPoint kHiddenPosition{-100.0, -100.0};
    static constexpr double kTrailLineWidth = 5.0;
    static constexpr float kTrailOpacityPulsing = 1.0f;
    static constexpr float kTrailOpacityMoving = 0.3f;
    static constexpr HLVColor kShadowColor{1, 1, 1, 1};
    static constexpr double kShadowRadius = 6.0;
    static constexpr float kShadowOpacity = 0.9f;

    explicit HLVLaserPointerView(HLVRect frame = {});
    ~HLVLaserPointerView();
    HLVLaserPointerView(const HLVLaserPointerView&) = delete;
    HLVLaserPointerView& operator=(const HLVLaserPointerView&) = delete;

    // Moves the dot to `point` (view coordinates) unless it is within the minimum move of where it is.
    void setLaserPosition(HLVPoint point);
    // Hides the dot and stops the pulse; the trail fades out on its own.
    void stopPointing();

    HLVRect frame() const { return frame_; }
    HLVPoint laserPosition() const { return position_; }
    // The trail, oldest first: every accepted position of the last quarter second.
    const std::vector<HLVPoint>& points() const { return points_; }
    bool isEnabled() const { return enabled_; }
    bool isHighlighting() const { return highlighting_; }
    // The pulse's phase in radians; it only ever grows.
    float size() const { return size_; }
    // Between 4 and 8 points, following the pulse's phase. Only drawn while enabled.
    float dotRadius() const;
    float trailOpacity() const { return highlighting_ ? kTrailOpacityPulsing : kTrailOpacityMoving; }

    HLVColor color() const { return color_; }
    void setColor(HLVColor color) { color_ = color; }
    // Kept for hosts that set it; the drawing does not use it.
    int spinRadius() const { return spinRadius_; }
    void setSpinRadius(int radius) { spinRadius_ = radius; }

    // Called whenever what is drawn changes.
    void setOnChange(std::function<void()> onChange) { onChange_ = std::move(onChange); }

private:
    void recordTailPosition(HLVPoint point);
    void clearPoint(HLVPoint point);
    void startHighlighting();
    void nextHighlight();
    void stopHighlighting();
    void render();

    HLVRect frame_;
    std::vector<HLVPoint> points_;
    bool enabled_ = false;
    bool highlighting_ = false;
    HLVPoint position_;
    platform::TimerHandle highlightDelay_;
    platform::TimerHandle highlightAnimation_;
    float size_ = kInitialSize;
    int spinRadius_ = 0;
    HLVColor color_ = kDefaultColor;
    std::function<void()> onChange_;
    // Trail timers are never cancelled; they check this before touching the view.
    std::shared_ptr<HLVLaserPointerView*> self_;
};

}  // namespace halvora
