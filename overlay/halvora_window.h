#pragma once
// The overlay above the application: the sharing banner and the agent's annotations. This is the
// toolkit-neutral model; a toolkit integration draws it.

#include <functional>
#include <vector>

#include "core/agent_event.h"

namespace halvora {

class HLVHalvoraWindow {
public:
    using AgentEventObserver = std::function<void(const AgentEventPtr&)>;

    // Called when the user taps the sharing banner.
    std::function<void()> onStatusTap;

    // Shows (true) or hides the sharing banner and annotation layer.
    void setActive(bool active) { active_ = active; }
    bool isActive() const { return active_; }

    // Every agent event of the current session passes here first (laser, drawings, touches, URLs,
    // key presses); the annotation layer observes them to draw.
    void onAgentEvent(const AgentEventPtr& event) {
        for (const auto& observer : std::vector<AgentEventObserver>(observers_)) observer(event);
    }
    void addAgentEventObserver(AgentEventObserver observer) { observers_.push_back(std::move(observer)); }

private:
    bool active_ = false;
    std::vector<AgentEventObserver> observers_;
};

}  // namespace halvora
