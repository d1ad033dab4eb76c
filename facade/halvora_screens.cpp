// The facade's screen hooks and window choice: what the agent is told about the screens shown,
// which sensitive views are masked, and which windows are drawn into frames.

#include <algorithm>

#include "capture/screen_capture.h"
#include "halvora/halvora.h"
#include "halvora/platform.h"
#include "platform/main_thread.h"

namespace halvora {

void Halvora::viewWillAppear(const platform::ViewControllerRef& viewController, bool animated) {
    HALVORA_ASSERT_MAIN_THREAD();
    if (!viewController || !currentSession_ || !currentSession_->isActive()) return;
    currentSession_->viewWillAppear(viewController, animated);
    // The screen's own declarations, and any made since the last look (a dialog opened meanwhile).
    if (auto declared = viewController->redactedViews()) maskSensitiveViews(*declared);
    maskSensitiveViews(platform::application().sensitiveViews());
}

void Halvora::maskSensitiveViews(const std::vector<platform::ViewRef>& views) {
    // A view destroyed since it was masked must not stand for a new one made at its address.
    std::erase_if(redactedViews_, [](const platform::ViewRef& masked) { return !masked->isAlive(); });
    for (const auto& view : views) {
        if (!view || !view->isAlive()) continue;
        redact(view);
        const bool known = std::any_of(redactedViews_.begin(), redactedViews_.end(),
                                       [&](const platform::ViewRef& masked) { return masked->isSameView(*view); });
        if (!known) redactedViews_.push_back(view);
    }
}

void Halvora::sensitiveViewsChanged() {
    HALVORA_ASSERT_MAIN_THREAD();
    if (!currentSession_ || !currentSession_->isActive()) return;
    const auto declared = platform::application().sensitiveViews();
    std::erase_if(redactedViews_, [&](const platform::ViewRef& masked) {
        const bool still = std::any_of(declared.begin(), declared.end(),
                                       [&](const platform::ViewRef& view) { return view && view->isSameView(*masked); });
        if (!still) unredact(masked);
        return !still;
    });
    maskSensitiveViews(declared);
}

void Halvora::viewDidDisappear(const platform::ViewControllerRef& /*viewController*/, bool /*animated*/) {
    // Masks stay on screens that disappear during a session: the screen may come back (a pop, a
    // swipe) before the agent's next frame, and only the session's end takes every mask off.
}

bool Halvora::shouldCaptureWindow(const platform::Window& window) const {
    HALVORA_ASSERT_MAIN_THREAD();
    return isCapturedWindow(window, platform::application().keyWindow(), [this](const platform::Window& other) {
        return !delegate_ || delegate_->halvoraShouldCaptureWindow(other).value_or(true);
    });
}

platform::ViewRef Halvora::redactionOverlay(const platform::View& view) {
    for (const auto& child : view.subviews()) {
        if (child && child->role() == platform::ViewRole::redactionMask) return child;
    }
    return nullptr;
}

void Halvora::redact(const platform::ViewRef& view) {
    HALVORA_ASSERT_MAIN_THREAD();
    if (!view || !view->isAlive()) return;
    auto mask = redactionOverlay(*view);
    if (!mask) mask = platform::application().makeRedactionMask(view->bounds());
    if (!mask) return;  // a host without a user interface has nothing to mask
    mask->setFrame(view->bounds());
    view->addSubview(mask);
    view->bringSubviewToFront(mask);
}

void Halvora::unredact(const platform::ViewRef& view) {
    if (!view) return;
    auto remove = [view] {
        if (!view->isAlive()) return;
        if (auto mask = redactionOverlay(*view)) mask->removeFromSuperview();
    };
    // At once on the main thread: a view that stopped being sensitive (a reused list row) must not
    // wear its mask in the next capture. Other threads hop to the main queue.
    if (platform::mainQueue().isCurrentThread()) {
        remove();
    } else {
        platform::mainQueue().post(std::move(remove));
    }
}

}  // namespace halvora
