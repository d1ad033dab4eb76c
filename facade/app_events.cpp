#include "halvora/app_events.h"

#include <algorithm>
#include <cctype>

#include "base/url_parts.h"
#include "device/device.h"
#include "halvora/halvora.h"
#include "halvora/platform/log.h"
#include "platform/main_thread.h"

namespace halvora {
namespace {

// The path's components, "/" first, like a file URL's path components.
std::vector<std::string> pathComponents(const std::string& path) {
    std::vector<std::string> components{"/"};
    std::size_t at = 0;
    while (at < path.size()) {
        auto next = path.find('/', at);
        if (next == std::string::npos) next = path.size();
        if (next > at) components.push_back(path.substr(at, next - at));
        at = next + 1;
    }
    return components;
}

}  // namespace

void HalvoraAppEvents::didRegisterForRemoteNotifications(const std::vector<std::uint8_t>& deviceToken) {
    HALVORA_ASSERT_MAIN_THREAD();
    auto& halvora = Halvora::instance();
    halvora.device()->setToken(deviceToken);
    if (halvora.isStarted()) halvora.device()->registerDevice(nullptr);
}

void HalvoraAppEvents::didReceiveRemoteNotification(const Json& userInfo) { Halvora::onPushNotification(userInfo); }

void HalvoraAppEvents::didOpenUrl(const std::string& url) {
    HALVORA_ASSERT_MAIN_THREAD();
    auto parts = splitUrl(url);
    if (!parts) return;
    std::string host = parts->host;
    std::transform(host.begin(), host.end(), host.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    if (host != Halvora::instance().linkHost()) return;
    const auto components = pathComponents(parts->path);
    if (components.size() != 3) platform::log("expected halvora link to have 3 components");
    // A link with only the root has no kind to read; it is invalid rather than an error.
    const std::string kind = components.size() > 1 ? components[1] : "";
    const std::string& code = components.back();
    if (kind == "session" && code.size() == 6) {
        Halvora::joinFromOutside(code);
        return;
    }
    platform::log("halvora link invalid " + kind + " " + code + " " + url);
}

}  // namespace halvora
