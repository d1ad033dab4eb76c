// The device description sent with every registration.
#include <gtest/gtest.h>

#include "device/device.h"
#include "tests/support/library_fixture.h"

namespace halvora {
namespace {

using DescriptionTest = testing::LibraryTest;

// Every key in order, location zeroed without permission.
Json described(const Json& name, const Json& zone, const Json& installation, const Json& build, bool push) {
    return {{"platform", "linux"}, {"device", "x86_64"}, {"device_locale", "en"}, {"device_timezone", zone},
            {"os_name", "Debian GNU/Linux"}, {"os_version", "12"}, {"app_id", "com.example.shop"}, {"app_name", name},
            {"app_installation_id", installation}, {"app_version", "2.3"}, {"app_build", build},
            {"app_build_configuration", "release"}, {"sdk_version", "1.5.4"}, {"latitude", 0}, {"longitude", 0},
            {"altitude", 0}, {"horizontal_accuracy", 0}, {"vertical_accuracy", 0}, {"push_enabled", push}};
}

TEST_F(DescriptionTest, NineteenKeysInOrderFromThePlatformAndNullForWhatItCannotTell) {
    device->push = true;
    EXPECT_EQ(HLVDevice::info(), described("Shop", "CET", "5B0C3F0E-7D3A-4C8E-9F51-1E2D3C4B5A69", "417", true));
    app->name.reset();
    app->build.reset();
    device->zone.reset();
    device->installation.reset();
    device->push = false;
    EXPECT_EQ(HLVDevice::info(), described(nullptr, nullptr, nullptr, nullptr, false));
}

TEST_F(DescriptionTest, LocationOnlyWithPermissionAndZerosOtherwise) {
    auto& location = *device->locationSource;
    location.fix = platform::Location{52.5, 13.4, 34, 5, 3};
    const auto place = [] {
        const Json info = HLVDevice::info();
        return std::vector<Json>{info["latitude"], info["longitude"], info["altitude"], info["horizontal_accuracy"],
                                 info["vertical_accuracy"]};
    };
    const std::vector<Json> zeros(5, 0);
    EXPECT_EQ(place(), zeros);
    location.authorized = true;
    location.enabled = false;
    EXPECT_EQ(place(), zeros);
    EXPECT_EQ(location.updateRequests, 0);  // never asks without permission
    location.enabled = true;
    EXPECT_EQ(place(), (std::vector<Json>{52.5, 13.4, 34, 5, 3}));
    EXPECT_EQ(location.updateRequests, 1);  // a fresh fix for the next registration
    location.fix.reset();  // permitted but nothing known yet
    EXPECT_EQ(place(), zeros);
}

}  // namespace
}  // namespace halvora
