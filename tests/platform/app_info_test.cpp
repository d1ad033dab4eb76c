#include "halvora/platform/app_info.h"

#include <gtest/gtest.h>

#include "scratch_dir.h"

namespace halvora::platform {
namespace {

using testing::ScopedEnv;

TEST(AppInfoTest, LanguageOfLocale) {
    const std::pair<const char*, const char*> cases[] = {
        {"de_DE.UTF-8", "de"}, {"pt_BR", "pt"},  {"fr", "fr"},   {"sr_RS@latin", "sr"}, {"C", "en"},
        {"POSIX", "en"},       {"C.UTF-8", "en"}, {"", "en"},    {"EN_us", "en"},
    };
    for (const auto& [locale, language] : cases) EXPECT_EQ(languageOfLocale(locale), language) << locale;
}

TEST(AppInfoTest, PreferredLocalizationIsTheHostsChoiceElseTheFirstLocaleVariableSet) {
    StaticAppInfo info;
    ScopedEnv all("LC_ALL", "");
    ScopedEnv messages("LC_MESSAGES", "it_IT.UTF-8");
    ScopedEnv lang("LANG", "ja_JP.UTF-8");
    EXPECT_EQ(info.preferredLocalization(), "it");
    {
        ScopedEnv noMessages("LC_MESSAGES", nullptr);
        EXPECT_EQ(info.preferredLocalization(), "ja");
        ScopedEnv posix("LC_ALL", "POSIX");
        EXPECT_EQ(info.preferredLocalization(), "en");
    }
    info.localization = "nl";
    EXPECT_EQ(info.preferredLocalization(), "nl");
}

}  // namespace
}  // namespace halvora::platform
