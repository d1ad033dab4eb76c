// Small shared values: timestamps and URL records. Agents are read in session_test.cpp.
#include <cstdlib>
#include <cstring>

#include <gtest/gtest.h>

#include "halvora/error.h"
#include "protocol/iso_string.h"
#include "base/json_fields.h"
#include "halvora/agent_events.h"
#include "protocol/web_url.h"
#include "halvora/version.h"

namespace halvora {
namespace {

class IsoStringTest : public ::testing::Test {
protected:
    void TearDown() override {
        if (saved_) setenv("TZ", saved_->c_str(), 1); else unsetenv("TZ");
    }
    void zone(const char* tz) {
        if (!saved_ && std::getenv("TZ")) saved_ = std::getenv("TZ");
        setenv("TZ", tz, 1);
    }
    // 2019-03-07 12:05:09.750 UTC
    std::chrono::system_clock::time_point instant =
        std::chrono::system_clock::from_time_t(1551960309) + std::chrono::milliseconds(750);

private:
    std::optional<std::string> saved_;
};

TEST_F(IsoStringTest, WritesLocalTimeWithOffsetOrZ) {
    zone("UTC0");
    EXPECT_EQ(hlv_ISOString(instant), "2019-03-07T12:05:09Z");
    zone("<+02>-2");  // two hours east
    EXPECT_EQ(hlv_ISOString(instant), "2019-03-07T14:05:09+02:00");
    zone("<-02>2");   // two hours west
    EXPECT_EQ(hlv_ISOString(instant), "2019-03-07T10:05:09-02:00");
    zone("<+0530>-5:30");
    EXPECT_EQ(hlv_ISOString(instant), "2019-03-07T17:35:09+05:30");
}

TEST(UrlRecordTest, ParsesOnlyUrlRecordsAndKeepsOnlyOpenableWebUrls) {
    auto record = HLVURL::from(Json{{"type", "URL"}, {"id", 7}, {"url", "https://example.com/help?q=1"}});
    ASSERT_TRUE(record);
    EXPECT_EQ(*record->id, 7);
    EXPECT_EQ(*record->url, "https://example.com/help?q=1");
    for (const Json& other : {Json{{"type", "Laser"}, {"url", "https://example.com"}}, Json{{"url", "https://example.com"}},
                              Json::array({"URL"}), Json{{"type", 1}}}) {
        EXPECT_FALSE(HLVURL::from(other)) << other;
    }

    for (const Json& bad : {Json("not a url"), Json("javascript:alert(1)"), Json("file:///etc/passwd"), Json("https://"),
                            Json("http:///x"), Json("https://exa mple.com"), Json("ftp://example.com"), Json(""),
                            Json(12)}) {
        auto unopenable = HLVURL::from(Json{{"type", "URL"}, {"url", bad}});
        ASSERT_TRUE(unopenable) << bad;
        EXPECT_FALSE(unopenable->url) << bad;
    }
    EXPECT_TRUE(isOpenableWebUrl("HTTP://Example.com:8080"));
    EXPECT_TRUE(isOpenableWebUrl("https://user@example.com/"));
}

}  // namespace
}  // namespace halvora
