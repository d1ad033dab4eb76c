#pragma once
// DeviceInfo from a Linux system: the firmware's product name (DMI), uname, the local time zone,
// /etc/os-release, and an installation identifier kept in a per-vendor store.

#include <memory>
#include <string>

#include "halvora/platform/device_info.h"
#include "halvora/platform/key_value_store.h"

namespace halvora::platform {

class LinuxDeviceInfo final : public DeviceInfo {
public:
    // `vendorStore` keeps the installation identifier; `osReleasePath` is read for NAME and
    // VERSION_ID (then VERSION, then the kernel's name and release); `dmiDirectory` for the
    // machine's product_name (then uname's machine).
    LinuxDeviceInfo(std::shared_ptr<KeyValueStore> vendorStore, std::string osReleasePath = "/etc/os-release",
                    std::string dmiDirectory = "/sys/class/dmi/id");

    std::optional<std::string> hardwareModel() const override;
    std::optional<std::string> timeZoneAbbreviation() const override;
    std::optional<std::string> osName() const override;
    std::optional<std::string> osVersion() const override;
    std::optional<std::string> installationId() const override;
    bool isRegisteredForPushNotifications() const override { return pushRegistered_; }
    LocationSource* location() const override { return location_.get(); }

    // The host tells these; a desktop has no push service or location by default.
    void setRegisteredForPushNotifications(bool registered) { pushRegistered_ = registered; }
    void setLocationSource(std::shared_ptr<LocationSource> source) { location_ = std::move(source); }

private:
    std::shared_ptr<KeyValueStore> vendorStore_;
    std::string osReleasePath_;
    std::string dmiDirectory_;
    bool pushRegistered_ = false;
    std::shared_ptr<LocationSource> location_;
};

// Value of KEY in an os-release style file ("KEY=value" or KEY="value"), none when absent.
std::optional<std::string> osReleaseValue(const std::string& path, const std::string& key);

}  // namespace halvora::platform
