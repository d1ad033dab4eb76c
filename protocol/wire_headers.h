#pragma once
// The headers that identify the SDK to the service, on requests and on realtime connections, and
// the device credential some of them carry.

#include <optional>
#include <string>
#include <string_view>

#include "halvora/platform/http_client.h"

namespace halvora {

// The host's platform, in the platform header and the device description: the service and the
// agent see a Linux desktop as "linux", not as a phone.
#if defined(_WIN32)
inline constexpr const char* kDevicePlatform = "windows";
#elif defined(__APPLE__)
inline constexpr const char* kDevicePlatform = "macos";
#elif defined(__linux__)
inline constexpr const char* kDevicePlatform = "linux";
#else
inline constexpr const char* kDevicePlatform = "unknown";
#endif

// Store key of the secret the service issues with a device's first registration. Presented with
// everything the device sends, it tells the service that this is the installation that registered
// the identifier, not another one that copied it.
inline constexpr const char* kDeviceCredentialKey = "halvora_device_credential";

// Whether `value` can be a credential: 1 to 512 printable ASCII characters, none of them a space.
bool isDeviceCredential(std::string_view value);
// The credential in the store; none when it holds none, or something that cannot be one.
std::optional<std::string> storedDeviceCredential();

// The headers of every REST request, in order; "Authorization: Bearer <credential>" last when
// given one.
platform::HeaderList requestHeaders(const std::optional<std::string>& credential);
// The headers of a session connection authorised by `token`, in order.
platform::HeaderList socketHeaders(const std::string& token);
// The notification connection's: socketHeaders(token), then "X-HalvoraDeviceCredential" while a
// credential is stored.
platform::HeaderList deviceSocketHeaders(const std::string& token);

}  // namespace halvora
