#pragma once
// The platform callbacks a host application forwards to the library. A C++ host has no run-time
// method replacement, so the application's own handlers call these (each is safe to call for any
// payload: what is not the library's is ignored). Main thread only.
//
//   // push registration succeeded
//   halvora::HalvoraAppEvents::didRegisterForRemoteNotifications(tokenBytes);
//   // a push arrived
//   halvora::HalvoraAppEvents::didReceiveRemoteNotification(userInfo);
//   // the application was opened with a link
//   halvora::HalvoraAppEvents::didOpenUrl("https://link.halvora.io/session/123456");

#include <cstdint>
#include <string>
#include <vector>

#include "halvora/json.h"

namespace halvora {

struct HalvoraAppEvents {
    // Keeps the push token for registrations and, while started, registers at once so the
    // service can reach the device without waiting for the next registration.
    static void didRegisterForRemoteNotifications(const std::vector<std::uint8_t>& deviceToken);
    // Joins the session a payload of this library names; other payloads go to the integrations.
    static void didReceiveRemoteNotification(const Json& userInfo);
    // Joins the session of a link "<scheme>://<link host>/session/<6-character code>". Links to
    // other hosts are the application's own and are ignored; malformed session links are logged.
    static void didOpenUrl(const std::string& url);
};

}  // namespace halvora
