#pragma once
// The screens the library shows of its own: the session flow `HLVViewController`, which walks the
// user through a session (create or adopt one, show its code for the user to read to the agent,
// ask for approval once an agent has joined, count down, activate, offer to end it), and which
// is also the session-management screen the sharing banner opens.
//
// The Qt Quick integration shows it for you: `SessionFlow { sessionId: "..." }` in QML (push it
// onto a StackView, or put it in a Popup), or Halvora::instance().openSessionManagement() from
// C++, which presents it modally over the top screen. A host of its own builds one with make(),
// presents the layout of view() (loadLayout "HLVHalvoraView") and calls viewWillAppear().

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "halvora/error.h"
#include "halvora/platform/layout.h"
#include "halvora/platform/main_queue.h"
#include "halvora/session.h"

namespace halvora {

// What the session screens need of the library: the facade answers them.
class HLVSessionSource {
public:
    using SessionCallback = HLVSession::SessionCompletion;
    virtual ~HLVSessionSource() = default;
    virtual std::shared_ptr<HLVSession> currentSession() const = 0;
    virtual void createSession(SessionCallback callback) = 0;
    virtual void getSession(const std::string& idOrCode, SessionCallback callback) = 0;
    // The service's credit page, opened by the layout's "Powered by" button.
    virtual std::string poweredByUrl() const = 0;
    // Presents a flow modally over the top screen; false when there is nowhere to show it.
    virtual bool present(const std::shared_ptr<class HLVViewController>& flow) = 0;
};

// A screen made from a named layout. The layout is built on the first call of view() (then
// viewDidLoad runs); outlets are the layout's views by name.
class HLVScreen : public std::enable_shared_from_this<HLVScreen> {
public:
    explicit HLVScreen(std::string nibName);
    virtual ~HLVScreen();
    HLVScreen(const HLVScreen&) = delete;
    HLVScreen& operator=(const HLVScreen&) = delete;

    const std::string& nibName() const { return nibName_; }
    // The root view; none when the host has no such layout.
    platform::ViewRef view();
    bool isViewLoaded() const { return loaded_; }
    const platform::LayoutRef& layout() const { return layout_; }
    // The layout's view of that name, none when absent (or before the view loads).
    platform::ViewRef outlet(const std::string& name) const;

protected:
    virtual void viewDidLoad() {}

private:
    std::string nibName_;
    platform::LayoutRef layout_;
    bool loaded_ = false;
};

class HLVCodeDisplayViewController;
class HLVCountdownViewController;
class HLVSessionApprovalViewController;
class HLVManageSessionViewController;
class HLVErrorDisplayViewController;

// The session flow ("HLVHalvoraView": outlets `poweredBy`, `agentIcon`, `subview`, `close`).
// Shows one child screen at a time in `subview`, chosen from the session's state:
//   active -> manage session; pending with an agent -> approval; otherwise -> the code display
//   (with the session's code once there is one). A failed request lays the error screen over
//   everything, the close button above it, and logs "Halvora Error: <description>".
class HLVViewController final : public HLVScreen {
public:
    static std::shared_ptr<HLVViewController> make(std::shared_ptr<HLVSessionSource> source);
    ~HLVViewController() override;

    // Shows the session with this identifier instead of creating or adopting one. Call before
    // the view loads.
    HLVViewController& loadSession(const std::string& sessionId);
    // Shows `session`, already fetched, instead of creating or adopting one (the facade asking
    // the user about a session the agent started). Call before the view loads.
    HLVViewController& showSession(std::shared_ptr<HLVSession> session);
    // Asks for a new session (done when the screen first appears, unless a session is active or
    // loading: a flow that is never shown leaves no session behind).
    HLVViewController& createSession();

    // The host calls it each time the screen is about to appear: the close button shows only
    // while the screen is presented modally, or over an error.
    void viewWillAppear(bool animated);

    // The actions of the layouts' buttons.
    void accceptSession();  // approve: the countdown, then activation
    void declineSession();  // the same as ending
    // Closes or pops first, then ends the session here at once (frames, banner and masks go) and
    // asks the service to end it; when the service cannot be told, a screen says so.
    void endSession();
    void openPoweredBy();
    void close();  // dismissed when presented, popped when pushed

    // Schedules the choice of the child screen on the main queue.
    void render();
    // `message`, when given, replaces the error screen's text.
    void renderError(const HLVError& error, const std::optional<std::string>& message = std::nullopt);

    // What the user reads when the session ended here but the service could not be told.
    static constexpr const char* kEndNotToldMessage =
        "Your screen is no longer shared. The support service could not be told, so your agent may "
        "still see the session as open.";

    std::shared_ptr<HLVSession> session() const { return session_; }
    HLVCodeDisplayViewController& codeDisplay() const { return *codeDisplay_; }
    HLVCountdownViewController& countdown() const { return *countdown_; }
    HLVSessionApprovalViewController& approval() const { return *approval_; }
    HLVManageSessionViewController& manageSession() const { return *manageSession_; }
    HLVErrorDisplayViewController& errorDisplay() const { return *errorDisplay_; }

private:
    explicit HLVViewController(std::shared_ptr<HLVSessionSource> source);
    void viewDidLoad() override;
    void setupSubviews();
    HLVSession::SessionCompletion adoptCompletion();
    void showSubview(const platform::ViewRef& view);
    void onSessionActivated(const std::shared_ptr<HLVSession>& session);
    std::weak_ptr<HLVViewController> weakSelf();

    std::shared_ptr<HLVSessionSource> source_;
    std::shared_ptr<HLVSession> session_;
    bool loadingSession_ = false;
    bool appeared_ = false;
    std::shared_ptr<HLVCodeDisplayViewController> codeDisplay_;
    std::shared_ptr<HLVCountdownViewController> countdown_;
    std::shared_ptr<HLVSessionApprovalViewController> approval_;
    std::shared_ptr<HLVManageSessionViewController> manageSession_;
    std::shared_ptr<HLVErrorDisplayViewController> errorDisplay_;
};

}  // namespace halvora
