#include "protocol/wire_headers.h"

#include "halvora/version.h"

namespace halvora {

platform::HeaderList requestHeaders() {
    return {
        {"X-HalvoraPlatform", kDevicePlatform},
        {"X-HalvoraSDKVersion", kHalvoraVersion},
        {"Content-Type", "application/json; charset=utf-8"},
    };
}

platform::HeaderList socketHeaders(const std::string& token) {
    return {
        {"Authorization", "Bearer " + token},
        {"X-HalvoraSDKVersion", kHalvoraVersion},
        {"X-HalvoraPlatform", kDevicePlatform},
    };
}

}  // namespace halvora
