#pragma once
// One support session as the device sees it: the service's record (a resource), the callbacks
// the rest of the library hangs on it, and its frame-streaming state. The service is the authority
// on the state; the device moves it only by activate() and end().

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "core/agent.h"
#include "core/agent_event.h"
#include "capture/frame_change_detector.h"
#include "capture/jpeg_encoder.h"
#include "core/rest_resource.h"
#include "platform/view_controller.h"
#include "session/session_sockets.h"

namespace halvora {

class HLVSession final : public HLVRESTResource {
public:
    using SessionHandler = std::function<void(const std::shared_ptr<HLVSession>&)>;
    using AgentEventHandler = std::function<void(const AgentEventPtr&)>;
    using SessionCompletion = std::function<void(OptionalError, std::shared_ptr<HLVSession>)>;

    static std::shared_ptr<HLVSession> create();

    // "<api>/api/1/sessions/<idOrCode>", or the collection "<api>/api/1/sessions" for none.
    static std::string url(const std::optional<std::string>& idOrCode);
    // The record's URL by its "id", else by its "code".
    std::string url() const override;

    // Validates and adopts a record, then runs the update callbacks, and the end callbacks when
    // the state has just become "ended". A rejected record changes nothing and fires nothing.
    OptionalError updateResource(std::optional<Json> value) override;

    void fetch(SessionCompletion completion);
    void update(const Json& body, SessionCompletion completion);
    using HLVRESTResource::fetch;
    using HLVRESTResource::update;

    // Each adds a callback (any number of parties may register) and returns the session.
    HLVSession& onUpdated(SessionHandler handler);
    HLVSession& onActivated(SessionHandler handler);
    HLVSession& onEnded(SessionHandler handler);
    HLVSession& onAgentEvent(AgentEventHandler handler);

    // PUTs {"state": "active", "device": <description>, "custom_data": <custom data>}. When the
    // answer is active, starts the frame loop and runs the activation callbacks. Required callback.
    void activate(SessionCompletion completion);
    // PUTs {"state": "ended"}; the end callbacks fire from adopting the answer. Optional callback.
    void end(SessionCompletion completion);

    std::optional<std::string> code() const;
    std::optional<std::string> state() const;
    // The agent who joined, none when absent or not an object.
    std::shared_ptr<HLVAgent> agent() const;
    // True when the record has an "agent" member at all, even null.
    bool hasAgent() const { return field("agent").has_value(); }
    bool isPending() const { return state() == "pending"; }
    bool isActive() const { return state() == "active"; }
    bool isEnded() const { return state() == "ended"; }

    // Hands an agent event to every agent-event callback; a null event is dropped.
    void agentEventReceived(const AgentEventPtr& event);

    // Closes and drops the sockets, drops the callbacks, then the record.
    void cleanup() override;

    // The session's realtime connections; null after cleanup.
    std::shared_ptr<HLVSessionSockets> sockets() const { return sockets_; }

    // Streaming frames while the session is active (session_frames.cpp). One pass at a time:
    // capture, compare with the last frame, and when it changed encode and send it; the next pass
    // starts 0.1 s after the previous one finished, or every 0.5 s while the application is not
    // active. The loop stops by itself at the first pass after the session stops being active.
    // Starting it while it runs does nothing, so a second activation cannot double the traffic.
    void frameLoop();
    bool isFrameLoopRunning() const { return frameLoopRunning_; }
    // One pass; the completion runs exactly once, on the main queue when nothing is sent and on
    // the sending queue otherwise.
    void updateFrame(std::function<void()> completion);
    // Draws the windows to capture into the session's reused frame buffer; false when there is
    // nothing to draw (no key window).
    bool captureScreen();
    const RgbaFrame& lastCapture() const { return capture_; }
    // Numbers and emits one frame on the background queue (dropped when the stream is not
    // connected), then runs the completion there.
    void sendFrame(std::vector<std::uint8_t> jpeg, std::function<void()> completion);
    // Forgets the last frame, so the next capture is sent even when unchanged (the agent's "sync").
    void invalidateFrame() { changeDetector_.invalidate(); }
    // Number of the last frame numbered, as a decimal string ("0" before the first frame).
    std::string lastFrameId() const { return std::to_string(frameCounter_->load()); }
    // Tells the agent which screen is shown, when the session is active and `viewController` is
    // the key window's top screen.
    void viewWillAppear(const platform::ViewControllerRef& viewController, bool animated);

private:
    HLVSession() = default;
    std::shared_ptr<HLVSession> self();
    static Completion adapt(SessionCompletion completion);
    void notify(const std::vector<SessionHandler>& handlers);

    std::vector<SessionHandler> onUpdated_;
    std::vector<SessionHandler> onActivated_;
    std::vector<SessionHandler> onEnded_;
    std::vector<AgentEventHandler> onAgentEvent_;
    void framePass(bool requireActive);
    std::shared_ptr<platform::RealtimeSocket> connectedStream() const;

    // Shared with the sending queue, which is the only writer.
    std::shared_ptr<std::atomic<std::uint64_t>> frameCounter_ = std::make_shared<std::atomic<std::uint64_t>>(0);
    FrameChangeDetector changeDetector_;
    JpegEncoder encoder_;
    RgbaFrame capture_;
    bool frameLoopRunning_ = false;
    std::shared_ptr<HLVSessionSockets> sockets_;
};

}  // namespace halvora
