#include "overlay/laser_pointer.h"

#include <algorithm>
#include <cmath>

#include "halvora/platform.h"

namespace halvora {

HLVLaserPointerView::HLVLaserPointerView(HLVRect frame)
    : frame_(frame), self_(std::make_shared<HLVLaserPointerView*>(this)) {}

HLVLaserPointerView::~HLVLaserPointerView() {
    highlightDelay_.cancel();
    highlightAnimation_.cancel();
}

void HLVLaserPointerView::setLaserPosition(HLVPoint point) {
    if (std::hypot(point.x - position_.x, point.y - position_.y) <= kMinimumMove) return;
    enabled_ = true;
    if (highlighting_) stopHighlighting();
    position_ = point;
    recordTailPosition(point);
    highlightDelay_.cancel();
    std::weak_ptr<HLVLaserPointerView*> self = self_;
    highlightDelay_ = platform::mainQueue().postAfter(kRestBeforePulse, [self] {
        if (auto view = self.lock()) (*view)->startHighlighting();
    });
}

void HLVLaserPointerView::stopPointing() {
    enabled_ = false;
    stopHighlighting();
    position_ = kHiddenPosition;
    render();
}

float HLVLaserPointerView::dotRadius() const {
    return static_cast<float>(2.0 * std::sin(static_cast<double>(size_)) + 6.0);
}

void HLVLaserPointerView::recordTailPosition(HLVPoint point) {
    points_.push_back(point);
    render();
    std::weak_ptr<HLVLaserPointerView*> self = self_;
    platform::mainQueue().postAfter(kTrailPointLifetime, [self, point] {
        platform::mainQueue().post([self, point] {
            if (auto view = self.lock()) (*view)->clearPoint(point);
        });
    });
}

void HLVLaserPointerView::clearPoint(HLVPoint point) {
    // Every equal entry goes at once: a position visited twice within the lifetime vanishes early.
    std::erase(points_, point);
    render();
}

void HLVLaserPointerView::startHighlighting() {
    if (!enabled_) return;
    highlighting_ = true;
    highlightAnimation_.cancel();
    std::weak_ptr<HLVLaserPointerView*> self = self_;
    highlightAnimation_ = platform::mainQueue().repeat(kPulseTick, [self] {
        if (auto view = self.lock()) (*view)->nextHighlight();
    });
}

void HLVLaserPointerView::nextHighlight() {
    size_ += kPulseStep;
    render();
}

void HLVLaserPointerView::stopHighlighting() {
    highlightAnimation_.cancel();
    highlighting_ = false;
}

void HLVLaserPointerView::render() {
    if (onChange_) onChange_();
}

}  // namespace halvora
