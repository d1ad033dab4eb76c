// Screen tracking beyond the StackView, whose pushes and pops session_loop_test.cpp and the demo
// shop's end-to-end test follow; and the attached property that declares sensitive items.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "halvora/platform.h"
#include "qt/page_controller.h"
#include "qt/quick_application.h"
#include "qt/quick_view.h"
#include "qt/screen_tracker.h"
#include "quick_test_support.h"

namespace halvora::qt {
namespace {

using test::child;
using test::eventually;
using test::showWindow;
using Events = std::vector<std::string>;

// Records "+Title" for an appearing screen and "-Title" for a disappearing one.
struct Recorder {
    Events events;
    ScreenTracker tracker{[this](const platform::ViewControllerRef& screen, bool appearing, bool) {
        events.push_back((appearing ? "+" : "-") + screen->title().value_or("?"));
    }};
};

std::string topTitle() {
    auto top = platform::application().topViewController();
    return top ? top->title().value_or("(untitled)") : "(none)";
}

TEST(ScreensTest, SwipeViewShowsItsCurrentPageAndPagesDisappearWithTheirWindow) {
    auto window = showWindow(R"(
        import QtQuick
        import QtQuick.Controls
        Window {
            width: 200; height: 200
            SwipeView {
                objectName: "swipe"; anchors.fill: parent
                Page { title: "First" }
                Page { title: "Second" }
            }
        })");
    ASSERT_TRUE(window);
    Recorder recorder;
    recorder.tracker.watch(window.get());
    ASSERT_TRUE(eventually([&] { return recorder.events == Events{"+First"}; }));
    EXPECT_EQ(topTitle(), "First");

    child(window.get(), "swipe")->setProperty("currentIndex", 1);
    ASSERT_TRUE(eventually([&] { return recorder.events.size() == 3; }));
    EXPECT_EQ(recorder.events, (Events{"+First", "-First", "+Second"}));
    EXPECT_EQ(topTitle(), "Second");

    window->hide();
    ASSERT_TRUE(eventually([&] { return recorder.events.size() == 4; }));
    EXPECT_EQ(recorder.events.back(), "-Second");
    EXPECT_EQ(topTitle(), "(none)");
}

TEST(ScreensTest, AnyObjectDeclaresSensitiveItemsAndWhatCannotBeBlankedIsWarnedOf) {
    std::vector<std::string> lines;
    platform::setLogSink([&](std::string_view line) { lines.emplace_back(line); });
    auto window = showWindow(R"(
        import QtQuick
        import QtQuick.Controls
        import Halvora
        Window {
            width: 200; height: 200
            Page {
                objectName: "checkout"; width: 100; height: 100
                Halvora.redactedItems: [card]
                TextField { id: card; objectName: "card" }
            }
            Page { objectName: "plain"; title: ""; width: 100; height: 100 }
            Item {
                Halvora.redactedItems: [pin, popup, notAnItem]
                Rectangle { id: pin; objectName: "pin" }
                Popup { id: popup; contentItem: Item { objectName: "popupContent" } }
                QtObject { id: notAnItem }
            }
        })");
    platform::setLogSink(nullptr);
    ASSERT_TRUE(window);
    std::vector<const void*> sensitive;
    for (const auto& view : QuickApplication().sensitiveViews()) sensitive.push_back(view->nativeHandle());
    EXPECT_EQ(sensitive, (std::vector<const void*>{child(window.get(), "card"), child(window.get(), "pin"),
                                                   child(window.get(), "popupContent")->parentItem()}));
    EXPECT_EQ(std::count_if(lines.begin(), lines.end(),
                            [](const auto& l) { return l.find("it cannot be kept out of frames") != l.npos; }),
              1);

    PageController checkout(child(window.get(), "checkout"));
    const auto views = checkout.redactedViews();
    ASSERT_TRUE(views);
    ASSERT_EQ(views->size(), 1u);
    EXPECT_EQ((*views)[0]->nativeHandle(), child(window.get(), "card"));
    EXPECT_EQ(checkout.className(), "Page");
    EXPECT_TRUE(checkout.view()->isSameView(*viewFor(child(window.get(), "checkout"))));

    PageController plain(child(window.get(), "plain"));
    EXPECT_FALSE(plain.redactedViews());
    EXPECT_FALSE(plain.title());
}

}  // namespace
}  // namespace halvora::qt
