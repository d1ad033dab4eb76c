#include "halvora/session.h"

#include "base/json_fields.h"
#include "device/device.h"
#include "rest/service_context.h"
#include "session/session_frames.h"
#include "session/session_sockets.h"

namespace halvora {

HLVSession::HLVSession(std::shared_ptr<const ServiceContext> context, std::shared_ptr<HLVDevice> device)
    : HLVRESTResource(std::move(context)), device_(std::move(device)), frames_(std::make_unique<SessionFrames>()) {}

HLVSession::~HLVSession() = default;

std::shared_ptr<HLVSession> HLVSession::create(std::shared_ptr<const ServiceContext> context,
                                               std::shared_ptr<HLVDevice> device) {
    std::shared_ptr<HLVSession> session(new HLVSession(std::move(context), std::move(device)));
    session->sockets_ = HLVSessionSockets::create(session);
    return session;
}

std::shared_ptr<HLVSession> HLVSession::self() {
    return std::static_pointer_cast<HLVSession>(shared_from_this());
}

std::string HLVSession::url(const ServiceContext& context, const std::optional<std::string>& idOrCode) {
    std::string collection = context.api + "/api/1/sessions";
    return idOrCode ? collection + "/" + *idOrCode : collection;
}

namespace {
// The text form of an "id" or "code" value as it goes into a URL.
std::optional<std::string> pathValue(const std::optional<Json>& value) {
    if (!value || value->is_null()) return std::nullopt;
    if (value->is_string()) return value->get<std::string>();
    return value->dump();
}
}  // namespace

std::string HLVSession::url() const {
    if (auto id = pathValue(field("id"))) return url(*context(), id);
    return url(*context(), pathValue(field("code")));
}

OptionalError HLVSession::updateResource(std::optional<Json> value) {
    if (!value || !value->is_object()) return HLVError("Expecting session to be a dictionary", 0);
    if (stringField(*value, "type") != "Session") return HLVError("Expected a Session resource", 0);
    if (!value->contains("id")) return HLVError("Expected session to have an ID", 0);
    if (!value->contains("state")) return HLVError("Expected session to have a state field", 0);

    bool wasEnded = isEnded();
    HLVRESTResource::updateResource(std::move(value));
    // Copies: a callback may register or clean up while these run.
    notify(std::vector<SessionHandler>(onUpdated_));
    if (!wasEnded && isEnded()) notify(std::vector<SessionHandler>(onEnded_));
    return std::nullopt;
}

void HLVSession::notify(const std::vector<SessionHandler>& handlers) {
    auto session = self();
    for (const auto& handler : handlers) handler(session);
}

HLVRESTResource::Completion HLVSession::adapt(SessionCompletion completion) {
    if (!completion) return nullptr;
    return [completion = std::move(completion)](OptionalError error,
                                                const std::shared_ptr<HLVRESTResource>& resource) {
        completion(std::move(error), std::static_pointer_cast<HLVSession>(resource));
    };
}

void HLVSession::fetch(SessionCompletion completion) { HLVRESTResource::fetch(adapt(std::move(completion))); }

void HLVSession::update(const Json& body, SessionCompletion completion) {
    HLVRESTResource::update(body, adapt(std::move(completion)));
}

HLVSession& HLVSession::onUpdated(SessionHandler handler) {
    onUpdated_.push_back(std::move(handler));
    return *this;
}

HLVSession& HLVSession::onActivated(SessionHandler handler) {
    onActivated_.push_back(std::move(handler));
    return *this;
}

HLVSession& HLVSession::onEnded(SessionHandler handler) {
    onEnded_.push_back(std::move(handler));
    return *this;
}

HLVSession& HLVSession::onAgentEvent(AgentEventHandler handler) {
    onAgentEvent_.push_back(std::move(handler));
    return *this;
}

void HLVSession::activate(SessionCompletion completion) {
    Json body = Json::object();
    body["state"] = "active";
    body["device"] = HLVDevice::info();
    auto customData = device_ ? device_->customData() : std::nullopt;
    body["custom_data"] = customData ? *customData : Json::object();
    update(body, [completion = std::move(completion)](OptionalError error,
                                                      const std::shared_ptr<HLVSession>& session) {
        if (error) {
            completion(std::move(error), nullptr);
            return;
        }
        if (session->isActive()) {
            session->frameLoop();
            session->notify(std::vector<SessionHandler>(session->onActivated_));
        }
        completion(std::nullopt, session);
    });
}

void HLVSession::end(SessionCompletion completion) {
    update(Json{{"state", "ended"}}, std::move(completion));
}

void HLVSession::endLocally() {
    if (!resource() || isEnded()) return;
    Json ended = *resource();
    ended["state"] = "ended";
    updateResource(std::move(ended));
}

std::optional<std::string> HLVSession::code() const {
    return resource() ? stringField(*resource(), "code") : std::nullopt;
}

std::optional<std::string> HLVSession::state() const {
    return resource() ? stringField(*resource(), "state") : std::nullopt;
}

std::shared_ptr<HLVAgent> HLVSession::agent() const {
    auto value = field("agent");
    return value ? HLVAgent::from(*value) : nullptr;
}

void HLVSession::agentEventReceived(const HLVAgentEvent& event) {
    for (const auto& handler : std::vector<AgentEventHandler>(onAgentEvent_)) handler(event);
}

void HLVSession::cleanup() {
    if (sockets_) sockets_->close();
    sockets_.reset();
    onActivated_.clear();
    onEnded_.clear();
    onUpdated_.clear();
    onAgentEvent_.clear();
    HLVRESTResource::cleanup();
}

}  // namespace halvora
