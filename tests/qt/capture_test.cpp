#include <gtest/gtest.h>

#include <algorithm>

#include "overlay/halvora_window.h"
#include "halvora/platform.h"
#include "qt/overlay_item.h"
#include "qt/quick_view.h"
#include "qt/quick_window.h"
#include "qt/redaction_mask_item.h"
#include "quick_test_support.h"

namespace halvora::qt {
namespace {

using test::child;
using test::eventually;
using test::pixel;
using test::showWindow;
using Pixel = std::array<int, 4>;

constexpr Pixel kWhite{255, 255, 255, 255};
constexpr Pixel kGreen{0x12, 0xc0, 0x34, 255};
constexpr Pixel kUntouched{1, 2, 3, 255};

platform::RgbaFrame untouchedCanvas(int width, int height) {
    platform::RgbaFrame canvas;
    canvas.resize(width, height);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) std::copy(kUntouched.begin(), kUntouched.end(), canvas.row(y) + x * 4);
    return canvas;
}

bool near(Pixel a, Pixel b) {
    for (int i = 0; i < 4; ++i)
        if (std::abs(a[static_cast<std::size_t>(i)] - b[static_cast<std::size_t>(i)]) > 3) return false;
    return true;
}

TEST(DrawHierarchyTest, DrawsTheWindowAtItsPlaceAndScaleWithoutTheOverlay) {
    auto window = showWindow(R"(
        import QtQuick
        Window {
            width: 200; height: 100; color: "white"
            Rectangle { x: 50; y: 40; width: 40; height: 30; color: "#12c034" }
        })");
    ASSERT_TRUE(window);
    HLVHalvoraWindow model;  // its banner: the window's top 24 points
    OverlayItem overlay(window->contentItem());
    overlay.setSize(window->size());
    overlay.setModel(&model);
    model.setActive(true);
    ASSERT_TRUE(eventually([&] { return !model.isHidden(); }));
    // The overlay does paint its red banner into the window as shown.
    const QImage shown = window->grabWindow();
    EXPECT_EQ(shown.pixelColor(100 * shown.devicePixelRatio(), 10 * shown.devicePixelRatio()).red(), 232);

    auto canvas = untouchedCanvas(300, 200);
    QuickWindow view(window.get());
    ASSERT_TRUE(view.drawHierarchy(canvas, {10, 6}, 0.5));

    // The rectangle: window (50, 40) -> canvas ((10 + 50) / 2, (6 + 40) / 2), 20 x 15 pixels.
    EXPECT_TRUE(near(pixel(canvas, 31, 24), kGreen));
    EXPECT_TRUE(near(pixel(canvas, 49, 37), kGreen));
    EXPECT_TRUE(near(pixel(canvas, 28, 24), kWhite));
    EXPECT_TRUE(near(pixel(canvas, 52, 24), kWhite));
    // Where the banner is on screen, the canvas shows the window beneath it.
    EXPECT_TRUE(near(pixel(canvas, 50, 6), kWhite));
    // Outside the window (canvas x >= 105 or y >= 56) nothing changed.
    EXPECT_EQ(pixel(canvas, 110, 20), kUntouched);
    EXPECT_EQ(pixel(canvas, 50, 60), kUntouched);
    EXPECT_EQ(pixel(canvas, 2, 2), kUntouched);
    EXPECT_TRUE(overlay.isVisible());
}

}  // namespace
}  // namespace halvora::qt
