#pragma once
// Everything an application uses of Halvora: the facade `Halvora`, its delegate, the session
// type and its states, the agent's events, remote-control extensions, errors, and the platform
// callbacks to forward.
//
//   #include <halvora/halvora.h>
//
//   auto& halvora = halvora::Halvora::instance();
//   halvora.setApi("https://support.example.com");
//   halvora.setCustomData({{"plan", "pro"}});
//   halvora.start();
//
// Everything here is meant for the main thread (the thread running the installed main queue;
// see <halvora/platform.h>). Debug builds abort with a message when a call comes from another.

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "halvora/agent.h"
#include "halvora/agent_events.h"
#include "halvora/app_events.h"
#include "halvora/delegate.h"
#include "halvora/error.h"
#include "halvora/integration.h"
#include "halvora/json.h"
#include "halvora/platform/view.h"
#include "halvora/platform/view_controller.h"
#include "halvora/platform/window.h"
#include "halvora/request.h"
#include "halvora/responder.h"
#include "halvora/session.h"
#include "halvora/session_flow.h"
#include "halvora/version.h"

namespace halvora {

class HLVDevice;
class HLVHalvoraWindow;
class HLVKeyPressInjector;
class HLVTouchInjector;
class HLVViewController;
class HLVIntegration;
struct ServiceContext;
struct FacadeAccess;

class Halvora {
public:
    // The production service.
    static constexpr const char* kDefaultApi = "https://api.halvora.io";

    // error or none, session or none.
    using SessionCallback = std::function<void(OptionalError, std::shared_ptr<HLVSession>)>;

    // The process-wide instance, created on first use (on the main thread) and never destroyed.
    // Creating it sends nothing.
    static Halvora& instance();
    // Whether the library starts itself at launch: the information key "HLVAutostart" when the
    // application has it, else true.
    static bool autostarts();

    // Whether a session the agent starts for this device (over the notification connection, a
    // push or a session link) waits for the user's approval. Off (the default), it is joined at
    // once. On, it is fetched, made current, and the session screen is presented for it as
    // openSessionManagement() presents it: approving counts down and activates, declining ends
    // it. With no screen to show, "Halvora cannot ask the user about session <code>; not
    // joining" is logged and the session stays pending. joinSession() always activates at once.
    // Until set, the information key "HLVAskBeforeAgentSessions" decides (read like
    // "HLVAutostart"; with Qt, also the application object's property of that name).
    void setAskBeforeAgentSessions(bool ask);
    bool askBeforeAgentSessions() const;

    // One exchange with the service (used exactly as `url` gives it): the callback runs exactly
    // once, on the main queue: "Halvora not started" (code 0) while stopped; the HTTP client's
    // error in its own domain when the exchange itself failed; 204 -> no error and no JSON; an answer that is not a JSON object or array -> a
    // "json" domain error; status >= 400 -> HLVError(answer's "message" or "Request failed",
    // status) with the parsed answer; else the parsed answer. The device credential goes only
    // to URLs under api().
    static void request(const std::string& url, const RequestOptions& options, RequestCallback callback);
    // "1.5.4".
    static std::string version() { return kHalvoraVersion; }

    // Logs "Initialised Halvora SDK <version>", marks the library started and begins registering
    // the device. A second start does nothing.
    Halvora& start();
    // Ends an active current session (asks the service, and ends it here at once without waiting),
    // deregisters the device, then marks the library stopped: no registration or notification
    // connection comes back until start(). The outcome is logged ("Halvora Stopped" or "Error
    // stopping Halvora: ...").
    Halvora& stop();
    // While started: sets integrations up again and restarts the registration loop.
    void reinitialize();
    bool isStarted() const;

    // The API base URL, without a trailing slash; request paths are appended to it. Not validated.
    // Changing it while started registers again against the new base.
    void setApi(std::string api);
    const std::string& api() const;

    // Application data sent with registrations and session activations; merged into what was set
    // before (keys are never removed). Registers at once while started. Anything but a JSON
    // object is refused with "Custom data must be a JSON object" (code 400) and changes nothing.
    OptionalError setCustomData(const Json& data);
    // The merged custom data; an empty object when none was set.
    Json customData() const;

    // This installation's persistent identifier; available before any registration.
    std::string deviceId() const;
    std::shared_ptr<HLVDevice> device() const { return device_; }

    void setDelegate(std::shared_ptr<HalvoraDelegate> delegate);
    std::shared_ptr<HalvoraDelegate> delegate() const { return delegate_; }

    // Called when the user taps the sharing banner; by default opens the session screen.
    void setOnStatusTap(std::function<void()> onTap);
    std::function<void()> onStatusTap() const;

    // The session the library is attached to, or none.
    std::shared_ptr<HLVSession> currentSession() const { return currentSession_; }
    // Cleans the previous current session up (even when it is the same one) and stores `session`.
    void setCurrentSession(std::shared_ptr<HLVSession> session);
    // POSTs a new session and makes it current. The callback is required. While started, with no
    // device credential stored and no registration answered since start() (a first launch), the
    // three session requests here wait for a registration first, so that they carry the
    // credential it brings; a failed registration lets them go anyway.
    Halvora& createSession(SessionCallback callback);
    // Fetches a session by identifier or code and makes it current. The callback is required.
    Halvora& getSession(const std::string& idOrCode, SessionCallback callback);
    // Fetches the session with `code`, makes it current and activates it without asking the user
    // (the agent started it, or the application already has the user's consent). Fails at once
    // with "Already in a session" (400) while the current session is active. A join of a code
    // already being joined sends nothing and hears the first one's outcome.
    Halvora& joinSession(const std::string& code, SessionCallback callback);

    // Lets the application handle the agent's touches and keys for views of its own class
    // (`viewClass`: the exact class name a view reports, a QML type name for instance) before
    // the library's own behaviour; see <halvora/responder.h>. Replaces an earlier registration.
    static void experimental_registerResponderExtension(const std::string& viewClass,
                                                        std::shared_ptr<HLVResponderExtension> extension);

    // Shows a web page on the agent's behalf: an in-application browser page where the toolkit
    // has one, else the system browser. Only http and https; anything else is refused in the log.
    void openUrl(const std::string& url);
    // The session-management screen (the session flow of <halvora/session_flow.h>), presented
    // modally over the top screen; the banner's tap opens it. While one opened here is still
    // shown, a second call does nothing.
    void openSessionManagement();
    // The service's credit page, linked from the session screens.
    static constexpr const char* kPoweredByUrl = "https://halvora.io";

    // Integrations with other SDKs (<halvora/integration.h>): each is registered once.
    static void addIntegration(std::shared_ptr<HLVIntegration> integration);
    // Runs on every start: takes over the links and notifications the toolkit delivers (once per
    // process), then logs "Initialised Halvora integration for <name>" and configures each
    // registered integration.
    void initializeIntegrations();
    // A link the application received: "<scheme>://<link host>/session/<6-character code>" joins
    // that session; other hosts are ignored; malformed links are logged ("expected halvora link
    // to have 3 components", "halvora link invalid <kind> <code> <url>").
    static void onInterceptedURL(const std::string& url);
    // A push payload: Halvora's own join their session, any other goes to every integration.
    static void onInterceptedNotification(const Json& userInfo);

    // Whether a push payload or notification-socket message is this library's: its
    // "halvora-notification" is true, a non-zero number, or the string "true".
    static bool isHalvoraNotification(const Json& payload);
    // Joins the session a payload of this library names ("halvora-code"); anything else is
    // ignored. Failures are only logged.
    static void onPushNotification(const Json& payload);
    // Joins `code` for a push, a notification-socket message or a link, or asks the user first
    // (setAskBeforeAgentSessions); failures are only logged ("Error joining session ...").
    static void joinFromOutside(const std::string& code);

    // The longer side of the pictures the agent gets, in pixels, at most: windows up to that size
    // are sent one pixel per point, larger ones scaled down. 1920 by default; 500 keeps the small
    // pictures of phone-sized apps. 0 or less restores the default. Applies from the next frame.
    void setMaxFrameSide(int pixels);
    int maxFrameSide() const { return maxFrameSide_; }
    static constexpr int kDefaultMaxFrameSide = 1920;

    // Host of the service's session links ("https://<host>/session/123456").
    void setLinkHost(std::string host);
    const std::string& linkHost() const { return linkHost_; }
    static constexpr const char* kDefaultLinkHost = "link.halvora.io";
    // The screen the agent is told of when a page it sent opened outside the shared window.
    static constexpr const char* kOutsidePageScreen = "HLVOutsideBrowser";

    // Screen hooks: the toolkit integration calls these for every screen of the application when
    // it is about to appear and after it disappeared. While the current session is active, an
    // appearing screen is announced to the agent (when it is the top screen), and the sensitive
    // views it declares and those the application declares elsewhere are masked until the session
    // ends; activation masks every declared view at once. Masks stay when a screen disappears.
    // Frames never depend on the masks: the capture blanks every sensitive view by itself.
    void viewWillAppear(const platform::ViewControllerRef& viewController, bool animated);
    void viewDidDisappear(const platform::ViewControllerRef& viewController, bool animated);
    // The toolkit integration calls this when the application changed what it declares sensitive
    // (a list view's reused row now holds another record): while the session is active, newly
    // declared views are masked and views no longer declared anywhere lose their masks.
    void sensitiveViewsChanged();

    // Whether a window is drawn into frames: the key window always, the overlay never, others as
    // the delegate answers (yes when it does not).
    bool shouldCaptureWindow(const platform::Window& window) const;

    // Masks: a view's mask is its first direct subview that is one. redact() masks at once (one
    // mask per view, refreshed to the view's bounds and brought to the front); unredact() removes
    // the mask on the next turn of the main queue.
    static platform::ViewRef redactionOverlay(const platform::View& view);
    static void redact(const platform::ViewRef& view);
    static void unredact(const platform::ViewRef& view);
    // The views masked now (by identity), in the order they were first masked.
    const std::vector<platform::ViewRef>& redactedViews() const { return redactedViews_; }

    // The overlay window's model (banner, annotations).
    HLVHalvoraWindow& overlay() const { return *overlay_; }

    Halvora(const Halvora&) = delete;
    Halvora& operator=(const Halvora&) = delete;

private:
    friend struct FacadeAccess;
    Halvora();
    ~Halvora();
    std::shared_ptr<HLVSession> makeSession() const;
    void adoptSession(std::optional<Json> answer, OptionalError error, const SessionCallback& callback);
    void requestSession(std::optional<std::string> method, std::optional<std::string> idOrCode,
                        SessionCallback callback);
    // Agent events act only for the current session while it is active.
    void routeAgentEvent(const HLVAgentEvent& event, const std::shared_ptr<HLVSession>& session);
    void askToJoin(const std::string& code);
    // The session flow presented here, while it is shown; presenting one remembers it.
    std::shared_ptr<HLVViewController> shownFlow() const;
    bool presentFlow(const std::shared_ptr<HLVViewController>& flow);
    void maskSensitiveViews(const std::vector<platform::ViewRef>& views);
    static void interceptNotifications();
    static void interceptDeepLinks();

    // Shared with the device and sessions, which read the service's address and whether the
    // library is started from it.
    std::shared_ptr<ServiceContext> context_;
    std::unique_ptr<HLVHalvoraWindow> overlay_;
    std::shared_ptr<HLVSession> currentSession_;
    std::shared_ptr<HalvoraDelegate> delegate_;
    std::shared_ptr<HLVDevice> device_;
    std::string linkHost_ = kDefaultLinkHost;
    int maxFrameSide_ = kDefaultMaxFrameSide;
    std::unique_ptr<HLVTouchInjector> touchInjector_;
    std::unique_ptr<HLVKeyPressInjector> keyPressInjector_;
    std::vector<platform::ViewRef> redactedViews_;
    std::map<std::string, std::vector<SessionCallback>> joining_;  // by code, while in flight
    std::weak_ptr<HLVViewController> management_;  // the flow presented here, while shown
    std::optional<bool> askBeforeAgentSessions_;
    std::set<std::string> asking_;  // codes fetched to ask about, while in flight
    bool keepsDisplayAwake_ = false;  // the idle timer was turned off for a session, by us
};

}  // namespace halvora
