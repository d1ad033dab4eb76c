#include <gtest/gtest.h>

#include "overlay/halvora_window.h"
#include "halvora/platform.h"
#include "qt/overlay_item.h"
#include "qt/window_watcher.h"
#include "quick_test_support.h"

namespace halvora::qt {
namespace {

using test::eventually;
using test::showWindow;

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
