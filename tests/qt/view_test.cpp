#include <gtest/gtest.h>

#include "qt/quick_view.h"
#include "qt/quick_window.h"
#include "quick_test_support.h"

namespace halvora::qt {
namespace {

using platform::ViewRole;
using test::child;
using test::showWindow;

TEST(QuickViewTest, RolesAndClassNamesFollowTheQmlTypes) {
    auto window = showWindow(R"(
        import QtQuick
        import QtQuick.Controls
        Window {
            width: 400; height: 600
            component Card: Rectangle { objectName: "card" }
            Column {
                Button { objectName: "button" }
                Switch { objectName: "switch" }
                SpinBox { objectName: "spinBox" }
                TabBar { objectName: "tabBar"; TabButton { objectName: "tabButton"; text: "A" } }
                Slider { objectName: "slider" }
                Tumbler { objectName: "tumbler"; model: 3 }
                ToolBar { objectName: "toolBar" }
                TextField { objectName: "textField" }
                TextInput { objectName: "textInput" }
                TextArea { objectName: "textArea" }
                TextEdit { objectName: "textEdit" }
                Flickable { objectName: "flickable"; width: 10; height: 10 }
                ListView {
                    objectName: "listView"; width: 100; height: 40; model: 1
                    delegate: Rectangle { objectName: "cell"; width: 100; height: 20 }
                }
                Page { objectName: "page"; width: 10; height: 10 }
                MouseArea { objectName: "mouseArea" }
                Rectangle { objectName: "rectangle"; property int extended: 1 }
                Card {}
            }
        })");
    ASSERT_TRUE(window);
    const std::vector<std::tuple<const char*, ViewRole, const char*>> expected{
        {"button", ViewRole::control, "Button"},          {"switch", ViewRole::toggle, "Switch"},
        {"spinBox", ViewRole::stepper, "SpinBox"},        {"tabBar", ViewRole::segmentedControl, "TabBar"},
        {"tabButton", ViewRole::control, "TabButton"},    {"slider", ViewRole::slider, "Slider"},
        {"tumbler", ViewRole::picker, "Tumbler"},         {"toolBar", ViewRole::navigationBar, "ToolBar"},
        {"textField", ViewRole::textInput, "TextField"},  {"textInput", ViewRole::textInput, "TextInput"},
        {"textArea", ViewRole::textInput, "TextArea"},    {"textEdit", ViewRole::textInput, "TextEdit"},
        {"flickable", ViewRole::scrollView, "Flickable"}, {"listView", ViewRole::tableView, "ListView"},
        {"cell", ViewRole::tableCell, "Rectangle"},       {"page", ViewRole::viewController, "Page"},
        {"mouseArea", ViewRole::tapRecognizer, "MouseArea"}, {"rectangle", ViewRole::plain, "Rectangle"},
        {"card", ViewRole::plain, "Card"},
    };
    for (const auto& [name, role, className] : expected) {
        QuickView view(child(window.get(), name));
        EXPECT_EQ(view.role(), role) << name;
        EXPECT_EQ(view.className(), className) << name;
    }
    QuickWindow windowView(window.get());
    EXPECT_EQ(windowView.role(), ViewRole::window);
    EXPECT_EQ(windowView.className(), "Window");
}

TEST(QuickViewTest, SubviewsAreInPaintOrderAndAddedViewsGoInFront) {
    auto window = showWindow(R"(
        import QtQuick
        Window {
            width: 100; height: 100
            Item {
                objectName: "parent"
                Rectangle { objectName: "raised"; z: 2 }
                Rectangle { objectName: "first" }
                Rectangle { objectName: "second" }
            }
            Rectangle { objectName: "stranger" }
        })");
    ASSERT_TRUE(window);
    auto names = [](const platform::View& view) {
        std::vector<std::string> result;
        for (const auto& sub : view.subviews()) result.push_back(itemOf(sub)->objectName().toStdString());
        return result;
    };
    auto parent = viewFor(child(window.get(), "parent"));
    EXPECT_EQ(names(*parent), (std::vector<std::string>{"first", "second", "raised"}));

    parent->bringSubviewToFront(viewFor(child(window.get(), "first")));
    EXPECT_EQ(names(*parent), (std::vector<std::string>{"second", "raised", "first"}));

    auto stranger = viewFor(child(window.get(), "stranger"));
    parent->bringSubviewToFront(stranger);  // not a child: ignored
    EXPECT_EQ(names(*parent), (std::vector<std::string>{"second", "raised", "first"}));

    parent->addSubview(stranger);
    EXPECT_EQ(names(*parent), (std::vector<std::string>{"second", "raised", "first", "stranger"}));
    EXPECT_TRUE(stranger->isSameView(*parent->subviews().back()));

    const void* handle = stranger->nativeHandle();
    delete itemOf(stranger);
    EXPECT_FALSE(stranger->isAlive());
    EXPECT_EQ(stranger->nativeHandle(), handle);
    stranger->setFrame({1, 2, 3, 4});  // harmless on a gone item
    EXPECT_EQ(stranger->frame(), platform::Rect{});
}

}  // namespace
}  // namespace halvora::qt
