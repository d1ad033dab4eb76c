// The Linux layer: the settings file, and what it tells about the machine. That the installation
// identifier is kept in the vendor store is checked in platform_test.cpp.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/utsname.h>

#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <regex>
#include <set>
#include <string>

#include "base/uuid.h"
#include "halvora/platform/log.h"
#include "platform/linux/file_store.h"
#include "platform/linux/linux_device_info.h"
#include "scratch_dir.h"

namespace halvora::platform {
namespace {

namespace fs = std::filesystem;
using testing::ScratchDir;
using testing::ScopedEnv;

void writeFile(const fs::path& path, const std::string& text) { std::ofstream(path, std::ios::binary) << text; }
nlohmann::json readJson(const fs::path& path) { return nlohmann::json::parse(std::ifstream(path)); }

class FileStoreTest : public ::testing::Test {
protected:
    void SetUp() override {
        setLogSink([this](std::string_view line) { logged.emplace_back(line); });
    }
    void TearDown() override { setLogSink(nullptr); }

    ScratchDir dir;
    fs::path file = dir.path() / "nested" / "deeper" / "settings.json";
    std::vector<std::string> logged;
};

TEST_F(FileStoreTest, ValuesSurviveANewInstanceAndTheFileIsPrivate) {
    {
        FileStore store(file);
        EXPECT_EQ(store.get("id"), std::nullopt);
        EXPECT_TRUE(store.set("id", "A-1"));
        EXPECT_TRUE(store.set("other", "x"));
        EXPECT_TRUE(store.set("id", "A-2"));
        EXPECT_TRUE(store.remove("other"));
        EXPECT_TRUE(store.remove("never set"));
    }
    FileStore reopened(file);
    EXPECT_EQ(reopened.get("id"), "A-2");
    EXPECT_EQ(reopened.get("other"), std::nullopt);
    EXPECT_EQ(readJson(file), (nlohmann::json{{"id", "A-2"}}));

    struct stat info {};
    ASSERT_EQ(::stat(file.c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0600u);
    // Only the store itself is left in its directory: no temporary files.
    EXPECT_EQ(std::distance(fs::directory_iterator(file.parent_path()), fs::directory_iterator()), 1);
    EXPECT_TRUE(logged.empty());  // a missing file is a first use, not a problem
}

TEST_F(FileStoreTest, UnusableFilesReadAsEmptyAndAreReplacedByTheNextSet) {
    const std::pair<const char*, std::string> cases[] = {
        {"not json", "{\"id\": \"secret-value\", trailing garbage"},
        {"not an object", "[\"secret-value\"]"},
        {"empty", ""},
    };
    for (const auto& [label, content] : cases) {
        SCOPED_TRACE(label);
        logged.clear();
        fs::create_directories(file.parent_path());
        writeFile(file, content);
        FileStore store(file);
        EXPECT_EQ(store.get("id"), std::nullopt);
        ASSERT_EQ(logged.size(), 1u);
        EXPECT_EQ(logged[0].find("secret-value"), std::string::npos);
        EXPECT_TRUE(store.set("k", "v"));
        EXPECT_EQ(readJson(file), (nlohmann::json{{"k", "v"}}));
    }
}

TEST_F(FileStoreTest, FailedSaveReturnsFalseButKeepsTheValueInMemory) {
    writeFile(dir.path() / "blocker", "a regular file where a directory should be");
    FileStore store(dir.path() / "blocker" / "settings.json");
    EXPECT_FALSE(store.set("id", "kept"));
    EXPECT_EQ(store.get("id"), "kept");
    EXPECT_FALSE(logged.empty());
}

TEST(FileStorePathTest, DefaultPathFollowsXdgDataHomeAndSanitizesTheAppId) {
    ScopedEnv xdg("XDG_DATA_HOME", "/data/home");
    EXPECT_EQ(FileStore::defaultPath("com.example.app"), "/data/home/halvora/com.example.app/settings.json");
    EXPECT_EQ(FileStore::defaultPath("../../etc"), "/data/home/halvora/.._.._etc/settings.json");
    EXPECT_EQ(FileStore::defaultPath(".."), "/data/home/halvora/default/settings.json");
    EXPECT_EQ(FileStore::defaultPath(""), "/data/home/halvora/default/settings.json");

    ScopedEnv relative("XDG_DATA_HOME", "relative/dir");
    ScopedEnv home("HOME", "/home/someone");
    EXPECT_EQ(FileStore::defaultPath("a/b"), "/home/someone/.local/share/halvora/a_b/settings.json");
}

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

// What the device description says of a Linux desktop: the firmware's product name unless it
// is a board's placeholder, and the system's name and version from os-release.
TEST(LinuxDeviceInfoTest, NamesTheMachineAndTheSystemAsTheyTellThem) {
    ScratchDir dir;
    const auto osRelease = (dir.path() / "os-release").string();
    std::ofstream(osRelease) << "NAME=\"Debian GNU/Linux\"\nVERSION_ID=\"12\"\n";
    utsname system{};
    ASSERT_EQ(::uname(&system), 0);
    struct Case {
        const char* productName;  // nullptr: no such file
        std::string model;
    };
    for (const Case& c : {Case{"ThinkPad X1 Carbon Gen 11\n", "ThinkPad X1 Carbon Gen 11"},
                          Case{"To Be Filled By O.E.M.\n", system.machine}, Case{"  \n", system.machine},
                          Case{nullptr, system.machine}}) {
        const auto dmi = dir.path() / "dmi";
        std::filesystem::remove_all(dmi);
        std::filesystem::create_directories(dmi);
        if (c.productName) std::ofstream(dmi / "product_name") << c.productName;
        const LinuxDeviceInfo info(nullptr, osRelease, dmi.string());
        EXPECT_EQ(info.hardwareModel(), c.model) << (c.productName ? c.productName : "(none)");
        EXPECT_EQ(info.osName(), "Debian GNU/Linux");
        EXPECT_EQ(info.osVersion(), "12");
    }
    const LinuxDeviceInfo bare(nullptr, (dir.path() / "missing").string(), (dir.path() / "missing").string());
    EXPECT_EQ(bare.osName(), std::string(system.sysname));
    EXPECT_EQ(bare.osVersion(), std::string(system.release));
}

}  // namespace
}  // namespace halvora::platform
