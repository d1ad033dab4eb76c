#pragma once
// The headers that identify the SDK to the service, on requests and on realtime connections, and
// the device credential some of them carry.

#include <optional>
#include <string>
#include <string_view>

#include "halvora/platform/http_client.h"

namespace halvora {

// The device kind the service knows this SDK as; the service only accepts this value.
inline constexpr const char* kDevicePlatform = "ios";

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
