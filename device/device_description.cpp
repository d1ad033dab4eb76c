#include "base/json_fields.h"
#include "device/device.h"
#include "halvora/platform.h"
#include "halvora/version.h"
#include "protocol/wire_headers.h"

namespace halvora {
namespace {

// The last known location, only when the host already holds permission; never asks for it.
std::optional<platform::Location> lastKnownLocation() {
    auto* source = platform::deviceInfo().location();
    if (!source || !source->isAuthorized() || !source->servicesEnabled()) return std::nullopt;
    source->requestUpdate();  // a fresh fix for the next registration
    return source->lastKnown();
}

}  // namespace

Json HLVDevice::info() {
    const auto& app = platform::appInfo();
    const auto& device = platform::deviceInfo();
    auto location = lastKnownLocation().value_or(platform::Location{});

    Json description = Json::object();
    description["platform"] = kDevicePlatform;
    description["device"] = NotNil(device.hardwareModel());
    description["device_locale"] = NotNil(app.preferredLocalization());
    description["device_timezone"] = NotNil(device.timeZoneAbbreviation());
    description["os_name"] = NotNil(device.osName());
    description["os_version"] = NotNil(device.osVersion());
    description["app_id"] = NotNil(app.identifier());
    description["app_name"] = NotNil(app.displayName());
    description["app_installation_id"] = NotNil(device.installationId());
    description["app_version"] = NotNil(app.shortVersion());
    description["app_build"] = NotNil(app.buildNumber());
    description["app_build_configuration"] = "release";
    description["sdk_version"] = kHalvoraVersion;
    description["latitude"] = location.latitude;
    description["longitude"] = location.longitude;
    description["altitude"] = location.altitude;
    description["horizontal_accuracy"] = location.horizontalAccuracy;
    description["vertical_accuracy"] = location.verticalAccuracy;
    description["push_enabled"] = device.isRegisteredForPushNotifications();
    return description;
}

}  // namespace halvora
