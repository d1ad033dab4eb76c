#pragma once
// Runs the library on a manual clock with an in-memory store, fixed app and device information,
// a fake HTTP client, and captured log lines. Each test case runs in its own process, so the
// facade singleton starts fresh for every case.

#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "base/json_fields.h"
#include "halvora/platform/app_info.h"
#include "halvora/platform/clock.h"
#include "halvora/platform/device_info.h"
#include "halvora/platform/key_value_store.h"
#include "halvora/platform/run_loop.h"
#include "tests/support/fake_http_client.h"
#include "tests/support/fake_realtime_socket.h"

namespace halvora::testing {

class MemoryStore final : public platform::KeyValueStore {
public:
    std::optional<std::string> get(const std::string& key) const override {
        std::lock_guard lock(mutex_);
        auto it = values_.find(key);
        return it == values_.end() ? std::nullopt : std::optional(it->second);
    }
    bool set(const std::string& key, const std::string& value) override {
        std::lock_guard lock(mutex_);
        values_[key] = value;
        return true;
    }
    bool remove(const std::string& key) override {
        std::lock_guard lock(mutex_);
        return values_.erase(key), true;
    }

private:
    mutable std::mutex mutex_;
    std::map<std::string, std::string> values_;
};

class FakeLocation final : public platform::LocationSource {
public:
    bool authorized = false;
    bool enabled = true;
    std::optional<platform::Location> fix;
    int updateRequests = 0;

    bool isAuthorized() const override { return authorized; }
    bool servicesEnabled() const override { return enabled; }
    void requestUpdate() override { ++updateRequests; }
    std::optional<platform::Location> lastKnown() const override { return fix; }
};

class FakeDeviceInfo final : public platform::DeviceInfo {
public:
    std::optional<std::string> model = "x86_64";
    std::optional<std::string> zone = "CET";
    std::optional<std::string> osNameValue = "Debian GNU/Linux";
    std::optional<std::string> os = "12";
    std::optional<std::string> installation = "5B0C3F0E-7D3A-4C8E-9F51-1E2D3C4B5A69";
    bool push = false;
    std::shared_ptr<FakeLocation> locationSource = std::make_shared<FakeLocation>();

    std::optional<std::string> hardwareModel() const override { return model; }
    std::optional<std::string> timeZoneAbbreviation() const override { return zone; }
    std::optional<std::string> osName() const override { return osNameValue; }
    std::optional<std::string> osVersion() const override { return os; }
    std::optional<std::string> installationId() const override { return installation; }
    bool isRegisteredForPushNotifications() const override { return push; }
    platform::LocationSource* location() const override { return locationSource.get(); }
};

class LibraryTest : public ::testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;

    // Points the library at http://svc, starts it and answers its first registration.
    void startLibrary();
    // Runs whatever is due on the main queue now.
    void runPending() { loop->runPending(); }
    void advance(std::chrono::milliseconds by) { loop->advance(by); }
    // Log lines written since the start of the test.
    std::vector<std::string> logLines() const;
    int countLog(const std::string& line) const;
    // The body of a sent request, parsed.
    static Json bodyOf(const platform::HttpRequest& request);

    std::shared_ptr<platform::ManualClock> clock = std::make_shared<platform::ManualClock>();
    std::shared_ptr<platform::RunLoop> loop;
    std::shared_ptr<MemoryStore> store = std::make_shared<MemoryStore>();
    std::shared_ptr<platform::StaticAppInfo> app = std::make_shared<platform::StaticAppInfo>();
    std::shared_ptr<FakeDeviceInfo> device = std::make_shared<FakeDeviceInfo>();
    std::shared_ptr<FakeHttpClient> http = std::make_shared<FakeHttpClient>();
    std::shared_ptr<FakeSocketFactory> sockets = std::make_shared<FakeSocketFactory>();
    std::shared_ptr<RecordingUrlOpener> browser = std::make_shared<RecordingUrlOpener>();

private:
    struct Log {
        mutable std::mutex mutex;
        std::vector<std::string> lines;
    };
    std::shared_ptr<Log> log_ = std::make_shared<Log>();
};

}  // namespace halvora::testing
