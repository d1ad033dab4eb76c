#pragma once
// Remote control as an application sees it: the agent's touches (HLVTouch) and the extensions an
// application registers to handle touches and keys for view classes of its own.
//
// On a toolkit that delivers input events itself (Qt Quick), the agent's pointer and keys become
// the toolkit's own events, and an extension registered for the class of the view under the press
// (or of the focused view), or of one of its ancestors, is offered each touch and key first. On a
// toolkit that cannot, the library picks the view under the agent's pointer when it goes down and
// calls that view's touch behaviour; a plain view offers each call to the extension registered for
// its class and otherwise passes it to its superview, so a tap on a label inside a custom card
// reaches the card.

#include <cstddef>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "halvora/agent_events.h"
#include "halvora/platform/view.h"

namespace halvora {

// One agent pointer from press to release: its events, and the view that receives them.
class HLVTouch {
public:
    enum Phase : int {
        HLVTouchPhaseNone = 0,   // pressed; began not delivered yet
        HLVTouchPhaseBegan = 1,  // began delivered
        HLVTouchPhaseMoved = 2,  // a move delivered to the target
        HLVTouchPhaseEnded = 3,  // released
    };

    explicit HLVTouch(platform::ViewRef target) : target_(std::move(target)) {}

    // Adds the pointer's next event. Only the first, the previous and the latest event and the
    // path's length are kept, so a pointer that never lifts costs no more memory as it moves.
    void addTouch(const HLVTouchEvent& event);
    std::size_t eventCount() const { return eventCount_; }
    // The press; the latest event. Only when eventCount() > 0.
    const HLVTouchEvent& firstEvent() const { return first_; }
    const HLVTouchEvent& lastEvent() const { return last_; }

    // The view the touch's calls go to; none when nothing was under the press. A scroll view
    // that takes a drag over makes itself the target.
    const platform::ViewRef& target() const { return target_; }
    void setTarget(platform::ViewRef target) { target_ = std::move(target); }

    int phase() const { return phase_; }
    void setPhase(int phase) { phase_ = phase; }

    // Length of the path travelled, in screen points.
    double totalDistance() const;
    // Straight-line distance from the press to the latest event.
    double distance() const;
    // Latest event minus first, and latest minus the one before; (0, 0) with fewer than two.
    HLVPoint delta() const;
    HLVPoint lastDelta() const;
    // The latest point in the coordinates of the target's window (the screen's without one).
    HLVPoint position() const;
    bool ended() const;
    // Whether the latest point lies inside `view`, by the view's own shape.
    bool isInsideView(const platform::View& view) const;
    bool isInsideTarget() const;
    // The target or its nearest ancestor of the given role (a scroll view also answers for its
    // table and collection kinds, a control for every kind of control); none if none.
    platform::ViewRef closest(platform::ViewRole kind) const;

private:
    HLVTouchEvent first_;
    HLVTouchEvent previous_;
    HLVTouchEvent last_;
    std::size_t eventCount_ = 0;
    double totalDistance_ = 0;
    platform::ViewRef target_;
    int phase_ = HLVTouchPhaseNone;
};

// Every touch that is down, the one being delivered first.
using HLVTouches = std::vector<std::shared_ptr<HLVTouch>>;

// An application's handling of touches and keys for a class of views. Each method returns true
// when it handled the call, which then goes no further; false (the default) lets the library's
// own behaviour run.
class HLVResponderExtension {
public:
    virtual ~HLVResponderExtension() = default;
    virtual bool halvoraTouchesBegan(const HLVTouches&, const HLVTouchEvent&, const platform::ViewRef& /*view*/) {
        return false;
    }
    virtual bool halvoraTouchesMoved(const HLVTouches&, const HLVTouchEvent&, const platform::ViewRef& /*view*/) {
        return false;
    }
    virtual bool halvoraTouchesEnded(const HLVTouches&, const HLVTouchEvent&, const platform::ViewRef& /*view*/) {
        return false;
    }
    virtual bool halvoraKeyDown(const HLVKeyPress&, const platform::ViewRef& /*view*/) { return false; }
};

// Extensions by the exact class name of the views they serve (View::className(): a QML type
// name or a C++ class name); a subclass is not matched. Entries last for the process. Main
// thread only.
class HLVResponderRegistry {
public:
    static std::map<std::string, std::shared_ptr<HLVResponderExtension>>& responders();
    static std::shared_ptr<HLVResponderExtension> responder(const std::string& viewClass);
    // Replaces any extension registered for the class before.
    static void registerResponder(const std::string& viewClass, std::shared_ptr<HLVResponderExtension> extension);
};

}  // namespace halvora
