#pragma once
// What the operating system says about the device. Every answer may be none when the platform
// cannot tell.

#include <optional>
#include <string>

namespace halvora::platform {

struct Location {
    double latitude = 0;
    double longitude = 0;
    double altitude = 0;
    double horizontalAccuracy = 0;
    double verticalAccuracy = 0;
};

// The device's last known location. Only consulted when the host already holds permission;
// the library never asks for it.
class LocationSource {
public:
    virtual ~LocationSource() = default;
    virtual bool isAuthorized() const = 0;
    virtual bool servicesEnabled() const = 0;
    // Asks for a fresh fix that a later call of lastKnown() may return; must not block.
    virtual void requestUpdate() = 0;
    virtual std::optional<Location> lastKnown() const = 0;
};

class DeviceInfo {
public:
    virtual ~DeviceInfo() = default;
    // The machine's model where the system tells it (a laptop's product name), else its kind.
    virtual std::optional<std::string> hardwareModel() const = 0;
    virtual std::optional<std::string> timeZoneAbbreviation() const = 0;  // e.g. "CET"
    // The operating system's name ("Debian GNU/Linux") and version ("12").
    virtual std::optional<std::string> osName() const { return std::nullopt; }
    virtual std::optional<std::string> osVersion() const = 0;
    // Identifier shared by one vendor's applications on this device (a UUID string).
    virtual std::optional<std::string> installationId() const = 0;
    virtual bool isRegisteredForPushNotifications() const = 0;
    // None when the platform has no location facility.
    virtual LocationSource* location() const = 0;
};

}  // namespace halvora::platform
