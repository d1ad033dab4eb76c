// The overlay on real Qt Quick windows: what it lets through, and which window it sits on.
#include <gtest/gtest.h>

#include "halvora/platform.h"
#include "overlay/halvora_window.h"
#include "qt/overlay_item.h"
#include "qt/sharing_badge.h"
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

    // The sharing badge, at the top's centre of an empty window, moves with its size.
    const QSizeF badge = sharingBadgeSize();
    const auto topCentre = [&](double width) { return HLVRect{std::round((width - badge.width()) / 2), 3, badge.width(), 20}; };
    first->resize(300, 150);
    EXPECT_TRUE(eventually([&] { return overlay->size() == QSizeF(300, 150); }));
    EXPECT_TRUE(eventually([&] { return model.bannerFrame() == topCentre(300); }));

    auto second = showWindow("import QtQuick\nWindow { width: 120; height: 80 }");
    ASSERT_TRUE(second);
    EXPECT_TRUE(eventually([&] { return overlay->parentItem() == second->contentItem(); }));
    EXPECT_TRUE(platform::application().keyWindow()->nativeHandle() == second.get());
    EXPECT_TRUE(eventually([&] { return model.bannerFrame() == topCentre(120); }));

    second.reset();
    EXPECT_TRUE(eventually([&] { return overlay->parentItem() == first->contentItem(); }));
}

// The sharing indicator on a desktop window hides and blocks no control: the badge goes where
// none is, moves away when one appears under it, and the controls around it still take clicks.
TEST(SharingBadgeTest, TheBadgeCoversNoControlAndMovesWhenOneAppearsUnderIt) {
    const char* windows[] = {
        // The demo shop's header: buttons at both ends, labels between; a list below.
        R"(import QtQuick
           import QtQuick.Controls
           ApplicationWindow {
               width: 390; height: 400
               header: ToolBar { height: 56
                   ToolButton { objectName: "left"; width: 90; height: parent.height; text: "Get help"
                                property int clicks: 0; onClicked: clicks++ }
                   Label { x: 96; width: 200; height: parent.height; text: "Home" }
                   ToolButton { objectName: "right"; x: 300; width: 90; height: parent.height; text: "Settings"
                                property int clicks: 0; onClicked: clicks++ } }
               ListView { anchors.fill: parent; model: 30; delegate: ItemDelegate { width: 390; text: "Row " + index } }
               Button { objectName: "late"; visible: false; x: 100; y: -50; width: 190; height: 40 }
           })",
        // A desk: a search field across the top's centre, a button at its right, a table, a
        // status line at the bottom with a button at its left.
        R"(import QtQuick
           import QtQuick.Controls
           ApplicationWindow {
               width: 900; height: 500
               header: ToolBar { height: 40
                   TextField { objectName: "search"; x: 250; width: 400; height: 32 }
                   Button { objectName: "right"; x: 780; width: 110; height: 32; text: "New order"
                            property int clicks: 0; onClicked: clicks++ } }
               ListView { width: parent.width; height: parent.height - 30; model: 50
                          delegate: ItemDelegate { width: 900; text: "Order " + index } }
               Button { objectName: "left"; x: 0; y: parent.height - 30; width: 120; height: 30; text: "Filters"
                        property int clicks: 0; onClicked: clicks++ }
               Button { objectName: "late"; visible: false; x: 560; y: 440; width: 200; height: 30 }
           })",
    };
    for (const char* qml : windows) {
        auto window = showWindow(qml);
        ASSERT_TRUE(window);
        HLVHalvoraWindow model;
        int taps = 0;
        model.onStatusTap = [&] { ++taps; };
        WindowWatcher watcher([](const platform::ViewControllerRef&, bool, bool) {});
        watcher.setOverlayModel(&model);
        model.setActive(true);
        const auto badge = [&] {
            const HLVRect b = model.bannerFrame();
            return QRectF(b.x, b.y, b.width, b.height);
        };
        // Every control the window shows, in scene coordinates.
        const auto coveredControl = [&]() -> QString {
            for (QQuickItem* item : window->contentItem()->findChildren<QQuickItem*>()) {
                const bool control = item->inherits("QQuickAbstractButton") || item->inherits("QQuickTextInput");
                if (control && item->isVisible() && item->mapRectToScene(item->boundingRect()).intersects(badge()))
                    return item->objectName() + " " + item->metaObject()->className();
            }
            return {};
        };
        ASSERT_TRUE(eventually([&] { return !badge().isEmpty(); }));
        EXPECT_EQ(coveredControl(), QString()) << "badge at " << badge().x() << "," << badge().y();

        // A control shown where the badge is: the badge makes way after the next render.
        QQuickItem* late = child(window.get(), "late");
        late->setPosition(late->parentItem()->mapFromScene(badge().topLeft()));
        late->setVisible(true);
        ASSERT_TRUE(eventually([&] { return !badge().isEmpty() && coveredControl().isEmpty(); }))
            << "still under " << coveredControl().toStdString();

        for (const char* name : {"left", "right"}) {
            QQuickItem* button = child(window.get(), name);
            const QPointF centre = button->mapToScene(QPointF(button->width() / 2, button->height() / 2));
            QTest::mouseClick(window.get(), Qt::LeftButton, {}, centre.toPoint());
            EXPECT_TRUE(eventually([&] { return button->property("clicks").toInt() == 1; })) << name;
        }
        QTest::mouseClick(window.get(), Qt::LeftButton, {}, badge().center().toPoint());
        EXPECT_TRUE(eventually([&] { return taps == 1; }));
    }
}

}  // namespace
}  // namespace halvora::qt
