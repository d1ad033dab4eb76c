#include "platform/linux/linux_device_info.h"

#include <gtest/gtest.h>

#include <fstream>
#include <regex>
#include <set>

#include "base/uuid.h"
#include "platform/linux/file_store.h"
#include "halvora/platform/log.h"
#include "scratch_dir.h"

namespace halvora::platform {
namespace {

using testing::ScratchDir;
using testing::ScopedEnv;

// A store that keeps nothing: every save fails.
class RefusingStore final : public KeyValueStore {
public:
    std::optional<std::string> get(const std::string&) const override { return std::nullopt; }
    bool set(const std::string&, const std::string&) override { return false; }
    bool remove(const std::string&) override { return false; }
};

TEST(OsReleaseTest, ParsesQuotedValuesAndSkipsCommentsAndBlankLines) {
    ScratchDir dir;
    const auto path = (dir.path() / "os-release").string();
    std::ofstream(path) << "# VERSION_ID=commented\n"
                           "\n"
                           "NAME=\"Debian GNU/Linux\"\n"
                           "  VERSION_ID='12'\n"
                           "VERSION=\"12 (bookworm) \\\"quoted\\\"\"\n"
                           "ID=debian\n"
                           "BROKEN\n"
                           "MISMATCHED=\"a'\n";
    EXPECT_EQ(osReleaseValue(path, "NAME"), "Debian GNU/Linux");
    EXPECT_EQ(osReleaseValue(path, "VERSION_ID"), "12");
    EXPECT_EQ(osReleaseValue(path, "VERSION"), "12 (bookworm) \"quoted\"");
    EXPECT_EQ(osReleaseValue(path, "ID"), "debian");
    EXPECT_EQ(osReleaseValue(path, "MISMATCHED"), "\"a'");
    EXPECT_EQ(osReleaseValue(path, "BROKEN"), std::nullopt);
    EXPECT_EQ(osReleaseValue(path, "ID_LIKE"), std::nullopt);
    EXPECT_EQ(osReleaseValue((dir.path() / "missing").string(), "ID"), std::nullopt);
}

TEST(DeviceInfoTest, OsVersionFallsBackFromVersionIdToVersionToTheKernel) {
    ScratchDir dir;
    const auto path = (dir.path() / "os-release").string();
    std::ofstream(path) << "VERSION=\"12 (bookworm)\"\n";
    EXPECT_EQ(LinuxDeviceInfo(nullptr, path).osVersion(), "12 (bookworm)");
    std::ofstream(path) << "VERSION_ID=\"12\"\nVERSION=\"12 (bookworm)\"\n";
    EXPECT_EQ(LinuxDeviceInfo(nullptr, path).osVersion(), "12");
    const auto kernel = LinuxDeviceInfo(nullptr, (dir.path() / "missing").string()).osVersion();
    ASSERT_TRUE(kernel);
    EXPECT_FALSE(kernel->empty());
}

TEST(DeviceInfoTest, TimeZoneAbbreviationFollowsTz) {
    LinuxDeviceInfo info(nullptr);
    ScopedEnv tz("TZ", "UTC0");
    EXPECT_EQ(info.timeZoneAbbreviation(), "UTC");
    ScopedEnv other("TZ", "ABC-3");
    EXPECT_EQ(info.timeZoneAbbreviation(), "ABC");
}

TEST(DeviceInfoTest, UuidsAreVersion4UpperCaseAndDistinct) {
    const std::regex canonical("[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9A-F]{12}");
    std::set<std::string> seen;
    for (int i = 0; i < 1000; ++i) {
        const std::string uuid = makeUuidString();
        ASSERT_TRUE(std::regex_match(uuid, canonical)) << uuid;
        seen.insert(uuid);
    }
    EXPECT_EQ(seen.size(), 1000u);
}

TEST(DeviceInfoTest, InstallationIdIsKeptInTheVendorStore) {
    ScratchDir dir;
    const auto file = dir.path() / "vendors" / "com.example.json";
    auto store = std::make_shared<FileStore>(file);
    const auto id = LinuxDeviceInfo(store).installationId();
    ASSERT_TRUE(id);
    EXPECT_EQ(LinuxDeviceInfo(store).installationId(), id);
    EXPECT_EQ(store->get("halvora_installation_id"), id);
    // Another application of the same vendor, in a later process.
    EXPECT_EQ(LinuxDeviceInfo(std::make_shared<FileStore>(file)).installationId(), id);
}

}  // namespace
}  // namespace halvora::platform
