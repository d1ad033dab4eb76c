#include "core/halvora.h"

#include <cctype>
#include <variant>

#include "control/key_press.h"
#include "control/touch_event.h"
#include "core/halvora_delegate.h"
#include "core/url_record.h"
#include "device/device.h"
#include "overlay/halvora_window.h"
#include "platform/log.h"
#include "platform/platform.h"
#include "session/session.h"

namespace halvora {

Halvora& Halvora::instance() {
    // Deliberately leaked: the facade outlives every callback that may still reach it at exit.
    static Halvora* const shared = new Halvora();
    return *shared;
}

Halvora::Halvora()
    : overlay_(std::make_unique<HLVHalvoraWindow>()),
      api_(kDefaultApi),
      device_(HLVDevice::create()) {}

Halvora::~Halvora() = default;

bool Halvora::autostarts() {
    auto value = platform::appInfo().infoValue("HLVAutostart");
    if (!value) return true;
    if (const bool* flag = std::get_if<bool>(&*value)) return *flag;
    // A string value reads as a property list's boolean would: yes/true/a non-zero digit.
    const auto& text = std::get<std::string>(*value);
    auto first = text.find_first_not_of(" \t");
    if (first == std::string::npos) return false;
    char c = static_cast<char>(std::tolower(static_cast<unsigned char>(text[first])));
    return c == 'y' || c == 't' || (c >= '1' && c <= '9');
}

void Halvora::request(const std::string& url, const RequestOptions& options, RequestCallback callback) {
    sendRequest(url, options, std::move(callback));
}

Halvora& Halvora::start() {
    if (started_) return *this;
    platform::log(std::string("Initialised Halvora SDK ") + version());
    started_ = true;
    reinitialize();
    return *this;
}

Halvora& Halvora::stop() {
    // Both requests go out before the started flag is cleared, since requests check it when issued.
    if (currentSession_ && currentSession_->isActive()) currentSession_->end(nullptr);
    device_->deregister([](OptionalError error, const std::shared_ptr<HLVRESTResource>&) {
        if (error) {
            platform::log("Error stopping Halvora: " + error->description());
        } else {
            platform::log("Halvora Stopped");
        }
    });
    started_ = false;
    return *this;
}

void Halvora::reinitialize() {
    if (!started_) return;
    device_->runRegistrationLoop();
}

void Halvora::setApi(std::string api) {
    bool changed = api != api_;
    api_ = std::move(api);
    if (changed && started_) reinitialize();
    if (instance().api() != kDefaultApi) {
        platform::log("Warning: Halvora is using non-production API " + instance().api());
    }
}

void Halvora::setCustomData(const Json& data) {
    device_->setCustomData(data);
    if (started_) device_->registerDevice(nullptr);
}

Json Halvora::customData() const {
    auto data = device_->customData();
    return data ? *data : Json::object();
}

std::string Halvora::deviceId() const { return device_->id(); }

void Halvora::setOnStatusTap(std::function<void()> onTap) { overlay_->onStatusTap = std::move(onTap); }

std::function<void()> Halvora::onStatusTap() const { return overlay_->onStatusTap; }

void Halvora::setCurrentSession(std::shared_ptr<HLVSession> session) {
    if (currentSession_) currentSession_->cleanup();
    currentSession_ = std::move(session);
    if (!currentSession_) return;

    // The delegate's questions are asked about the session that was current when installed.
    std::weak_ptr<HLVSession> installedFor = currentSession_;
    currentSession_->onAgentEvent([this, installedFor](const AgentEventPtr& event) {
        routeAgentEvent(event, installedFor.lock());
    });
    currentSession_->onUpdated([this](const std::shared_ptr<HLVSession>& updated) {
        if (delegate_) delegate_->halvoraSessionDidUpdate(updated);
    });
    currentSession_->onActivated([this](const std::shared_ptr<HLVSession>&) {
        overlay_->setActive(true);
        // Keep the display awake while the agent watches. Never switched back: the application
        // may have its own reasons to keep it off, so the timer is left to it.
        platform::mainQueue().post([] { platform::application().setIdleTimerDisabled(true); });
    });
    currentSession_->onEnded([this](const std::shared_ptr<HLVSession>& ended) {
        // The application hears of the end before the banner goes.
        if (delegate_) delegate_->halvoraSessionDidEnd(ended);
        overlay_->setActive(false);
        currentSession_.reset();
        for (const auto& view : redactedViews_) unredact(view);
        redactedViews_.clear();
    });
}

void Halvora::routeAgentEvent(const AgentEventPtr& event, const std::shared_ptr<HLVSession>& session) {
    // The overlay sees everything first: laser and drawings only ever go there, and touches are
    // shown even when the delegate refuses them.
    overlay_->onAgentEvent(event);
    if (const auto* url = dynamic_cast<const HLVURL*>(event.get())) {
        if (url->url) openUrl(*url->url);
    } else if (const auto* touch = dynamic_cast<const HLVTouchEvent*>(event.get())) {
        if (delegate_ && delegate_->halvoraShouldAllowTouchEvent(*touch, session) == false) return;
        if (touchInjector_) touchInjector_(*touch);
    } else if (const auto* key = dynamic_cast<const HLVKeyPress*>(event.get())) {
        if (delegate_ && delegate_->halvoraShouldAllowKeyEvent(*key, session) == false) return;
        if (keyInjector_) keyInjector_(*key);
    }
}

void Halvora::openUrl(const std::string& url) {
    if (!isOpenableWebUrl(url)) return;
    platform::urlOpener().open(url);
}

void Halvora::adoptSession(std::optional<Json> answer, OptionalError error, const SessionCallback& callback) {
    if (error) {
        callback(std::move(error), nullptr);
        return;
    }
    auto session = HLVSession::create();
    if (auto invalid = session->updateResource(std::move(answer))) {
        callback(std::move(invalid), nullptr);
        return;
    }
    setCurrentSession(session);
    callback(std::nullopt, session);
}

Halvora& Halvora::createSession(SessionCallback callback) {
    RequestOptions options;
    options.method = "POST";
    RequestCallback adopt = [this, callback = std::move(callback)](
                                OptionalError error, std::optional<Json> answer,
                                std::optional<platform::HttpResponse>) {
        adoptSession(std::move(answer), std::move(error), callback);
    };
    request(HLVSession::url(std::nullopt), options, onMainQueue(std::move(adopt)));
    return *this;
}

Halvora& Halvora::getSession(const std::string& idOrCode, SessionCallback callback) {
    RequestCallback adopt = [this, callback = std::move(callback)](
                                OptionalError error, std::optional<Json> answer,
                                std::optional<platform::HttpResponse>) {
        adoptSession(std::move(answer), std::move(error), callback);
    };
    request(HLVSession::url(idOrCode), {}, onMainQueue(std::move(adopt)));
    return *this;
}

Halvora& Halvora::joinSession(const std::string& code, SessionCallback callback) {
    if (currentSession_ && currentSession_->isActive()) {
        callback(HLVError("Already in a session", 400), nullptr);
        return *this;
    }
    getSession(code, [callback = std::move(callback)](OptionalError error, std::shared_ptr<HLVSession> session) {
        if (error) {
            callback(std::move(error), nullptr);
            return;
        }
        session->activate(callback);
    });
    return *this;
}

bool Halvora::isHalvoraNotification(const Json& payload) {
    if (!payload.is_object()) return false;
    auto marker = payload.find("halvora-notification");
    if (marker == payload.end()) return false;
    if (marker->is_boolean()) return marker->get<bool>();
    if (marker->is_number()) return marker->get<double>() != 0;
    return marker->is_string() && *marker == "true";
}

void Halvora::onPushNotification(const Json& payload) {
    if (!isHalvoraNotification(payload)) return;
    auto code = stringField(payload, "halvora-code");
    if (!code) return;
    joinFromOutside(*code);
}

void Halvora::joinFromOutside(const std::string& code) {
    instance().joinSession(code, [](OptionalError error, const std::shared_ptr<HLVSession>&) {
        if (error) platform::log("Error joining session " + error->description());
    });
}

}  // namespace halvora
