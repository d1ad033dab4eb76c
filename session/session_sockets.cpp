#include "session/session_sockets.h"

#include <chrono>

#include "base/json_fields.h"
#include "halvora/agent_events.h"
#include "halvora/platform.h"
#include "halvora/session.h"
#include "protocol/web_url.h"
#include "protocol/wire_headers.h"

namespace halvora {
namespace {

using Items = platform::RealtimeSocket::Items;

const Json& firstItem(const Items& items) {
    static const Json kNull;
    return items.empty() ? kNull : items[0];
}

// A "sync" whose argument holds "regions": true comes from agents that composite changed regions
// onto the picture they have; anything else asks for whole frames.
bool announcesRegions(const Json& payload) {
    if (!payload.is_object()) return false;
    const auto regions = payload.find("regions");
    return regions != payload.end() && regions->is_boolean() && regions->get<bool>();
}

}  // namespace

std::shared_ptr<HLVSessionSockets> HLVSessionSockets::create(const std::shared_ptr<HLVSession>& session) {
    std::shared_ptr<HLVSessionSockets> sockets(new HLVSessionSockets(session));
    // Both callbacks keep the sockets alive for as long as the session keeps its callbacks.
    session->onUpdated([sockets](const std::shared_ptr<HLVSession>&) { sockets->open(); });
    session->onEnded([sockets](const std::shared_ptr<HLVSession>&) { sockets->close(); });
    return sockets;
}

void HLVSessionSockets::open() {
    auto session = session_.lock();
    if (!session || session->isEnded()) return;
    openControlSocket();
    openStreamSocket();
}

void HLVSessionSockets::close() {
    if (control_) control_->disconnect();
    if (stream_) stream_->disconnect();
    control_.reset();
    stream_.reset();
}

std::shared_ptr<platform::RealtimeSocket> HLVSessionSockets::makeSocket(const char* urlField,
                                                                        const char* tokenField) const {
    auto session = session_.lock();
    if (!session) return nullptr;
    auto url = session->resource() ? stringField(*session->resource(), urlField) : std::nullopt;
    if (!url || !isSocketUrl(*url)) return nullptr;
    auto token = session->resource() ? stringField(*session->resource(), tokenField) : std::nullopt;
    platform::RealtimeSocketConfig config;
    config.path = kPath;
    config.extraHeaders = socketHeaders(token.value_or(""));
    return platform::sockets().make(*url, std::move(config));
}

void HLVSessionSockets::openControlSocket() {
    if (control_) return;
    control_ = makeSocket("control_url", "control_token");
    if (!control_) return;
    registerControlHandlers(*control_);
    control_->connect();
}

void HLVSessionSockets::openStreamSocket() {
    if (stream_) return;
    stream_ = makeSocket("stream_url", "stream_token");
    if (!stream_) return;
    registerStreamHandlers(*stream_);
    stream_->connect();
}

void HLVSessionSockets::registerControlHandlers(platform::RealtimeSocket& socket) {
    std::weak_ptr<HLVSessionSockets> weak = weak_from_this();
    socket.on("session", [weak](const Items& items) {
        auto self = weak.lock();
        auto session = self ? self->session_.lock() : nullptr;
        // Pushes are adopted like any answer; a record that does not validate is ignored.
        if (session) session->updateResource(firstItem(items));
    });
    socket.on("connect", [weak](const Items&) {
        auto self = weak.lock();
        if (self) self->connected(Channel::control);
        auto session = self ? self->session_.lock() : nullptr;
        // Catch up on whatever changed while disconnected.
        if (session) session->fetch(HLVSession::SessionCompletion());
    });
    socket.on("error", [weak](const Items& items) {
        if (auto self = weak.lock()) self->onError(Channel::control, items);
    });
}

void HLVSessionSockets::registerStreamHandlers(platform::RealtimeSocket& socket) {
    std::weak_ptr<HLVSessionSockets> weak = weak_from_this();
    auto deliver = [weak](const char* eventName) {
        return [weak, eventName](const Items& items) {
            auto self = weak.lock();
            auto session = self ? self->session_.lock() : nullptr;
            if (!session) return;
            // A record of the wrong type is dropped, like an unknown event.
            if (auto event = agentEventFrom(eventName, firstItem(items))) session->agentEventReceived(*event);
        };
    };
    socket.on("error", [weak](const Items& items) {
        if (auto self = weak.lock()) self->onError(Channel::stream, items);
    });
    socket.on("connect", [weak](const Items&) {
        if (auto self = weak.lock()) self->connected(Channel::stream);
    });
    socket.on("drawing", deliver("drawing"));
    socket.on("laser", deliver("laser"));
    socket.on("url", deliver("url"));
    socket.on("touch", deliver("touch"));
    socket.on("keypress", deliver("keypress"));
    socket.on("sync", [weak](const Items& items) {
        auto self = weak.lock();
        auto session = self ? self->session_.lock() : nullptr;
        if (session) session->agentAsksForPicture(announcesRegions(firstItem(items)));
    });
    socket.on("probe", [weak](const Items& items) {
        auto self = weak.lock();
        if (self && self->stream_) self->stream_->emitEvent("alive", Items{firstItem(items)});
    });
}

void HLVSessionSockets::onError(Channel channel, const Items& items) {
    const int failures = ++failures_[static_cast<int>(channel)];
    // One line when a connection starts failing, not one per try.
    if (failures == 1) platform::log("error " + describeFirst(items));
    // The client's own retries report errors too; one rebuild at a time, or they pile up.
    bool& pending = rebuildPending_[static_cast<int>(channel)];
    if (pending) return;
    pending = true;
    auto self = shared_from_this();
    updateSocketTokens([self, channel, failures] {
        const Backoff::Seconds wait = failures <= 1 ? Backoff::Seconds(kRebuildDelaySeconds)
                                                    : self->rebuildBackoff_.delay(failures);
        platform::mainQueue().postAfter(std::chrono::duration_cast<platform::Duration>(wait), [self, channel] {
            self->rebuildPending_[static_cast<int>(channel)] = false;
            self->rebuild(channel);
        });
    });
}

void HLVSessionSockets::connected(Channel channel) {
    int& failures = failures_[static_cast<int>(channel)];
    if (failures > 0) platform::log("Halvora session connection restored");
    failures = 0;
}

void HLVSessionSockets::rebuild(Channel channel) {
    auto& socket = channel == Channel::control ? control_ : stream_;
    if (socket) socket->disconnect();
    socket.reset();
    // A session that ended or went away meanwhile keeps its connections closed.
    auto session = session_.lock();
    if (!session || session->isEnded()) return;
    if (channel == Channel::control) {
        openControlSocket();
    } else {
        openStreamSocket();
    }
}

void HLVSessionSockets::updateSocketTokens(std::function<void()> completion) {
    auto session = session_.lock();
    if (!session) {
        completion();
        return;
    }
    auto self = shared_from_this();
    session->fetch([self, completion = std::move(completion)](OptionalError error,
                                                              const std::shared_ptr<HLVSession>& fetched) {
        auto current = self->session_.lock();
        const bool gone = error && error->domain() == HLVError::kDomain && (error->code() == 404 || error->code() == 401);
        if (gone && current) {
            // The service no longer knows the session (it restarted without it, or it was
            // removed), or no longer knows this device as its own: nothing can bring it back,
            // so it ends here and the application hears so.
            platform::log("Halvora session not found at the service; ending it");
            current->endLocally();
        } else if (error) {
            if (!self->refreshFailing_) platform::log("error fetching resource update " + error->description());
            self->refreshFailing_ = true;
        } else if (fetched && fetched->resource()) {
            self->refreshFailing_ = false;
            const Json& record = *fetched->resource();
            if (self->stream_) self->stream_->setExtraHeaders(socketHeaders(stringField(record, "stream_token").value_or("")));
            if (self->control_) self->control_->setExtraHeaders(socketHeaders(stringField(record, "control_token").value_or("")));
        }
        completion();
    });
}

}  // namespace halvora
