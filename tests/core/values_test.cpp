// Timestamps as the service receives them: local time with its offset.
#include <cstdlib>
#include <optional>

#include <gtest/gtest.h>

#include "protocol/iso_string.h"

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

}  // namespace
}  // namespace halvora
