#include "overlay/halvora_window.h"

#include <variant>

#include "base/overloaded.h"

#include "halvora/platform.h"

namespace halvora {

HLVHalvoraWindow::HLVHalvoraWindow()
    : frame_(platform::screen().bounds()),
      bannerFrame_(platform::screen().statusBarFrame()),
      laserPointer_(frame_),
      agentTouches_(frame_),
      self_(std::make_shared<HLVHalvoraWindow*>(this)) {}

HLVHalvoraWindow::~HLVHalvoraWindow() { bannerRelayout_.cancel(); }

void HLVHalvoraWindow::setActive(bool active) {
    std::weak_ptr<HLVHalvoraWindow*> self = self_;
    platform::mainQueue().post([self, active] {
        auto window = self.lock();
        if (!window) return;
        (*window)->hidden_ = !active;
        if ((*window)->hidden_) (*window)->clearAnnotation();
        (*window)->changed();
    });
}

void HLVHalvoraWindow::onAgentEvent(const HLVAgentEvent& event) {
    std::visit(Overloaded{
                   [this](const HLVDrawing& drawing) {
                       if (drawing.image) {
                           latestDrawing_ = std::make_shared<const HLVDrawing>(drawing);
                           drawAnnotation(latestDrawing_);
                       } else {
                           clearAnnotation();
                       }
                       // A drawing always puts the laser away.
                       laserPointer_.stopPointing();
                   },
                   [this](const HLVLaser& laser) { updateLaserAnnotation(laser); },
                   [this](const HLVTouchEvent& touch) { updateAgentTouches(touch); },
                   // Pages and key presses are not the overlay's to show.
                   [](const HLVURL&) {},
                   [](const HLVKeyPress&) {},
               },
               event);
    for (const auto& observer : std::vector<AgentEventObserver>(observers_)) observer(event);
}

bool HLVHalvoraWindow::hitTest(HLVPoint point) const { return bannerFrame_.contains(point); }

void HLVHalvoraWindow::statusBarTapped() {
    if (onStatusTap) onStatusTap();
}

void HLVHalvoraWindow::statusBarFrameChanged() {
    bannerFrame_ = {};
    changed();
    bannerRelayout_.cancel();
    std::weak_ptr<HLVHalvoraWindow*> self = self_;
    bannerRelayout_ = platform::mainQueue().postAfter(kBannerRelayoutDelay, [self] {
        auto window = self.lock();
        if (!window) return;
        (*window)->bannerFrame_ = platform::screen().statusBarFrame();
        (*window)->drawAnnotation((*window)->latestDrawing_);
    });
}

void HLVHalvoraWindow::drawAnnotation(const std::shared_ptr<const HLVDrawing>& drawing) {
    frame_ = platform::screen().bounds();
    if (drawing) {
        const auto& b = drawing->bounds;
        annotationFrame_ = {b.x * frame_.width, b.y * frame_.height, b.width * frame_.width, b.height * frame_.height};
        annotationImage_ = drawing->imageBytes().value_or(std::vector<std::uint8_t>{});
    } else {
        annotationFrame_ = {};
        annotationImage_.clear();
    }
    changed();
}

void HLVHalvoraWindow::clearAnnotation() {
    latestDrawing_.reset();
    annotationImage_.clear();
    changed();
}

void HLVHalvoraWindow::updateLaserAnnotation(const HLVLaser& laser) {
    if (laser.isEnd()) {
        laserPointer_.stopPointing();
    } else {
        laserPointer_.setLaserPosition({laser.position.x * frame_.width, laser.position.y * frame_.height});
    }
}

void HLVHalvoraWindow::updateAgentTouches(const HLVTouchEvent& touch) {
    // Independent tests: an event that is a start and an end at once shows and removes its dot.
    const Json id = touch.id.value_or(Json());
    if (touch.isStart()) agentTouches_.start(touch.position, id);
    if (touch.isMove()) agentTouches_.move(touch.position, id);
    if (touch.isEnd()) agentTouches_.end(touch.position, id);
}

void HLVHalvoraWindow::changed() {
    if (onChange_) onChange_();
}

}  // namespace halvora
