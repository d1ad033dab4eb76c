#include "halvora/halvora.h"

#include <utility>
#include <cctype>
#include <variant>

#include "base/json_fields.h"
#include "base/overloaded.h"
#include "capture/screen_capture.h"
#include "control/key_press_injector.h"
#include "control/touch_injector.h"
#include "device/device.h"
#include "facade/facade_access.h"
#include "halvora/platform.h"
#include "halvora/platform/log.h"
#include "overlay/halvora_window.h"
#include "platform/linux/linux_defaults.h"
#include "platform/main_thread.h"
#include "protocol/web_url.h"
#include "rest/service_context.h"
#include "rest/transport.h"

namespace halvora {

Halvora& Halvora::instance() {
    // Deliberately leaked: the facade outlives every callback that may still reach it at exit.
    static Halvora* const shared = [] {
        platform::useLinuxDefaults();
        return new Halvora();
    }();
    return *shared;
}

Halvora::Halvora()
    : context_(std::make_shared<ServiceContext>(ServiceContext{false, kDefaultApi})),
      overlay_(std::make_unique<HLVHalvoraWindow>()),
      device_(HLVDevice::create(context_)),
      touchInjector_(std::make_unique<HLVTouchInjector>(
          [this](const platform::Window& window) { return shouldCaptureWindow(window); })),
      keyPressInjector_(std::make_unique<HLVKeyPressInjector>()) {
    device_->setNotificationHandler([](const Json& payload) { onPushNotification(payload); });
    overlay_->onStatusTap = [] { instance().openSessionManagement(); };
}

Halvora::~Halvora() = default;

namespace {

// An information key read as a property list's boolean: a bool, or a string that is true when it
// starts with y, t or a non-zero digit. None when the application does not have the key.
std::optional<bool> infoFlag(const char* key) {
    auto value = platform::appInfo().infoValue(key);
    if (!value) return std::nullopt;
    if (const bool* flag = std::get_if<bool>(&*value)) return *flag;
    const auto& text = std::get<std::string>(*value);
    auto first = text.find_first_not_of(" \t");
    if (first == std::string::npos) return false;
    char c = static_cast<char>(std::tolower(static_cast<unsigned char>(text[first])));
    return c == 'y' || c == 't' || (c >= '1' && c <= '9');
}

}  // namespace

bool Halvora::autostarts() { return infoFlag("HLVAutostart").value_or(true); }

void Halvora::setAskBeforeAgentSessions(bool ask) {
    HALVORA_ASSERT_MAIN_THREAD();
    askBeforeAgentSessions_ = ask;
}

bool Halvora::askBeforeAgentSessions() const {
    return askBeforeAgentSessions_ ? *askBeforeAgentSessions_ : infoFlag("HLVAskBeforeAgentSessions").value_or(false);
}

void Halvora::request(const std::string& url, const RequestOptions& options, RequestCallback callback) {
    HALVORA_ASSERT_MAIN_THREAD();
    sendRequest(*instance().context_, url, options, onMainQueue(std::move(callback)));
}

bool Halvora::isStarted() const { return context_->started; }

const std::string& Halvora::api() const { return context_->api; }

Halvora& Halvora::start() {
    HALVORA_ASSERT_MAIN_THREAD();
    if (context_->started) return *this;
    platform::log(std::string("Initialised Halvora SDK ") + version());
    context_->started = true;
    reinitialize();
    return *this;
}

Halvora& Halvora::stop() {
    HALVORA_ASSERT_MAIN_THREAD();
    // Both requests go out before the started flag is cleared, since requests check it when issued;
    // neither answer is waited for: the session ends here at once (frames, sockets, banner and
    // masks go, the delegate hears of it), whatever the service says or if it never answers.
    if (auto session = currentSession_; session && session->isActive()) {
        session->end(nullptr);
        session->endLocally();
    }
    device_->deregister([](OptionalError error, const std::shared_ptr<HLVRESTResource>&) {
        if (error) {
            platform::log("Error stopping Halvora: " + error->description());
        } else {
            platform::log("Halvora Stopped");
        }
    });
    context_->started = false;
    return *this;
}

void Halvora::reinitialize() {
    HALVORA_ASSERT_MAIN_THREAD();
    if (!context_->started) return;
    initializeIntegrations();
    device_->runRegistrationLoop();
}

void Halvora::setApi(std::string api) {
    HALVORA_ASSERT_MAIN_THREAD();
    bool changed = api != context_->api;
    context_->api = std::move(api);
    if (changed && context_->started) reinitialize();
    if (context_->api != kDefaultApi) {
        platform::log("Warning: Halvora is using non-production API " + context_->api);
    }
}

OptionalError Halvora::setCustomData(const Json& data) {
    HALVORA_ASSERT_MAIN_THREAD();
    if (!data.is_object()) return HLVError("Custom data must be a JSON object", 400);
    device_->setCustomData(data);
    if (context_->started) device_->registerDevice(nullptr);
    return std::nullopt;
}

Json Halvora::customData() const {
    auto data = device_->customData();
    return data ? *data : Json::object();
}

std::string Halvora::deviceId() const {
    HALVORA_ASSERT_MAIN_THREAD();
    return device_->id();
}

void Halvora::setDelegate(std::shared_ptr<HalvoraDelegate> delegate) {
    HALVORA_ASSERT_MAIN_THREAD();
    delegate_ = std::move(delegate);
}

void Halvora::setOnStatusTap(std::function<void()> onTap) {
    HALVORA_ASSERT_MAIN_THREAD();
    overlay_->onStatusTap = std::move(onTap);
}

std::function<void()> Halvora::onStatusTap() const { return overlay_->onStatusTap; }

void Halvora::experimental_registerResponderExtension(const std::string& viewClass,
                                                      std::shared_ptr<HLVResponderExtension> extension) {
    HALVORA_ASSERT_MAIN_THREAD();
    HLVResponderRegistry::registerResponder(viewClass, std::move(extension));
}

void Halvora::setLinkHost(std::string host) {
    HALVORA_ASSERT_MAIN_THREAD();
    linkHost_ = std::move(host);
}

static_assert(Halvora::kDefaultMaxFrameSide == halvora::kDefaultMaxFrameSide);

void Halvora::setMaxFrameSide(int pixels) {
    HALVORA_ASSERT_MAIN_THREAD();
    maxFrameSide_ = pixels > 0 ? pixels : kDefaultMaxFrameSide;
    if (currentSession_) currentSession_->setMaxFrameSide(maxFrameSide_);
}

std::shared_ptr<HLVSession> Halvora::makeSession() const {
    auto session = HLVSession::create(context_, device_);
    session->setMaxFrameSide(maxFrameSide_);
    // The delegate is asked at every capture, so a delegate set later is asked too.
    session->setWindowFilter([this](const platform::Window& window) {
        if (!delegate_) return true;
        return delegate_->halvoraShouldCaptureWindow(window).value_or(true);
    });
    return session;
}

void Halvora::setCurrentSession(std::shared_ptr<HLVSession> session) {
    HALVORA_ASSERT_MAIN_THREAD();
    if (currentSession_) currentSession_->cleanup();
    currentSession_ = std::move(session);
    if (!currentSession_) return;

    // The delegate's questions are asked about the session that was current when installed.
    std::weak_ptr<HLVSession> installedFor = currentSession_;
    currentSession_->onAgentEvent([this, installedFor](const HLVAgentEvent& event) {
        routeAgentEvent(event, installedFor.lock());
    });
    currentSession_->onUpdated([this](const std::shared_ptr<HLVSession>& updated) {
        HALVORA_ASSERT_MAIN_THREAD();
        if (delegate_) delegate_->halvoraSessionDidUpdate(updated);
    });
    currentSession_->onActivated([this](const std::shared_ptr<HLVSession>&) {
        overlay_->setActive(true);
        // Screens already on show are masked now, not at their next appearance; frames blank them
        // from the first one either way.
        maskSensitiveViews(platform::application().sensitiveViews());
        // Keep the display awake while the agent watches, and let it sleep and lock again when
        // the session ends: on a desktop the hold covers the whole desktop. A timer the
        // application had turned off itself is left to it.
        platform::mainQueue().post([this] {
            auto& application = platform::application();
            if (keepsDisplayAwake_ || application.isIdleTimerDisabled()) return;
            application.setIdleTimerDisabled(true);
            keepsDisplayAwake_ = true;
        });
    });
    currentSession_->onEnded([this](const std::shared_ptr<HLVSession>& ended) {
        HALVORA_ASSERT_MAIN_THREAD();
        // The application hears of the end before the banner goes.
        if (delegate_) delegate_->halvoraSessionDidEnd(ended);
        overlay_->setActive(false);
        // A pointer the agent never lifted leaves no pressed cell or half-done drag behind.
        touchInjector_->cancelAll();
        currentSession_.reset();
        platform::mainQueue().post([this] {
            if (std::exchange(keepsDisplayAwake_, false)) platform::application().setIdleTimerDisabled(false);
        });
        for (const auto& view : redactedViews_) unredact(view);
        redactedViews_.clear();
    });
}

void Halvora::routeAgentEvent(const HLVAgentEvent& event, const std::shared_ptr<HLVSession>& session) {
    HALVORA_ASSERT_MAIN_THREAD();
    // The agent acts only in a session the user let it into: while the approval screen asks about
    // it, nothing the agent sends is shown or performed, so it cannot answer for the user.
    if (!session || session != currentSession_ || !session->isActive()) return;
    // The overlay sees everything first: laser and drawings only ever go there, and touches are
    // shown even when the delegate refuses them.
    overlay_->onAgentEvent(event);
    std::visit(Overloaded{
                   [this](const HLVURL& url) {
                       if (url.url) openUrl(*url.url);
                   },
                   [this, &session](const HLVTouchEvent& touch) {
                       if (delegate_ && delegate_->halvoraShouldAllowTouchEvent(touch, session) == false) return;
                       touchInjector_->inject(touch);
                   },
                   [this, &session](const HLVKeyPress& key) {
                       if (delegate_ && delegate_->halvoraShouldAllowKeyEvent(key, session) == false) return;
                       keyPressInjector_->inject(key);
                   },
                   [](const HLVLaser&) {},
                   [](const HLVDrawing&) {},
               },
               event);
}

void Halvora::openUrl(const std::string& url) {
    HALVORA_ASSERT_MAIN_THREAD();
    if (!isOpenableWebUrl(url)) {
        platform::log("Halvora refused to open " + url + ": only http and https pages open");
        return;
    }
    if (platform::urlOpener().openPage(url) == platform::PageShown::outside && currentSession_) {
        // The picture stays on the application while the user reads the page elsewhere.
        currentSession_->announceScreen(kOutsidePageScreen, "Opened outside the shared window: " + url);
    }
}

namespace {

// The session screens' view of the facade.
class FacadeSessionSource final : public HLVSessionSource {
public:
    std::shared_ptr<HLVSession> currentSession() const override { return Halvora::instance().currentSession(); }
    void createSession(SessionCallback callback) override { Halvora::instance().createSession(std::move(callback)); }
    void getSession(const std::string& idOrCode, SessionCallback callback) override {
        Halvora::instance().getSession(idOrCode, std::move(callback));
    }
    std::string poweredByUrl() const override { return Halvora::kPoweredByUrl; }
    bool present(const std::shared_ptr<HLVViewController>& flow) override { return FacadeAccess::presentFlow(flow); }
};

}  // namespace

std::shared_ptr<HLVSessionSource> FacadeAccess::sessionSource() { return std::make_shared<FacadeSessionSource>(); }

bool FacadeAccess::presentFlow(const std::shared_ptr<HLVViewController>& flow) {
    return Halvora::instance().presentFlow(flow);
}

void Halvora::openSessionManagement() {
    HALVORA_ASSERT_MAIN_THREAD();
    // A second tap while the screen is up must not stack another one over it.
    if (shownFlow()) return;
    presentFlow(HLVViewController::make(FacadeAccess::sessionSource()));
}

std::shared_ptr<HLVViewController> Halvora::shownFlow() const {
    auto shown = management_.lock();
    if (shown && shown->layout() && shown->layout()->view() && shown->layout()->view()->isAlive()) return shown;
    return nullptr;
}

bool Halvora::presentFlow(const std::shared_ptr<HLVViewController>& flow) {
    if (!flow->view()) return false;  // no user interface to show it in
    if (!platform::application().presentModally(flow->layout(), flow)) return false;
    flow->viewWillAppear(true);
    management_ = flow;
    return true;
}

void Halvora::adoptSession(std::optional<Json> answer, OptionalError error, const SessionCallback& callback) {
    HALVORA_ASSERT_MAIN_THREAD();
    if (error) {
        callback(std::move(error), nullptr);
        return;
    }
    auto session = makeSession();
    if (auto invalid = session->updateResource(std::move(answer))) {
        callback(std::move(invalid), nullptr);
        return;
    }
    setCurrentSession(session);
    callback(std::nullopt, session);
}

Halvora& Halvora::createSession(SessionCallback callback) {
    HALVORA_ASSERT_MAIN_THREAD();
    requestSession("POST", std::nullopt, std::move(callback));
    return *this;
}

Halvora& Halvora::getSession(const std::string& idOrCode, SessionCallback callback) {
    HALVORA_ASSERT_MAIN_THREAD();
    requestSession(std::nullopt, idOrCode, std::move(callback));
    return *this;
}

void Halvora::requestSession(std::optional<std::string> method, std::optional<std::string> idOrCode,
                             SessionCallback callback) {
    RequestOptions options;
    options.method = std::move(method);
    RequestCallback adopt = [this, callback = std::move(callback)](
                                OptionalError error, std::optional<Json> answer,
                                std::optional<platform::HttpResponse>) {
        adoptSession(std::move(answer), std::move(error), callback);
    };
    // On a first launch the credential comes with the first registration's answer; a session
    // asked for before it would reach the service from a device it cannot trust yet.
    device_->whenRegistered([this, options = std::move(options), idOrCode = std::move(idOrCode),
                             adopt = std::move(adopt)]() mutable {
        sendRequest(*context_, HLVSession::url(*context_, idOrCode), options, onMainQueue(std::move(adopt)));
    });
}

Halvora& Halvora::joinSession(const std::string& code, SessionCallback callback) {
    HALVORA_ASSERT_MAIN_THREAD();
    if (currentSession_ && currentSession_->isActive()) {
        callback(HLVError("Already in a session", 400), nullptr);
        return *this;
    }
    // Single flight per code: a second join (a push and a link for one session, say) waits for the
    // first instead of fetching and activating a second copy that would orphan the first.
    auto [waiting, first] = joining_.try_emplace(code);
    waiting->second.push_back(std::move(callback));
    if (!first) return *this;
    auto finish = [this, code](OptionalError error, std::shared_ptr<HLVSession> session) {
        auto callbacks = std::move(joining_[code]);
        joining_.erase(code);
        for (auto& waiter : callbacks) waiter(error, session);
    };
    getSession(code, [finish](OptionalError error, std::shared_ptr<HLVSession> session) {
        if (error) {
            finish(std::move(error), nullptr);
            return;
        }
        session->activate(finish);
    });
    return *this;
}

bool Halvora::isHalvoraNotification(const Json& payload) {
    const Json* marker = member(payload, "halvora-notification");
    if (!marker) return false;
    if (marker->is_boolean()) return marker->get<bool>();
    if (marker->is_number()) return marker->get<double>() != 0;
    return marker->is_string() && *marker == "true";
}

void Halvora::onPushNotification(const Json& payload) {
    HALVORA_ASSERT_MAIN_THREAD();
    if (!isHalvoraNotification(payload)) return;
    auto code = stringField(payload, "halvora-code");
    if (!code) return;
    joinFromOutside(*code);
}

void Halvora::joinFromOutside(const std::string& code) {
    auto& halvora = instance();
    if (halvora.askBeforeAgentSessions()) {
        halvora.askToJoin(code);
        return;
    }
    halvora.joinSession(code, [](OptionalError error, const std::shared_ptr<HLVSession>&) {
        if (error) platform::log("Error joining session " + error->description());
    });
}

void Halvora::askToJoin(const std::string& code) {
    HALVORA_ASSERT_MAIN_THREAD();
    if (currentSession_ && currentSession_->isActive()) {
        platform::log("Error joining session " + HLVError("Already in a session", 400).description());
        return;
    }
    // One question per session: a push and a socket message for it fetch it once, and a flow
    // already asking about it is not replaced (fetching again would clean up the session it shows).
    if (auto shown = shownFlow(); shown && currentSession_ && shown->session() == currentSession_ &&
                                  currentSession_->code() == code) {
        return;
    }
    if (!asking_.insert(code).second) return;
    getSession(code, [this, code](OptionalError error, std::shared_ptr<HLVSession> session) {
        asking_.erase(code);
        if (error) {
            platform::log("Error joining session " + error->description());
            return;
        }
        // A flow showing another session (the code screen of one the user started) gives way.
        if (auto shown = shownFlow()) shown->close();
        auto flow = HLVViewController::make(FacadeAccess::sessionSource());
        flow->showSession(session);
        if (!presentFlow(flow)) {
            platform::log("Halvora cannot ask the user about session " + code + "; not joining");
        }
    });
}

ServiceContextPtr FacadeAccess::context() { return Halvora::instance().context_; }

std::shared_ptr<HLVSession> FacadeAccess::makeSession() { return Halvora::instance().makeSession(); }

}  // namespace halvora
