#include "overlay/agent_touch_view.h"

#include <algorithm>

namespace halvora {

HLVRect HLVAgentTouchView::dotFrame(HLVPoint point) const {
    const int half = dotSize_ / 2;
    return {point.x - half, point.y - half, static_cast<double>(dotSize_), static_cast<double>(dotSize_)};
}

void HLVAgentTouchView::start(HLVPoint point, const Json& id) {
    // A repeated start leaves the earlier circle where it is, untracked, rather than losing it.
    if (auto old = trackedDot(id); old != dots_.end()) old->tracked = false;
    HLVTouchDot dot{id, dotFrame(point), color_, borderColor_};
    dot.cornerRadius = dot.frame.width / 2;
    dots_.push_back(std::move(dot));
    changed();
}

void HLVAgentTouchView::move(HLVPoint point, const Json& id) {
    auto dot = trackedDot(id);
    if (dot == dots_.end()) return;
    dot->frame = dotFrame(point);
    changed();
}

void HLVAgentTouchView::end(HLVPoint, const Json& id) {
    auto dot = trackedDot(id);
    if (dot == dots_.end()) return;
    dots_.erase(dot);
    changed();
}

const HLVTouchDot* HLVAgentTouchView::dotFor(const Json& id) const {
    auto it = std::find_if(dots_.begin(), dots_.end(), [&](const HLVTouchDot& d) { return d.tracked && d.id == id; });
    return it == dots_.end() ? nullptr : &*it;
}

std::vector<HLVTouchDot>::iterator HLVAgentTouchView::trackedDot(const Json& id) {
    return std::find_if(dots_.begin(), dots_.end(), [&](const HLVTouchDot& d) { return d.tracked && d.id == id; });
}

void HLVAgentTouchView::changed() {
    if (onChange_) onChange_();
}

}  // namespace halvora
