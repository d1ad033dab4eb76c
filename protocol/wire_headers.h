#pragma once
// The headers that identify the SDK to the service, on requests and on realtime connections.

#include <string>

#include "halvora/platform/http_client.h"

namespace halvora {

// The device kind the service knows this SDK as; the service only accepts this value.
inline constexpr const char* kDevicePlatform = "ios";

// The headers of every REST request, in order.
platform::HeaderList requestHeaders();
// The headers of a device or session connection authorised by `token`, in order.
platform::HeaderList socketHeaders(const std::string& token);

}  // namespace halvora
