#include <gtest/gtest.h>

#include "overlay/halvora_window.h"
#include "qt/overlay_item.h"
#include "quick_test_support.h"

namespace halvora::qt {
namespace {

using test::child;
using test::eventually;
using test::showWindow;

TEST(OverlayItemTest, OnlyTheBannerTakesClicksTheRestReachTheApplication) {
    auto window = showWindow(R"(
        import QtQuick
        Window {
            width: 200; height: 100
            MouseArea { objectName: "app"; anchors.fill: parent; property int clicks: 0; onClicked: clicks++ }
        })");
    ASSERT_TRUE(window);
    HLVHalvoraWindow model;
    int taps = 0;
    model.onStatusTap = [&] { ++taps; };
    OverlayItem overlay(window->contentItem());
    overlay.setSize(window->size());
    overlay.setModel(&model);
    QQuickItem* app = child(window.get(), "app");

    // Hidden, the overlay takes nothing, banner included.
    EXPECT_FALSE(overlay.contains({100, 10}));
    QTest::mouseClick(window.get(), Qt::LeftButton, {}, QPoint(100, 10));
    EXPECT_TRUE(eventually([&] { return app->property("clicks").toInt() == 1; }));

    model.setActive(true);
    ASSERT_TRUE(eventually([&] { return !model.isHidden(); }));
    EXPECT_TRUE(overlay.contains({100, 10}));
    EXPECT_FALSE(overlay.contains({100, 30}));

    QTest::mouseClick(window.get(), Qt::LeftButton, {}, QPoint(100, 60));
    EXPECT_TRUE(eventually([&] { return app->property("clicks").toInt() == 2; }));
    QTest::mouseClick(window.get(), Qt::LeftButton, {}, QPoint(100, 10));
    EXPECT_TRUE(eventually([&] { return taps == 1; }));
    EXPECT_EQ(app->property("clicks").toInt(), 2);
}

}  // namespace
}  // namespace halvora::qt
