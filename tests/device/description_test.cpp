// The device description sent with every registration.
#include <gtest/gtest.h>

#include "device/device.h"
#include "tests/support/library_fixture.h"

namespace halvora {
namespace {

using DescriptionTest = testing::LibraryTest;

const std::vector<std::string> kKeys = {
    "platform", "device", "device_locale", "device_timezone", "os_version", "app_id", "app_name",
    "app_installation_id", "app_version", "app_build", "app_build_configuration", "sdk_version",
    "latitude", "longitude", "altitude", "horizontal_accuracy", "vertical_accuracy", "push_enabled"};

std::vector<std::string> keysOf(const Json& object) {
    std::vector<std::string> keys;
    for (const auto& [key, value] : object.items()) keys.push_back(key);
    return keys;
}

TEST_F(DescriptionTest, EighteenKeysInOrderFromThePlatform) {
    device->push = true;
    Json info = HLVDevice::info();
    EXPECT_EQ(keysOf(info), kKeys);
    EXPECT_EQ(info["platform"], "ios");
    EXPECT_EQ(info["device"], "x86_64");
    EXPECT_EQ(info["device_locale"], "en");
    EXPECT_EQ(info["device_timezone"], "CET");
    EXPECT_EQ(info["os_version"], "12");
    EXPECT_EQ(info["app_id"], "com.example.shop");
    EXPECT_EQ(info["app_name"], "Shop");
    EXPECT_EQ(info["app_installation_id"], "5B0C3F0E-7D3A-4C8E-9F51-1E2D3C4B5A69");
    EXPECT_EQ(info["app_version"], "2.3");
    EXPECT_EQ(info["app_build"], "417");
    EXPECT_EQ(info["app_build_configuration"], "release");
    EXPECT_EQ(info["sdk_version"], "1.5.4");
    EXPECT_EQ(info["push_enabled"], true);
}

TEST_F(DescriptionTest, WhatThePlatformCannotTellIsNullAndTheKeysStay) {
    app->name.reset();
    app->build.reset();
    device->zone.reset();
    device->installation.reset();
    Json info = HLVDevice::info();
    EXPECT_EQ(keysOf(info), kKeys);
    EXPECT_TRUE(info["app_name"].is_null());
    EXPECT_TRUE(info["app_build"].is_null());
    EXPECT_TRUE(info["device_timezone"].is_null());
    EXPECT_TRUE(info["app_installation_id"].is_null());
    EXPECT_EQ(info["push_enabled"], false);
}

TEST_F(DescriptionTest, LocationOnlyWithPermissionAndZerosOtherwise) {
    auto& location = *device->locationSource;
    location.fix = platform::Location{52.5, 13.4, 34, 5, 3};
    Json denied = HLVDevice::info();
    for (const char* key : {"latitude", "longitude", "altitude", "horizontal_accuracy", "vertical_accuracy"}) {
        EXPECT_EQ(denied[key], 0) << key;
    }
    EXPECT_EQ(location.updateRequests, 0);  // never asks without permission

    location.authorized = true;
    location.enabled = false;
    EXPECT_EQ(HLVDevice::info()["latitude"], 0);

    location.enabled = true;
    Json allowed = HLVDevice::info();
    EXPECT_EQ(allowed["latitude"], 52.5);
    EXPECT_EQ(allowed["longitude"], 13.4);
    EXPECT_EQ(allowed["altitude"], 34);
    EXPECT_EQ(allowed["horizontal_accuracy"], 5);
    EXPECT_EQ(allowed["vertical_accuracy"], 3);
    EXPECT_EQ(location.updateRequests, 1);  // a fresh fix for the next registration

    location.fix.reset();  // permitted but nothing known yet
    EXPECT_EQ(HLVDevice::info()["vertical_accuracy"], 0);
}

}  // namespace
}  // namespace halvora
