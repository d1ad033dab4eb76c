#include "halvora/app_events.h"

#include "device/device.h"
#include "halvora/halvora.h"
#include "platform/main_thread.h"

namespace halvora {

void HalvoraAppEvents::didRegisterForRemoteNotifications(const std::vector<std::uint8_t>& deviceToken) {
    HALVORA_ASSERT_MAIN_THREAD();
    auto& halvora = Halvora::instance();
    halvora.device()->setToken(deviceToken);
    if (halvora.isStarted()) halvora.device()->registerDevice(nullptr);
}

void HalvoraAppEvents::didReceiveRemoteNotification(const Json& userInfo) {
    Halvora::onInterceptedNotification(userInfo);
}

void HalvoraAppEvents::didOpenUrl(const std::string& url) { Halvora::onInterceptedURL(url); }

}  // namespace halvora
