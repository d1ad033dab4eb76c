#include "control/touch_injector.h"

#include <algorithm>

#include "control/touch_behaviours.h"
#include "halvora/platform.h"

namespace halvora {

struct HLVTouchInjector::State {
    // The touches that are down, by the pointer's identifier, in the order they went down.
    std::vector<std::pair<Json, std::shared_ptr<HLVTouch>>> active;

    std::shared_ptr<HLVTouch> find(const std::optional<Json>& id) const {
        const Json key = id.value_or(Json());
        auto found = std::find_if(active.begin(), active.end(), [&](const auto& entry) { return entry.first == key; });
        return found == active.end() ? nullptr : found->second;
    }
    // Every touch that is down, `first` in front.
    HLVTouches touchSet(const std::shared_ptr<HLVTouch>& first) const {
        HLVTouches touches{first};
        for (const auto& entry : active) {
            if (entry.second != first) touches.push_back(entry.second);
        }
        return touches;
    }
};

HLVTouchInjector::HLVTouchInjector(WindowFilter isTouchable)
    : isTouchable_(isTouchable), delivered_(std::move(isTouchable)), state_(std::make_shared<State>()) {}

void HLVTouchInjector::inject(const HLVTouchEvent& event) {
    if (auto* delivery = platform::application().inputDelivery()) return delivered_.inject(event, *delivery);
    if (event.isStart()) onTouchStart(event);
    if (event.isMove()) onTouchMove(event);
    if (event.isEnd()) onTouchEnd(event);
}

platform::ViewRef HLVTouchInjector::pick(const HLVTouchEvent& event) const {
    for (const auto& window : control::touchableWindows(isTouchable_)) {
        if (auto hit = window->hitTest(window->convertFromScreen(event.position))) return hit;
    }
    return nullptr;
}

void HLVTouchInjector::onTouchStart(const HLVTouchEvent& event) {
    auto touch = std::make_shared<HLVTouch>(pick(event));
    touch->addTouch(event);
    const Json key = event.id.value_or(Json());
    auto& active = state_->active;
    // A second press of a pointer that is down replaces it without ending it.
    std::erase_if(active, [&](const auto& entry) { return entry.first == key; });
    active.emplace_back(key, touch);
    std::weak_ptr<State> weakState = state_;
    platform::mainQueue().postAfter(kBeganDelay, [weakState, touch] {
        if (auto state = weakState.lock()) triggerTouchBegan(*state, touch);
    });
}

void HLVTouchInjector::triggerTouchBegan(State& state, const std::shared_ptr<HLVTouch>& touch) {
    if (touch->phase() != HLVTouch::HLVTouchPhaseNone) return;
    touch->setPhase(HLVTouch::HLVTouchPhaseBegan);
    const platform::ViewRef target = touch->target();  // a behaviour may hand the touch to another view
    control::touchesBegan(target, state.touchSet(touch), touch->firstEvent());
}

void HLVTouchInjector::onTouchMove(const HLVTouchEvent& event) {
    auto touch = state_->find(event.id);
    if (!touch) return;
    touch->addTouch(event);
    platform::ViewRef receiver;
    switch (touch->phase()) {
    case HLVTouch::HLVTouchPhaseNone:
        // Not begun yet: the move may scroll, never press.
        receiver = touch->closest(platform::ViewRole::scrollView);
        break;
    case HLVTouch::HLVTouchPhaseBegan:
    case HLVTouch::HLVTouchPhaseMoved:
        touch->setPhase(HLVTouch::HLVTouchPhaseMoved);
        receiver = touch->target();
        break;
    default:
        return;
    }
    control::touchesMoved(receiver, state_->touchSet(touch), event);
}

void HLVTouchInjector::onTouchEnd(const HLVTouchEvent& event) {
    auto touch = state_->find(event.id);
    if (!touch) return;
    touch->addTouch(event);
    if (touch->phase() == HLVTouch::HLVTouchPhaseNone) triggerTouchBegan(*state_, touch);
    touch->setPhase(HLVTouch::HLVTouchPhaseEnded);
    const platform::ViewRef target = touch->target();
    control::touchesEnded(target, state_->touchSet(touch), event);
    std::erase_if(state_->active, [&](const auto& entry) { return entry.second == touch; });
}

void HLVTouchInjector::cancelAll() {
    delivered_.cancelAll(platform::application().inputDelivery());
    auto active = std::move(state_->active);
    state_->active.clear();
    for (const auto& [id, touch] : active) {
        touch->setPhase(HLVTouch::HLVTouchPhaseEnded);
        control::touchesCancelled(touch->target(), *touch);
    }
}

std::size_t HLVTouchInjector::activeTouchCount() const { return state_->active.size() + delivered_.activeCount(); }

}  // namespace halvora
