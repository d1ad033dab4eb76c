// The service registry, the log sink and the application's language.
#include "halvora/platform.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include "halvora/platform/app_info.h"
#include "halvora/platform/log.h"
#include "platform/linux/file_store.h"
#include "platform/linux/linux_defaults.h"
#include "halvora/platform/run_loop.h"
#include "scratch_dir.h"

namespace halvora::platform {
namespace {

using testing::ScratchDir;
using testing::ScopedEnv;

// Services are process-wide, so the defaults and the replacements are checked in one case.
TEST(PlatformServicesTest, DefaultsAreFilledInAndInstalledMembersReplaceOnlyThemselves) {
    ScratchDir dir;
    ScopedEnv xdg("XDG_DATA_HOME", dir.path().c_str());
    const std::string exe = std::filesystem::read_symlink("/proc/self/exe").filename().string();

    // The registry alone has no HTTP client; the Linux layer, which the facade registers, adds one.
    EXPECT_DEATH(http(), "no HTTP client is installed");
    useLinuxDefaults();
    const Services& defaults = services();
    ASSERT_TRUE(defaults.mainQueue && defaults.background && defaults.store && defaults.appInfo &&
                defaults.deviceInfo && defaults.http);
    EXPECT_EQ(appInfo().identifier(), "local." + exe);
    EXPECT_EQ(appInfo().displayName(), std::nullopt);
    EXPECT_TRUE(mainQueue().isCurrentThread());
    auto* store = dynamic_cast<FileStore*>(defaults.store.get());
    ASSERT_NE(store, nullptr);
    EXPECT_EQ(store->file(), dir.path() / "halvora" / ("local." + exe) / "settings.json");
    // The installation identifier is shared by the vendor's applications: "local" here.
    const auto id = deviceInfo().installationId();
    ASSERT_TRUE(id);
    EXPECT_EQ(FileStore(dir.path() / "halvora" / "vendors" / "local.json").get("halvora_installation_id"), id);

    const auto background = defaults.background;
    auto queue = std::make_shared<RunLoop>(std::make_shared<ManualClock>());
    auto info = std::make_shared<StaticAppInfo>();
    info->id = "com.example.app";
    Services replacements;
    replacements.mainQueue = queue;
    replacements.appInfo = info;
    install(replacements);
    EXPECT_EQ(services().mainQueue, queue);
    EXPECT_EQ(services().appInfo, info);
    EXPECT_EQ(services().background, background);
    EXPECT_EQ(services().store.get(), store);
}

TEST(AppInfoTest, LanguageOfLocale) {
    const std::pair<const char*, const char*> cases[] = {
        {"de_DE.UTF-8", "de"}, {"pt_BR", "pt"},  {"fr", "fr"},   {"sr_RS@latin", "sr"}, {"C", "en"},
        {"POSIX", "en"},       {"C.UTF-8", "en"}, {"", "en"},    {"EN_us", "en"},
    };
    for (const auto& [locale, language] : cases) EXPECT_EQ(languageOfLocale(locale), language) << locale;
}

TEST(LogTest, LinesAreFoldedAndGoToTheInstalledSink) {
    std::vector<std::string> lines;
    setLogSink([&](std::string_view line) { lines.emplace_back(line); });
    log("one\ntwo\r\nthree");
    log("plain");
    setLogSink(nullptr);
    log("back to stderr");
    EXPECT_EQ(lines, (std::vector<std::string>{"one two  three", "plain"}));
}

TEST(LogTest, ASinkMayLogAndReplaceTheSinkWithoutDeadlocking) {
    std::vector<std::string> lines;
    setLogSink([&](std::string_view line) {
        lines.emplace_back(line);
        setLogSink([&](std::string_view inner) { lines.push_back("inner: " + std::string(inner)); });
        log("from the sink");
    });
    log("outer");
    setLogSink(nullptr);
    EXPECT_EQ(lines, (std::vector<std::string>{"outer", "inner: from the sink"}));
}

}  // namespace
}  // namespace halvora::platform
