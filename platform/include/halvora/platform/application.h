#pragma once
// The host application as the library sees it: its windows, which one has focus, whether it is in
// the foreground, the idle timer, and the means to make the views and screens the library puts on
// screen.

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "halvora/json.h"
#include "halvora/platform/input_delivery.h"
#include "halvora/platform/layout.h"
#include "halvora/platform/view.h"
#include "halvora/platform/view_controller.h"
#include "halvora/platform/window.h"

namespace halvora::platform {

enum class ApplicationState { active, inactive, background };

class Application {
public:
    virtual ~Application() = default;

    virtual ApplicationState state() const = 0;
    // The application's windows, back to front (the library's overlay, when it is a window of its
    // own, included).
    virtual std::vector<WindowRef> windows() const = 0;
    // The window with keyboard focus; none when the application shows nothing.
    virtual WindowRef keyWindow() const = 0;
    // The screen shown in the key window, front-most (top of a navigation stack, current page of
    // a swipe view); none when it shows no screen.
    virtual ViewControllerRef topViewController() const = 0;

    // The view with the keyboard focus in the key window (where the agent's keys go); none when
    // nothing there has it.
    virtual ViewRef firstResponder() const { return nullptr; }
    // The toolkit's own input delivery, when it offers one; none makes the library act on each
    // kind of control itself (see controls.h).
    virtual InputDelivery* inputDelivery() { return nullptr; }

    // Calls `onRender` on the main queue after a window of the application presented a newly
    // rendered picture, until the returned handle is released (on the main queue). None when the
    // toolkit cannot tell when it renders: the frame loop then polls.
    virtual std::shared_ptr<void> observeRenders(std::function<void()> /*onRender*/) { return nullptr; }
    // Keeps the display awake while true.
    virtual void setIdleTimerDisabled(bool disabled) = 0;
    virtual bool isIdleTimerDisabled() const = 0;

    // Every view the application declares sensitive now, wherever it is (any screen, popup or
    // dialog, shown or not). Frames blank where these draw, from a session's first frame on.
    virtual std::vector<ViewRef> sensitiveViews() const { return {}; }

    // The library's own screens (the session flow): the named layout, built; none when the host
    // has no such layout (a host without a user interface).
    virtual LayoutRef loadLayout(const std::string& /*name*/) { return nullptr; }
    // Shows `layout` modally over the key window's top screen, keeping `owner` alive until it is
    // dismissed; false when nothing can be presented.
    virtual bool presentModally(const LayoutRef& /*layout*/, std::shared_ptr<void> /*owner*/) { return false; }

    // Hands the library the links and push payloads the toolkit delivers by itself (a link the
    // application is launched with or opens for itself), from now on. Asked once per process.
    virtual void interceptLinks(std::function<void(const std::string& url)> /*onLink*/) {}
    virtual void interceptNotifications(std::function<void(const Json& userInfo)> /*onNotification*/) {}

    // A mask for a sensitive view: a dark blur with "REDACTED" in light grey, 14 points, centred
    // in `frame`. The label stays where it was created, whatever later happens to the mask's frame.
    virtual ViewRef makeRedactionMask(Rect frame) = 0;
};

// For hosts without a user interface (the command-line tool, unit tests): always active, no
// windows, so the frame loop runs but captures nothing.
class HeadlessApplication final : public Application {
public:
    ApplicationState state() const override { return ApplicationState::active; }
    std::vector<WindowRef> windows() const override { return {}; }
    WindowRef keyWindow() const override { return nullptr; }
    ViewControllerRef topViewController() const override { return nullptr; }
    void setIdleTimerDisabled(bool disabled) override { idleTimerDisabled_ = disabled; }
    bool isIdleTimerDisabled() const override { return idleTimerDisabled_; }
    ViewRef makeRedactionMask(Rect) override { return nullptr; }

private:
    bool idleTimerDisabled_ = false;
};

}  // namespace halvora::platform
