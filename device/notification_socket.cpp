// The notification connection: the service tells a registered device over it that the agent has
// started a session, with the same payload as a push.

#include <chrono>

#include "core/halvora.h"
#include "core/url_record.h"
#include "device/device.h"
#include "platform/log.h"
#include "platform/platform.h"

namespace halvora {

void HLVDevice::openNotificationSocket() {
    auto url = stringField(resource().value_or(Json()), "notification_url");
    if (!url || !isSocketUrl(*url)) return;
    if (notificationSocket_) return;

    platform::RealtimeSocketConfig config;
    config.path = kNotificationPath;
    config.extraHeaders = headers(stringField(*resource(), "notification_token").value_or(""));
    config.reconnectWait = kNotificationReconnectWait;
    notificationSocket_ = platform::sockets().make(*url, std::move(config));

    std::weak_ptr<HLVDevice> weak = self();
    using Items = platform::RealtimeSocket::Items;
    notificationSocket_->on("notification", [](const Items& items) {
        if (!items.empty()) Halvora::onPushNotification(items[0]);
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
                device->notificationSocket_->setExtraHeaders(headers(token.value_or("")));
            });
    });
    notificationSocket_->on("reconnectAttempt", [weak](const Items&) {
        // A lost connection is not retried; the stopped manager is kept so later registrations
        // do not reopen it. Pushes remain the way sessions start until the device re-registers.
        if (auto device = weak.lock(); device && device->notificationSocket_) device->notificationSocket_->disconnect();
    });
    notificationSocket_->connect();
}

}  // namespace halvora
