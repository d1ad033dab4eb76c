#include "core/app_forwarding.h"

#include <algorithm>
#include <cctype>

#include "core/halvora.h"
#include "device/device.h"
#include "platform/log.h"

namespace halvora {
namespace {

struct LinkParts {
    std::string host;
    std::vector<std::string> components;  // "/" first, like a path's components
};

// Splits "<scheme>://<authority>/<path>[?query][#fragment]"; none for anything without a scheme.
std::optional<LinkParts> splitLink(const std::string& url) {
    auto schemeEnd = url.find("://");
    if (schemeEnd == std::string::npos || schemeEnd == 0) return std::nullopt;
    auto authorityStart = schemeEnd + 3;
    auto pathStart = url.find_first_of("/?#", authorityStart);
    std::string authority = url.substr(authorityStart, pathStart == std::string::npos ? std::string::npos
                                                                                      : pathStart - authorityStart);
    if (auto at = authority.rfind('@'); at != std::string::npos) authority.erase(0, at + 1);
    if (auto colon = authority.rfind(':'); colon != std::string::npos) authority.erase(colon);
    std::transform(authority.begin(), authority.end(), authority.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });

    LinkParts parts{authority, {"/"}};
    if (pathStart == std::string::npos || url[pathStart] != '/') return parts;
    auto pathEnd = url.find_first_of("?#", pathStart);
    std::string path = url.substr(pathStart, pathEnd == std::string::npos ? std::string::npos : pathEnd - pathStart);
    std::size_t at = 0;
    while (at < path.size()) {
        auto next = path.find('/', at);
        if (next == std::string::npos) next = path.size();
        if (next > at) parts.components.push_back(path.substr(at, next - at));
        at = next + 1;
    }
    return parts;
}

}  // namespace

void HalvoraAppEvents::didRegisterForRemoteNotifications(const std::vector<std::uint8_t>& deviceToken) {
    auto& halvora = Halvora::instance();
    halvora.device()->setToken(deviceToken);
    if (halvora.isStarted()) halvora.device()->registerDevice(nullptr);
}

void HalvoraAppEvents::didReceiveRemoteNotification(const Json& userInfo) { Halvora::onPushNotification(userInfo); }

void HalvoraAppEvents::didOpenUrl(const std::string& url) {
    auto parts = splitLink(url);
    if (!parts || parts->host != Halvora::instance().linkHost()) return;
    if (parts->components.size() != 3) platform::log("expected halvora link to have 3 components");
    // A link with only the root has no kind to read; it is invalid rather than an error.
    const std::string kind = parts->components.size() > 1 ? parts->components[1] : "";
    const std::string& code = parts->components.back();
    if (kind == "session" && code.size() == 6) {
        Halvora::joinFromOutside(code);
        return;
    }
    platform::log("halvora link invalid " + kind + " " + code + " " + url);
}

}  // namespace halvora
