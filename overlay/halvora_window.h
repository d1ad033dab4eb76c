#pragma once
// The overlay above the application while a session is active: the red sharing banner over the
// status bar, the agent's latest drawing, and the agent's laser pointer and touch dots. This is the
// toolkit-neutral model; a toolkit integration draws it (bottom to top: drawing, laser, banner,
// touch dots) and lets every touch through except those hitTest() claims for the banner.

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

#include "halvora/agent_events.h"
#include "protocol/record_fields.h"
#include "overlay/agent_touch_view.h"
#include "overlay/color.h"
#include "overlay/laser_pointer.h"
#include "halvora/platform/main_queue.h"

namespace halvora {

class HLVHalvoraWindow {
public:
    using AgentEventObserver = std::function<void(const HLVAgentEvent&)>;

    static constexpr const char* kBannerText = "Your screen is being shared";
    static constexpr HLVColor kBannerColor{0.9098039f, 0.19607843f, 0.16470589f, 1.0f};
    static constexpr HLVColor kBannerTextColor{1, 1, 1, 1};
    static constexpr double kBannerFontSize = 12.0;  // the system font, centred
    // How long the banner stays away while the status bar moves (rotation).
    static constexpr std::chrono::milliseconds kBannerRelayoutDelay{100};

    // Hidden, with the banner over the screen's status bar and every layer as large as the screen.
    HLVHalvoraWindow();
    ~HLVHalvoraWindow();
    HLVHalvoraWindow(const HLVHalvoraWindow&) = delete;
    HLVHalvoraWindow& operator=(const HLVHalvoraWindow&) = delete;

    // Called when the user taps the sharing banner.
    std::function<void()> onStatusTap;

    // Shows or hides the overlay, on the main queue after the caller returns. Hiding clears the
    // drawing; the laser and touch dots keep their state until their next events.
    void setActive(bool active);
    bool isHidden() const { return hidden_; }
    // Shown.
    bool isActive() const { return !hidden_; }

    // Every agent event of the current session passes here first, on the main thread: drawings,
    // laser and touches are drawn; anything else is left to the observers.
    void onAgentEvent(const HLVAgentEvent& event);
    // Observers hear every event after the overlay has handled it.
    void addAgentEventObserver(AgentEventObserver observer) { observers_.push_back(std::move(observer)); }

    // True when the overlay takes a touch at `point`: only the banner does, so the application
    // beneath gets every other touch.
    bool hitTest(HLVPoint point) const;
    // The toolkit reports a tap on the banner.
    void statusBarTapped();
    // The toolkit reports that the status bar moved: the banner vanishes at once and returns over
    // the new status bar shortly after, with the drawing laid out against the screen again.
    void statusBarFrameChanged();

    // Lays `drawing` out over the screen; none empties the image area.
    void drawAnnotation(const std::shared_ptr<const HLVDrawing>& drawing);
    // Forgets the drawing on show.
    void clearAnnotation();

    HLVRect frame() const { return frame_; }
    HLVRect bannerFrame() const { return bannerFrame_; }
    const std::shared_ptr<const HLVDrawing>& latestDrawing() const { return latestDrawing_; }
    // Where the drawing's image is stretched to, in points.
    HLVRect annotationFrame() const { return annotationFrame_; }
    // The encoded image to decode and show there; empty when nothing is shown.
    const std::vector<std::uint8_t>& annotationImage() const { return annotationImage_; }

    HLVLaserPointerView& laserPointer() { return laserPointer_; }
    const HLVLaserPointerView& laserPointer() const { return laserPointer_; }
    HLVAgentTouchView& agentTouches() { return agentTouches_; }
    const HLVAgentTouchView& agentTouches() const { return agentTouches_; }

    // Called whenever the banner, the drawing or the visibility changes (the pointer views have
    // their own callbacks).
    void setOnChange(std::function<void()> onChange) { onChange_ = std::move(onChange); }

private:
    void updateLaserAnnotation(const HLVLaser& laser);
    void updateAgentTouches(const HLVTouchEvent& touch);
    void changed();

    bool hidden_ = true;
    HLVRect frame_;
    HLVRect bannerFrame_;
    HLVRect annotationFrame_;
    std::vector<std::uint8_t> annotationImage_;
    std::shared_ptr<const HLVDrawing> latestDrawing_;
    HLVLaserPointerView laserPointer_;
    HLVAgentTouchView agentTouches_;
    std::vector<AgentEventObserver> observers_;
    std::function<void()> onChange_;
    platform::TimerHandle bannerRelayout_;
    // Tasks queued by setActive check this before touching the overlay.
    std::shared_ptr<HLVHalvoraWindow*> self_;
};

}  // namespace halvora
