#pragma once
// The agent's pointers and keys on a toolkit that delivers input events itself
// (platform::InputDelivery): the toolkit decides which view takes them, as for the user's own
// mouse, touchscreen and keyboard. Around it the library keeps its promises: the agent touches
// only the windows it sees, an application's responder extension is offered each touch and key
// first, and a pointer the agent never lifts lets go when the session ends.

#include <cstddef>
#include <functional>
#include <memory>
#include <vector>

#include "halvora/platform/input_delivery.h"
#include "halvora/responder.h"

namespace halvora::control {

using WindowFilter = std::function<bool(const platform::Window&)>;

// The application's windows the agent sees (the window choice of frames), front-most first.
std::vector<platform::WindowRef> touchableWindows(const WindowFilter& isTouchable);

class DeliveredPointers {
public:
    // As many fingers as a touchscreen reports; the mouse is one pointer of its own.
    static constexpr std::size_t kMostFingers = 10;
    explicit DeliveredPointers(WindowFilter isTouchable);

    // A touch, click or wheel record. Presses of a pointer that is down, and moves and releases
    // of pointers that are not, are dropped; so are points that are not finite numbers.
    void inject(const HLVTouchEvent& event, platform::InputDelivery& delivery);
    // Every pointer that is down lets go without acting.
    void cancelAll(platform::InputDelivery* delivery);
    std::size_t activeCount() const { return pointers_.size(); }

private:
    struct Pointer;
    void press(const HLVTouchEvent& event, platform::InputDelivery& delivery);
    void moveOrRelease(const HLVTouchEvent& event, platform::InputDelivery& delivery);
    void click(const HLVTouchEvent& event, platform::InputDelivery& delivery);
    // The front-most window the agent sees with the point in it, and the point in its coordinates.
    platform::WindowRef windowAt(HLVPoint screenPoint, HLVPoint& inWindow) const;
    int freeId() const;
    HLVTouches touchesWith(const Pointer& pointer) const;

    WindowFilter isTouchable_;
    std::vector<std::shared_ptr<Pointer>> pointers_;
};

// A key-down for the view with the keyboard focus: extensions of that view and its ancestors
// first, then the toolkit. Other states are dropped.
void deliverKey(const HLVKeyPress& keyPress, platform::InputDelivery& delivery);

}  // namespace halvora::control
