// Small shared values: errors, timestamps, version symbols, NotNil, agent and URL records.
#include <cstdlib>
#include <cstring>

#include <gtest/gtest.h>

#include "halvora/agent.h"
#include "halvora/error.h"
#include "protocol/iso_string.h"
#include "base/json_fields.h"
#include "protocol/web_url.h"
#include "halvora/version.h"

namespace halvora {
namespace {

TEST(HLVErrorTest, LibraryErrorsAndForeignErrorsKeepTheirDomain) {
    HLVError own("Already in a session", 400);
    EXPECT_EQ(own.domain(), "Halvora");
    EXPECT_EQ(own.code(), 400);
    EXPECT_EQ(own.localizedDescription(), "Already in a session");
    EXPECT_EQ(own.description(), "Error Domain=Halvora Code=400 \"Already in a session\"");
    auto foreign = HLVError::inDomain("curl", 7, "Couldn't connect");
    EXPECT_EQ(foreign.domain(), "curl");
    EXPECT_NE(foreign, HLVError("Couldn't connect", 7));
}

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

TEST(VersionTest, ExportedSymbolsDescribeTheBuild) {
    EXPECT_EQ(HalvoraVersionNumber, 1.0);
    const char* what = reinterpret_cast<const char*>(HalvoraVersionString);
    EXPECT_EQ(std::strncmp(what, "@(#)PROGRAM:Halvora  PROJECT:", 29), 0);
    EXPECT_EQ(what[std::strlen(what) - 1], '\n');
    EXPECT_STREQ(kHalvoraVersion, "1.5.4");
}

TEST(NotNilTest, MissingValuesBecomeJsonNull) {
    EXPECT_TRUE(NotNil(std::optional<std::string>()).is_null());
    EXPECT_EQ(NotNil(std::optional<std::string>("x")), "x");
    EXPECT_EQ(NotNil(std::optional<int>(0)), 0);
}

TEST(AgentTest, OnlyObjectsMakeAgents) {
    auto agent = HLVAgent::from(Json{{"id", "a1"}, {"name", "Dana"}});
    ASSERT_TRUE(agent);
    EXPECT_EQ(*agent->id, "a1");
    EXPECT_EQ(*agent->name, "Dana");
    auto partial = HLVAgent::from(Json::object());
    ASSERT_TRUE(partial);
    EXPECT_FALSE(partial->id);
    EXPECT_FALSE(HLVAgent::from(Json::array({1, 2})));
    EXPECT_FALSE(HLVAgent::from(Json("Dana")));
    EXPECT_FALSE(HLVAgent::from(Json()));
}

TEST(UrlRecordTest, ParsesOnlyUrlRecords) {
    auto record = HLVURL::from(Json{{"type", "URL"}, {"id", 7}, {"url", "https://example.com/help?q=1"}});
    ASSERT_TRUE(record);
    EXPECT_EQ(*record->id, 7);
    EXPECT_EQ(*record->url, "https://example.com/help?q=1");

    EXPECT_FALSE(HLVURL::from(Json{{"type", "Laser"}, {"url", "https://example.com"}}));
    EXPECT_FALSE(HLVURL::from(Json{{"url", "https://example.com"}}));
    EXPECT_FALSE(HLVURL::from(Json::array({"URL"})));
    EXPECT_FALSE(HLVURL::from(Json{{"type", 1}}));
}

TEST(UrlRecordTest, UnopenableUrlsLeaveTheRecordWithoutOne) {
    for (const char* bad : {"not a url", "javascript:alert(1)", "file:///etc/passwd", "https://", "http:///x",
                            "https://exa mple.com", "ftp://example.com", ""}) {
        auto record = HLVURL::from(Json{{"type", "URL"}, {"url", bad}});
        ASSERT_TRUE(record) << bad;
        EXPECT_FALSE(record->url) << bad;
    }
    auto number = HLVURL::from(Json{{"type", "URL"}, {"url", 12}});
    ASSERT_TRUE(number);
    EXPECT_FALSE(number->url);
    EXPECT_TRUE(isOpenableWebUrl("HTTP://Example.com:8080"));
    EXPECT_TRUE(isOpenableWebUrl("https://user@example.com/"));
}

}  // namespace
}  // namespace halvora
