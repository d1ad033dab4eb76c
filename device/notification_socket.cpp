// The notification connection: the service tells a registered device over it that the agent has
// started a session, with the same payload as a push.

#include <chrono>

#include "base/json_fields.h"
#include "protocol/web_url.h"
#include "protocol/wire_headers.h"
#include "device/device.h"
#include "halvora/platform/log.h"
#include "halvora/platform.h"

namespace halvora {

void HLVDevice::openNotificationSocket() {
    auto url = stringField(resource().value_or(Json()), "notification_url");
    if (!url || !isSocketUrl(*url)) return;
    if (notificationSocket_) return;

    platform::RealtimeSocketConfig config;
    config.path = kNotificationPath;
    config.extraHeaders = deviceSocketHeaders(stringField(*resource(), "notification_token").value_or(""));
    config.reconnectWait = kNotificationReconnectWait;
    notificationSocket_ = platform::sockets().make(*url, std::move(config));

    std::weak_ptr<HLVDevice> weak = self();
    using Items = platform::RealtimeSocket::Items;
    notificationSocket_->on("notification", [weak](const Items& items) {
        auto device = weak.lock();
        if (device && device->onNotification_ && !items.empty()) device->onNotification_(items[0]);
    });
    notificationSocket_->on("error", [weak](const Items& items) {
        platform::log("error " + describeFirst(items));
        // The registration loop refreshes the token; the client's next attempt presents it.
        platform::mainQueue().postAfter(
            std::chrono::duration_cast<platform::Duration>(std::chrono::duration<double>(kHeaderRefreshDelaySeconds)),
            [weak] {
                auto device = weak.lock();
                if (!device || !device->notificationSocket_) return;
                auto token = stringField(device->resource().value_or(Json()), "notification_token");
                device->notificationSocket_->setExtraHeaders(deviceSocketHeaders(token.value_or("")));
            });
    });
    notificationSocket_->on("reconnectAttempt", [weak](const Items&) {
        // With push, a lost connection is not retried: the stopped manager is kept so later
        // registrations do not reopen it, and pushes start sessions until the device registers
        // afresh. Without push (a desktop) this connection is the only way an agent can start a
        // session, so the client keeps trying, with its growing, jittered wait.
        if (!platform::deviceInfo().isRegisteredForPushNotifications()) return;
        if (auto device = weak.lock(); device && device->notificationSocket_) device->notificationSocket_->disconnect();
    });
    notificationSocket_->connect();
}

}  // namespace halvora
