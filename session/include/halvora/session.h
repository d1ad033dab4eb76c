#pragma once
// One support session as the device sees it: the service's record (a resource), the callbacks
// the rest of the library hangs on it, and its frame-streaming state. The service is the authority
// on the state; the device moves it only by activate() and end().

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "halvora/agent.h"
#include "halvora/agent_events.h"
#include "halvora/platform/realtime_socket.h"
#include "halvora/platform/rgba_frame.h"
#include "halvora/platform/view_controller.h"
#include "halvora/platform/window.h"
#include "halvora/rest_resource.h"

namespace halvora {

class HLVDevice;
class HLVSessionSockets;
struct SessionFrames;

class HLVSession final : public HLVRESTResource {
public:
    using SessionHandler = std::function<void(const std::shared_ptr<HLVSession>&)>;
    using AgentEventHandler = std::function<void(const HLVAgentEvent&)>;
    using WindowFilter = std::function<bool(const platform::Window&)>;
    using SessionCompletion = std::function<void(OptionalError, std::shared_ptr<HLVSession>)>;

    // A session of the service `context` names; activation describes `device` and sends its
    // custom data (none: no custom data).
    static std::shared_ptr<HLVSession> create(std::shared_ptr<const ServiceContext> context,
                                              std::shared_ptr<HLVDevice> device);
    ~HLVSession() override;

    // "<api>/api/1/sessions/<idOrCode>", or the collection "<api>/api/1/sessions" for none.
    static std::string url(const ServiceContext& context, const std::optional<std::string>& idOrCode);
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
    // Ends the session here, without the service (it is gone, or the library stops): the record's
    // state becomes "ended" and the update and end callbacks run as for an ended answer.
    void endLocally();

    std::optional<std::string> code() const;
    std::optional<std::string> state() const;
    // The agent who joined, none when absent or not an object.
    std::shared_ptr<HLVAgent> agent() const;
    // True when the record has an "agent" member at all, even null.
    bool hasAgent() const { return field("agent").has_value(); }
    bool isPending() const { return state() == "pending"; }
    bool isActive() const { return state() == "active"; }
    bool isEnded() const { return state() == "ended"; }

    // Hands an agent event to every agent-event callback.
    void agentEventReceived(const HLVAgentEvent& event);

    // Closes and drops the sockets, drops the callbacks, then the record.
    void cleanup() override;

    // The session's realtime connections; null after cleanup.
    std::shared_ptr<HLVSessionSockets> sockets() const { return sockets_; }

    // Streaming frames while the session is active (session_frames.cpp). One pass at a time:
    // capture, compare with the last frame, and when it changed encode and send it (whole, or its
    // changed regions). On toolkits that tell when they render, a pass runs after a render, at
    // most one per 0.1 s, and none while nothing renders; elsewhere the next pass starts 0.1 s
    // after the previous one finished. Every 0.5 s while the application is not active. The loop
    // stops by itself at the first pass after the session stops being active. Starting it while
    // it runs does nothing, so a second activation cannot double the traffic.
    void frameLoop();
    bool isFrameLoopRunning() const;
    // One pass; the completion runs exactly once, on the main queue when nothing is sent and on
    // the sending queue otherwise.
    void updateFrame(std::function<void()> completion);
    // Which windows besides the key window and the overlay are drawn into frames (all when none
    // is set; the facade asks its delegate).
    void setWindowFilter(WindowFilter filter);
    // The longer side of frames, in pixels, at most (1920 unless set; 0 or less restores that).
    void setMaxFrameSide(int pixels);
    // Draws the windows to capture into the session's reused frame buffer; false when there is
    // nothing to draw (no key window).
    bool captureScreen();
    const RgbaFrame& lastCapture() const;
    // Numbers and emits one frame on the background queue (dropped when the stream is not
    // connected), then runs the completion there.
    void sendFrame(std::vector<std::uint8_t> jpeg, std::function<void()> completion);
    // Forgets the last frame, so the next capture is sent whole even when unchanged.
    void invalidateFrame();
    // The agent's "sync": a whole picture now, and from then on only the changed regions when
    // `drawsRegions` (the agent announced it composites them), else whole frames.
    void agentAsksForPicture(bool drawsRegions);
    // Number of the last frame numbered, as a decimal string ("0" before the first frame).
    std::string lastFrameId() const;
    // Tells the agent which screen is shown, when the session is active and `viewController` is
    // the key window's top screen.
    void viewWillAppear(const platform::ViewControllerRef& viewController, bool animated);
    // Tells the agent, while active, what the user sees now when it is not a screen of the
    // application (a page opened outside it): a "screen" record of that class and title.
    void announceScreen(const std::string& className, const std::optional<std::string>& title);

private:
    HLVSession(std::shared_ptr<const ServiceContext> context, std::shared_ptr<HLVDevice> device);
    std::shared_ptr<HLVSession> self();
    static Completion adapt(SessionCompletion completion);
    void notify(const std::vector<SessionHandler>& handlers);

    std::vector<SessionHandler> onUpdated_;
    std::vector<SessionHandler> onActivated_;
    std::vector<SessionHandler> onEnded_;
    std::vector<AgentEventHandler> onAgentEvent_;
    void framePass(bool requireActive);
    void askForPass();
    void passRested();
    void stopFrameLoop();
    void wholeFrameSent();
    void sendRecord(std::function<Json(std::uint64_t id)> record, std::function<void()> completion);
    std::shared_ptr<platform::RealtimeSocket> connectedStream() const;

    std::shared_ptr<HLVDevice> device_;
    std::unique_ptr<SessionFrames> frames_;
    std::shared_ptr<HLVSessionSockets> sockets_;
};

}  // namespace halvora
