// The change detector: what counts as the same picture. Forgetting it is "sync" in session_frames_test.
#include <gtest/gtest.h>

#include "capture/frame_change_detector.h"

namespace halvora {
namespace {

RgbaFrame filled(int width, int height, std::uint8_t value) {
    RgbaFrame frame;
    frame.resize(width, height);
    std::fill(frame.pixels.begin(), frame.pixels.end(), value);
    return frame;
}

TEST(FrameChangeDetector, FirstFrameChangesThenOnlyDifferentBytesDo) {
    FrameChangeDetector detector;
    RgbaFrame frame = filled(8, 6, 0x40);
    EXPECT_TRUE(detector.changed(frame));
    EXPECT_FALSE(detector.changed(frame));
    EXPECT_FALSE(detector.changed(filled(8, 6, 0x40)));  // equal content, another buffer

    frame.pixels.back() ^= 1;  // one byte in the last pixel
    EXPECT_TRUE(detector.changed(frame));
    EXPECT_FALSE(detector.changed(frame));
    frame.pixels.front() ^= 1;
    EXPECT_TRUE(detector.changed(frame));
}

TEST(FrameChangeDetector, AnotherSizeIsAChangeEvenWithTheSameBytes) {
    FrameChangeDetector detector;
    EXPECT_TRUE(detector.changed(filled(8, 6, 0)));
    EXPECT_TRUE(detector.changed(filled(8, 7, 0)));
    EXPECT_TRUE(detector.changed(filled(7, 8, 0)));  // same byte count, rotated
    EXPECT_FALSE(detector.changed(filled(7, 8, 0)));
    EXPECT_TRUE(detector.changed(filled(0, 0, 0)));
    EXPECT_FALSE(detector.changed(filled(0, 0, 0)));
}

TEST(RgbaFrame, ShrinkingKeepsTheBufferAndBadSizesAreRefused) {
    RgbaFrame frame;
    ASSERT_TRUE(frame.resize(10, 10));
    const auto* storage = frame.pixels.data();
    ASSERT_TRUE(frame.resize(5, 10));
    EXPECT_EQ(frame.pixels.size(), 5u * 10u * 4u);
    EXPECT_EQ(frame.bytesPerRow, 20u);
    ASSERT_TRUE(frame.resize(10, 10));
    EXPECT_EQ(frame.pixels.data(), storage);
    EXPECT_TRUE(frame.consistent());

    EXPECT_FALSE(frame.resize(-1, 10));
    EXPECT_TRUE(frame.empty());
    frame.resize(4, 4);
    frame.pixels.pop_back();
    EXPECT_FALSE(frame.consistent());
}

}  // namespace
}  // namespace halvora
