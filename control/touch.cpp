#include <cmath>

#include "control/touch_behaviours.h"
#include "halvora/platform/window.h"
#include "halvora/responder.h"

namespace halvora {

namespace {

HLVPoint difference(const HLVTouchEvent& to, const HLVTouchEvent& from) {
    return {to.position.x - from.position.x, to.position.y - from.position.y};
}

// In single precision on purpose: every threshold of the control behaviours (3 and 5 points) is
// compared against distances rounded this way.
double eventDistance(const HLVTouchEvent& to, const HLVTouchEvent& from) {
    const HLVPoint d = difference(to, from);
    return static_cast<double>(std::fabs(std::hypot(static_cast<float>(d.x), static_cast<float>(d.y))));
}

}  // namespace

void HLVTouch::addTouch(const HLVTouchEvent& event) {
    if (eventCount_ == 0) {
        first_ = event;
    } else {
        previous_ = last_;
        totalDistance_ += eventDistance(event, last_);
    }
    last_ = event;
    ++eventCount_;
}

double HLVTouch::totalDistance() const { return totalDistance_; }

double HLVTouch::distance() const { return eventCount_ < 2 ? 0.0 : eventDistance(first_, last_); }

HLVPoint HLVTouch::delta() const { return eventCount_ < 2 ? HLVPoint{} : difference(last_, first_); }

HLVPoint HLVTouch::lastDelta() const { return eventCount_ < 2 ? HLVPoint{} : difference(last_, previous_); }

HLVPoint HLVTouch::position() const {
    if (target_) {
        if (auto window = target_->window()) return window->convertFromScreen(last_.position);
    }
    return last_.position;
}

bool HLVTouch::ended() const { return eventCount_ > 0 && last_.isEnd(); }

bool HLVTouch::isInsideView(const platform::View& view) const {
    return view.isAlive() && view.pointInside(view.convertFromWindow(position()));
}

bool HLVTouch::isInsideTarget() const { return target_ && isInsideView(*target_); }

platform::ViewRef HLVTouch::closest(platform::ViewRole kind) const {
    for (auto view = target_; view; view = view->superview()) {
        if (control::isKindOf(view->role(), kind)) return view;
    }
    return nullptr;
}

std::map<std::string, std::shared_ptr<HLVResponderExtension>>& HLVResponderRegistry::responders() {
    static auto* const registry = new std::map<std::string, std::shared_ptr<HLVResponderExtension>>();
    return *registry;
}

std::shared_ptr<HLVResponderExtension> HLVResponderRegistry::responder(const std::string& viewClass) {
    auto& all = responders();
    auto found = all.find(viewClass);
    return found == all.end() ? nullptr : found->second;
}

void HLVResponderRegistry::registerResponder(const std::string& viewClass,
                                             std::shared_ptr<HLVResponderExtension> extension) {
    responders()[viewClass] = std::move(extension);
}

}  // namespace halvora
