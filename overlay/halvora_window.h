#pragma once
// The overlay above the application: the sharing banner and the agent's annotations. This is the
// toolkit-neutral model; a toolkit integration draws it.

#include <functional>

namespace halvora {

class HLVHalvoraWindow {
public:
    // Called when the user taps the sharing banner.
    std::function<void()> onStatusTap;

    // Shows (true) or hides the sharing banner and annotation layer.
    void setActive(bool active) { active_ = active; }
    bool isActive() const { return active_; }

private:
    bool active_ = false;
};

}  // namespace halvora
