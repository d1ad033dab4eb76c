#include "protocol/wire_headers.h"

#include <algorithm>

#include "halvora/platform.h"
#include "halvora/version.h"

namespace halvora {

bool isDeviceCredential(std::string_view value) {
    return !value.empty() && value.size() <= 512 &&
           std::all_of(value.begin(), value.end(), [](char c) { return c > ' ' && c <= '~'; });
}

std::optional<std::string> storedDeviceCredential() {
    // Read at every use: the store caches, and a credential replaced or removed applies at once.
    auto stored = platform::store().get(kDeviceCredentialKey);
    if (!stored || !isDeviceCredential(*stored)) return std::nullopt;
    return stored;
}

platform::HeaderList requestHeaders(const std::optional<std::string>& credential) {
    platform::HeaderList headers{
        {"X-HalvoraPlatform", kDevicePlatform},
        {"X-HalvoraSDKVersion", kHalvoraVersion},
        {"Content-Type", "application/json; charset=utf-8"},
    };
    if (credential) headers.emplace_back("Authorization", "Bearer " + *credential);
    return headers;
}

platform::HeaderList socketHeaders(const std::string& token) {
    return {
        {"Authorization", "Bearer " + token},
        {"X-HalvoraSDKVersion", kHalvoraVersion},
        {"X-HalvoraPlatform", kDevicePlatform},
    };
}

platform::HeaderList deviceSocketHeaders(const std::string& token) {
    auto headers = socketHeaders(token);
    if (auto credential = storedDeviceCredential()) headers.emplace_back("X-HalvoraDeviceCredential", *credential);
    return headers;
}

}  // namespace halvora
