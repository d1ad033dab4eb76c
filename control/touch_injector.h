#pragma once
// Turns the agent's pointer events into input. On a toolkit that delivers input events itself,
// they go to it (control/delivered_input.h). Otherwise they become calls on the view under the
// pointer: the view is picked once, on the press, among the windows the agent can see, front to
// back. The press counts as begun only after a 250 ms hold or at the release; until then moves go
// to the nearest scroll view around the picked view, so that a quick drag scrolls instead of
// pressing a control.

#include <chrono>
#include <functional>
#include <memory>
#include <utility>
#include <vector>

#include "control/delivered_input.h"
#include "halvora/platform/window.h"
#include "halvora/responder.h"

namespace halvora {

class HLVTouchInjector {
public:
    static constexpr std::chrono::milliseconds kBeganDelay{250};
    using WindowFilter = std::function<bool(const platform::Window&)>;

    // `isTouchable` is the window choice of frames: the agent touches only what it sees.
    explicit HLVTouchInjector(WindowFilter isTouchable);

    // Starts, moves or ends a touch; an event of any other state is dropped (on a toolkit that
    // delivers input, clicks and wheel turns act too).
    void inject(const HLVTouchEvent& event);
    // The view under the event's point in the front-most window that is touchable and has one.
    platform::ViewRef pick(const HLVTouchEvent& event) const;
    // Ends every touch that is down without activating anything (the session ended): highlights
    // go, dragged scroll views settle, delivered pointers are cancelled.
    void cancelAll();
    std::size_t activeTouchCount() const;

private:
    struct State;
    void onTouchStart(const HLVTouchEvent& event);
    void onTouchMove(const HLVTouchEvent& event);
    void onTouchEnd(const HLVTouchEvent& event);
    static void triggerTouchBegan(State& state, const std::shared_ptr<HLVTouch>& touch);

    WindowFilter isTouchable_;
    control::DeliveredPointers delivered_;
    // Shared with the pending begans, which must not outlive the injector's table.
    std::shared_ptr<State> state_;
};

}  // namespace halvora
