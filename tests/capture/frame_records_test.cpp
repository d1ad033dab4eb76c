// The frame and screen records: key order, the image as binary, null titles.
#include <gtest/gtest.h>

#include "protocol/frame_records.h"
#include "protocol/iso_string.h"

namespace halvora {
namespace {

std::vector<std::string> keys(const Json& object) {
    std::vector<std::string> names;
    for (const auto& item : object.items()) names.push_back(item.key());
    return names;
}

const auto kWhen = std::chrono::system_clock::time_point{std::chrono::seconds{1551967509}};

TEST(FrameRecords, FrameCarriesTheJpegAsBinaryInKeyOrder) {
    const std::vector<std::uint8_t> jpeg{0xFF, 0xD8, 0x00, 0x22, 0xFF, 0xD9};
    const Json record = frameRecord(18446744073709551615ull, jpeg, kWhen);
    EXPECT_EQ(keys(record), (std::vector<std::string>{"type", "id", "image", "timestamp", "mime_type"}));
    EXPECT_EQ(record["type"], "Frame");
    EXPECT_EQ(record["id"].get<std::uint64_t>(), 18446744073709551615ull);
    ASSERT_TRUE(record["image"].is_binary());
    EXPECT_EQ(static_cast<const std::vector<std::uint8_t>&>(record["image"].get_binary()), jpeg);
    EXPECT_FALSE(record["image"].get_binary().has_subtype());
    EXPECT_EQ(record["timestamp"], hlv_ISOString(kWhen));
    EXPECT_EQ(record["mime_type"], "image/jpeg");
}

TEST(FrameRecords, ScreenHasItsTitleOrNull) {
    const Json titled = screenRecord("CheckoutViewController", std::string("Pay"), kWhen);
    EXPECT_EQ(keys(titled), (std::vector<std::string>{"type", "class", "title", "timestamp"}));
    EXPECT_EQ(titled["type"], "Screen");
    EXPECT_EQ(titled["class"], "CheckoutViewController");
    EXPECT_EQ(titled["title"], "Pay");
    EXPECT_EQ(titled["timestamp"], hlv_ISOString(kWhen));

    const Json untitled = screenRecord("Home", std::nullopt, kWhen);
    EXPECT_EQ(keys(untitled), keys(titled));
    EXPECT_TRUE(untitled["title"].is_null());
}

}  // namespace
}  // namespace halvora
