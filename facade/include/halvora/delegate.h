#pragma once
// What the host application hears about the current session, and the questions it may answer.
// Held strongly by the facade. The two notifications must be implemented; a question left
// unanswered (the default, none) counts as a yes.

#include <memory>
#include <optional>

#include "halvora/agent_events.h"
#include "halvora/platform/window.h"

namespace halvora {

class HLVSession;

class HalvoraDelegate {
public:
    virtual ~HalvoraDelegate() = default;
    // After every adopted update of the current session.
    virtual void halvoraSessionDidUpdate(const std::shared_ptr<HLVSession>& session) = 0;
    // When the current session's state becomes ended.
    virtual void halvoraSessionDidEnd(const std::shared_ptr<HLVSession>& session) = 0;

    // Before each of the agent's touches is performed; false drops it (the overlay still shows it).
    virtual std::optional<bool> halvoraShouldAllowTouchEvent(const HLVTouchEvent& /*event*/,
                                                             const std::shared_ptr<HLVSession>& /*session*/) {
        return std::nullopt;
    }
    // Before each of the agent's key presses is typed; false drops it.
    virtual std::optional<bool> halvoraShouldAllowKeyEvent(const HLVKeyPress& /*keyPress*/,
                                                           const std::shared_ptr<HLVSession>& /*session*/) {
        return std::nullopt;
    }
    // For each window other than the key window and the overlay, at every capture; false keeps
    // the window out of the frames sent to the agent.
    virtual std::optional<bool> halvoraShouldCaptureWindow(const platform::Window& /*window*/) { return std::nullopt; }
};

}  // namespace halvora
