// The integration registry and the callbacks the host forwards (links and notifications).

#include <algorithm>
#include <cctype>

#include "base/url_parts.h"
#include "halvora/halvora.h"
#include "halvora/integration.h"
#include "halvora/platform.h"
#include "platform/main_thread.h"

namespace halvora {
namespace {

std::vector<std::shared_ptr<HLVIntegration>>& registry() {
    static std::vector<std::shared_ptr<HLVIntegration>> integrations;
    return integrations;
}

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

void Halvora::addIntegration(std::shared_ptr<HLVIntegration> integration) {
    HALVORA_ASSERT_MAIN_THREAD();
    if (!integration) return;
    auto& integrations = registry();
    if (std::find(integrations.begin(), integrations.end(), integration) == integrations.end()) {
        integrations.push_back(std::move(integration));
    }
}

void Halvora::initializeIntegrations() {
    HALVORA_ASSERT_MAIN_THREAD();
    interceptNotifications();
    interceptDeepLinks();
    for (const auto& integration : registry()) {
        platform::log("Initialised Halvora integration for " + integration->name());
        integration->configure();
    }
}

void Halvora::interceptNotifications() {
    static bool intercepted = false;
    if (intercepted) return;
    intercepted = true;
    platform::application().interceptNotifications([](const Json& userInfo) { onInterceptedNotification(userInfo); });
}

void Halvora::interceptDeepLinks() {
    static bool intercepted = false;
    if (intercepted) return;
    intercepted = true;
    platform::application().interceptLinks([](const std::string& url) { onInterceptedURL(url); });
}

void Halvora::onInterceptedURL(const std::string& url) {
    HALVORA_ASSERT_MAIN_THREAD();
    auto parts = splitUrl(url);
    if (!parts) return;
    std::string host = parts->host;
    std::transform(host.begin(), host.end(), host.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    if (host != instance().linkHost()) return;  // the application's own links
    const auto components = pathComponents(parts->path);
    if (components.size() != 3) platform::log("expected halvora link to have 3 components");
    // A link with only the root has no kind to read; it is invalid rather than an error.
    const std::string kind = components.size() > 1 ? components[1] : "";
    const std::string& code = components.back();
    if (kind == "session" && code.size() == 6) {
        joinFromOutside(code);
        return;
    }
    platform::log("halvora link invalid " + kind + " " + code + " " + url);
}

void Halvora::onInterceptedNotification(const Json& userInfo) {
    HALVORA_ASSERT_MAIN_THREAD();
    if (isHalvoraNotification(userInfo)) {
        onPushNotification(userInfo);
        return;
    }
    for (const auto& integration : registry()) integration->onPushNotification(userInfo);
}

std::shared_ptr<HLVIntercom> HLVIntercom::install(HLVIntercomHooks hooks) {
    auto intercom = std::make_shared<HLVIntercom>(std::move(hooks));
    if (!intercom->isAvailable()) return nullptr;
    Halvora::addIntegration(intercom);
    return intercom;
}

// Both operations or none: one alone cannot put the identifier on the Intercom user.
bool HLVIntercom::isAvailable() const { return hooks_.setCustomAttributes && hooks_.updateUser; }

void HLVIntercom::updateUser() {
    const auto id = platform::deviceInfo().installationId();
    if (!id) {
        // A null would erase an identifier Intercom already has for this user.
        platform::log("Halvora has no installation identifier to give Intercom");
        return;
    }
    if (hooks_.setCustomAttributes) {
        hooks_.setCustomAttributes(Json{{"HalvoraID", *id}});
    } else {
        platform::log("Warning: ICMUserAttributes should respond to setCustomAttributes:");
    }
    if (hooks_.updateUser) {
        hooks_.updateUser();
    } else {
        platform::log("Warning: Intercom should respond to updateUser:");
    }
}

}  // namespace halvora
