// The overlay on real Qt Quick windows: what it lets through, and which window it sits on.
#include <gtest/gtest.h>

#include "halvora/platform.h"
#include "overlay/halvora_window.h"
#include "qt/overlay_item.h"
#include "qt/window_watcher.h"
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

TEST(WindowWatcherTest, TheOverlayFollowsTheKeyWindowAndItsSize) {
    auto first = showWindow("import QtQuick\nWindow { width: 200; height: 100 }");
    ASSERT_TRUE(first);
    EXPECT_EQ(platform::application().state(), platform::ApplicationState::active);
    HLVHalvoraWindow model;
    WindowWatcher watcher([](const platform::ViewControllerRef&, bool, bool) {});
    watcher.setOverlayModel(&model);
    OverlayItem* overlay = watcher.overlayItem();
    ASSERT_TRUE(overlay);
    EXPECT_EQ(overlay->parentItem(), first->contentItem());
    EXPECT_EQ(overlay->size(), QSizeF(200, 100));

    first->resize(300, 150);
    EXPECT_TRUE(eventually([&] { return overlay->size() == QSizeF(300, 150); }));
    // The banner comes back over the new status bar.
    EXPECT_TRUE(eventually([&] { return model.bannerFrame() == HLVRect{0, 0, 300, 24}; }));

    auto second = showWindow("import QtQuick\nWindow { width: 120; height: 80 }");
    ASSERT_TRUE(second);
    EXPECT_TRUE(eventually([&] { return overlay->parentItem() == second->contentItem(); }));
    EXPECT_TRUE(platform::application().keyWindow()->nativeHandle() == second.get());
    EXPECT_TRUE(eventually([&] { return model.bannerFrame() == HLVRect{0, 0, 120, 24}; }));

    second.reset();
    EXPECT_TRUE(eventually([&] { return overlay->parentItem() == first->contentItem(); }));
}

}  // namespace
}  // namespace halvora::qt
