// The agent's pointer and keys on a page built as applications build them, offscreen: each
// control acts as it would under the user's own mouse and keyboard, judged by the application's
// own handlers.
#include <QGuiApplication>
#include <QTest>

#include <cmath>
#include <limits>

#include "control/key_press_injector.h"
#include "control/touch_injector.h"
#include "halvora/platform.h"
#include "tests/qt/quick_test_support.h"

namespace halvora::qt::test {
namespace {

const QByteArray kPage = R"(
import QtQuick
import QtQuick.Controls
import QtQuick.Controls.Basic as Basic
import QtQuick.Controls.Fusion as Fusion
import Halvora
ApplicationWindow {
    width: 800; height: 600
    property string log: ""
    function note(line) { log += line + ";" }
    Action { id: saveAction; text: "Save"; shortcut: "Ctrl+S"; onTriggered: note("save") }
    Action { id: copyAction; text: "Copy"; onTriggered: note("copy") }
    header: ToolBar {
        Row {
            ToolButton { objectName: "save"; action: saveAction }
            ToolButton {
                objectName: "edit"; text: "Edit"; onClicked: editMenu.open()
                Menu { id: editMenu; objectName: "menu"; y: parent.height; MenuItem { objectName: "copy"; action: copyAction } }
            }
        }
    }
    Drawer { objectName: "drawer"; width: 200; height: parent.height; Label { text: "Navigation" } }
    ResponderExtension {
        viewClass: "Rectangle"
        function touchEnded(item, x, y, touchCount) {
            if (item.objectName !== "custom") return false
            note("custom at " + Math.round(x)); return true
        }
        function keyDown(item, key, code) { if (key !== "q") return false; note(item.objectName + " took q"); return true }
    }
    Item {
        anchors.fill: parent
        ComboBox { objectName: "combo"; x: 40; y: 10; model: ["One", "Two", "Three"]; onActivated: (i) => note("combo " + i) }
        Button {
            objectName: "covered"; x: 40; y: 60; text: "Covered"; onClicked: note("covered")
            MouseArea { anchors.fill: parent; acceptedButtons: Qt.NoButton; cursorShape: Qt.PointingHandCursor }
        }
        Rectangle {
            objectName: "rightOnly"; x: 40; y: 110; width: 100; height: 40
            TapHandler { acceptedButtons: Qt.RightButton; onTapped: note("right") }
        }
        Rectangle {
            objectName: "card"; x: 40; y: 160; width: 200; height: 50
            MouseArea { anchors.fill: parent; onClicked: note("card"); onDoubleClicked: note("card twice") }
        }
        Label { objectName: "cardLabel"; x: 50; y: 170; text: "Open the card" }
        Rectangle { objectName: "custom"; x: 160; y: 110; width: 80; height: 40 }
        Slider { objectName: "vertical"; x: 300; y: 10; height: 200; orientation: Qt.Vertical; to: 100 }
        Slider { objectName: "stepped"; x: 360; y: 10; width: 300; to: 100; stepSize: 10; snapMode: Slider.SnapAlways }
        Slider { objectName: "inverted"; x: 360; y: 60; width: 300; from: 100; to: 0 }
        Basic.SpinBox { objectName: "basicSpin"; x: 360; y: 110; value: 5; onValueModified: note("basic " + value) }
        Fusion.SpinBox { objectName: "fusionSpin"; x: 560; y: 110; value: 5; onValueModified: note("fusion " + value) }
        Rectangle { objectName: "dragged"; x: 360; y: 170; width: 60; height: 40; color: "teal"; DragHandler {} }
        Flickable {
            objectName: "outer"; x: 40; y: 230; width: 250; height: 200; contentHeight: 800; clip: true
            boundsBehavior: Flickable.StopAtBounds
            Flickable {
                objectName: "inner"; width: 250; height: 120; contentHeight: 300; clip: true
                boundsBehavior: Flickable.StopAtBounds
            }
        }
        TextField { objectName: "name"; x: 40; y: 450; width: 200; onAccepted: note("accepted " + text) }
        TextField {
            objectName: "amount"; x: 260; y: 450; width: 120
            validator: IntValidator { bottom: 0; top: 999 }
        }
        TextArea { objectName: "notes"; x: 400; y: 420; width: 300; height: 100 }
        Rectangle { objectName: "keys"; x: 700; y: 10; width: 10; height: 10; focus: true }
    }
}
)";

class RemoteControlQtTest : public ::testing::Test {
protected:
    void SetUp() override {
        window = showWindow(kPage);
        ASSERT_TRUE(window);
        window->setPosition(130, 70);  // the agent's points are the key window's, wherever it is
        ASSERT_TRUE(eventually([&] { return window->position() == QPoint(130, 70); }));
    }
    void TearDown() override { injector.cancelAll(); }

    // The agent's pointer at a point of the window, as a fraction of what it sees.
    void pointer(const char* state, QPointF scene, const char* id = "agent", Json extra = Json::object()) {
        Json record{{"type", "Touch"}, {"id", id}, {"state", state}, {"x", scene.x() / window->width()},
                    {"y", scene.y() / window->height()}};
        record.update(extra);
        injector.inject(*HLVTouchEvent::from(record));
    }
    QPointF at(const char* name, double xFraction = 0.5, double yFraction = 0.5) {
        QQuickItem* item = child(window.get(), name);
        return item ? item->mapToScene({item->width() * xFraction, item->height() * yFraction}) : QPointF();
    }
    // Clicks counted as the console counts them.
    void tap(QPointF scene) {
        pointer("touchstart", scene, "agent", {{"clicks", 1}});
        pointer("touchend", scene);
    }
    void drag(QPointF from, QPointF by, int steps = 8) {
        pointer("touchstart", from, "agent", {{"clicks", 1}});
        for (int step = 1; step <= steps; ++step) pointer("touchmove", from + by * step / steps);
        pointer("touchend", from + by);
    }
    void send(Json record) { injector.inject(*HLVTouchEvent::from(record)); }
    void key(const char* keyName, const char* code, Json modifiers = Json::object()) {
        Json record{{"type", "KeyPress"}, {"key", keyName}, {"code", code}, {"state", "keydown"}};
        record.update(modifiers);
        keys.inject(*HLVKeyPress::from(record));
    }
    void type(const QString& text) {
        for (const QChar character : text) key(QString(character).toUtf8().constData(), "");
    }
    double number(const char* name, const char* property) {
        return child(window.get(), name)->property(property).toDouble();
    }
    std::string takeLog() {
        const QString log = window->property("log").toString();
        window->setProperty("log", "");
        return log.toStdString();
    }

    std::unique_ptr<QQuickWindow> window;
    HLVTouchInjector injector{nullptr};
    HLVKeyPressInjector keys;
};

// A press and release, a drag and a click, each where a user would make it, with a Drawer in
// the window all along: Qt's own delivery picks the item.
TEST_F(RemoteControlQtTest, PointerActsAsTheUsersMouse) {
    tap(at("save"));  // an Action-bound ToolButton triggers its Action
    tap(at("edit"));
    QQuickItem* copy = child(window.get(), "copy");
    ASSERT_TRUE(eventually([&] { return window->findChild<QObject*>("menu")->property("opened").toBool(); }));
    tap(copy->mapToScene({copy->width() / 2, copy->height() / 2}));
    tap(at("combo"));
    ASSERT_TRUE(eventually([&] { return child(window.get(), "combo")->property("popup").value<QObject*>()->property("opened").toBool(); }));
    auto* list = child(window.get(), "combo")->property("popup").value<QObject*>()->property("contentItem").value<QQuickItem*>();
    QQuickItem* second = nullptr;
    QMetaObject::invokeMethod(list, "itemAtIndex", Q_RETURN_ARG(QQuickItem*, second), Q_ARG(int, 1));
    ASSERT_TRUE(second);
    tap(second->mapToScene({second->width() / 2, second->height() / 2}));
    tap(at("covered"));     // a cursor-only MouseArea over it takes no button
    tap(at("rightOnly"));   // a plain tap is no right click
    send({{"type", "Click"}, {"id", "c"}, {"button", "secondary"}, {"x", at("rightOnly").x() / 800}, {"y", at("rightOnly").y() / 600}});
    tap(at("cardLabel"));  // the label lies over the card: the card's MouseArea takes it
    pointer("touchstart", at("card"), "agent", {{"clicks", 1}});
    pointer("touchend", at("card"));
    pointer("touchstart", at("card"), "agent", {{"clicks", 2}});
    pointer("touchend", at("card"));  // a double click's release clicks no more
    tap(at("custom"));  // a responder extension is offered the touch first
    EXPECT_EQ(takeLog(), "save;copy;combo 1;covered;right;card;card;card twice;custom at 40;");

    // Sliders take their value along their own axis, direction and steps.
    tap(at("vertical", 0.5, 0.25));
    EXPECT_NEAR(number("vertical", "value"), 75, 8);
    tap(at("stepped", 0.34));
    EXPECT_EQ(number("stepped", "value"), 30);
    tap(at("inverted", 0.25));
    EXPECT_NEAR(number("inverted", "value"), 75, 8);
    // Spin boxes step by their arrows, wherever their style puts them.
    for (const char* spin : {"basicSpin", "fusionSpin"}) {
        for (const char* arrow : {"up", "down", "down"}) {
            auto* indicator = child(window.get(), spin)->property(arrow).value<QObject*>()->property("indicator").value<QQuickItem*>();
            ASSERT_TRUE(indicator);
            tap(indicator->mapToScene({indicator->width() / 2, indicator->height() / 2}));
        }
    }
    EXPECT_EQ(takeLog(), "basic 6;basic 5;basic 4;fusion 6;fusion 5;fusion 4;");

    // A DragHandler follows the drag; nested Flickables hand on what the inner one cannot take;
    // the wheel scrolls what lies under the pointer.
    drag(at("dragged"), {100, 30});
    EXPECT_NEAR(number("dragged", "x"), 460, 1);
    EXPECT_NEAR(number("dragged", "y"), 200, 1);
    drag(at("outer", 0.5, 0.3), {0, -100});
    EXPECT_GT(number("inner", "contentY"), 50);
    ASSERT_TRUE(eventually([&] { return !child(window.get(), "inner")->property("moving").toBool() && !child(window.get(), "outer")->property("moving").toBool(); }));
    const double outerBefore = number("outer", "contentY");
    const QPointF below = at("outer", 0.5, 0.9);  // under the inner list: only the outer one scrolls
    send({{"type", "Wheel"}, {"id", "w"}, {"deltaY", 3}, {"x", below.x() / 800}, {"y", below.y() / 600}});
    ASSERT_TRUE(eventually([&] { return number("outer", "contentY") > outerBefore; }));
    EXPECT_EQ(takeLog(), "");
    EXPECT_EQ(injector.activeTouchCount(), 0u);
}

// Keys arrive as the keyboard's: fields accept on Enter, the focus moves on Tab and back on
// Shift+Tab, shortcuts act, emoji are typed whole and deleted whole, validators refuse.
TEST_F(RemoteControlQtTest, KeysActAsTheUsersKeyboard) {
    QQuickItem* name = child(window.get(), "name");
    QQuickItem* amount = child(window.get(), "amount");
    QQuickItem* notes = child(window.get(), "notes");
    key("q", "KeyQ");  // the focused item's extension is offered the key first
    tap(at("name"));
    ASSERT_TRUE(name->hasActiveFocus());
    type("Wool socks");
    key("Enter", "Enter");
    key("a", "KeyA", {{"ctrlKey", true}});
    type("Tea");
    key("😀", "");
    key("🙂", "");
    key("Backspace", "Backspace");
    EXPECT_EQ(name->property("text").toString(), QString::fromUtf8("Tea😀"));
    key("Tab", "Tab");
    ASSERT_TRUE(amount->hasActiveFocus());
    type("12x3");  // the validator refuses the letter, and the caret stays after what it kept
    EXPECT_EQ(amount->property("text").toString(), "123");
    EXPECT_EQ(amount->property("cursorPosition").toInt(), 3);
    key("Tab", "Tab", {{"shiftKey", true}});
    EXPECT_TRUE(name->hasActiveFocus());
    key("s", "KeyS", {{"ctrlKey", true}});  // the Action's shortcut
    key("End", "End");
    key("ArrowLeft", "ArrowLeft");
    key("Delete", "Delete");
    EXPECT_EQ(name->property("text").toString(), "Tea");

    tap(at("notes", 0.9, 0.2));
    ASSERT_TRUE(notes->hasActiveFocus());
    type("one");
    key("Enter", "Enter");  // a TextArea takes a new line
    type("two");
    EXPECT_EQ(notes->property("text").toString(), "one\ntwo");
    EXPECT_EQ(takeLog(), "keys took q;accepted Wool socks;save;");
}

// Around Qt's delivery: the user's own pointer wins, a pointer never lifted lets go without
// clicking at the end, and nonsense from the agent does no harm.
TEST_F(RemoteControlQtTest, UserWinsAndStrayPointersDoNoHarm) {
    QQuickItem* covered = child(window.get(), "covered");
    const QPoint userPoint = at("card").toPoint();
    QTest::mousePress(window.get(), Qt::LeftButton, {}, userPoint);
    tap(at("covered"));  // dropped: the user is pressing
    QTest::mouseRelease(window.get(), Qt::LeftButton, {}, userPoint);
    EXPECT_EQ(takeLog(), "card;");

    pointer("touchstart", at("covered"));
    EXPECT_TRUE(covered->property("pressed").toBool());
    QTest::mouseClick(window.get(), Qt::LeftButton, {}, userPoint);  // the user's press lets go of the agent's
    EXPECT_FALSE(covered->property("pressed").toBool());
    pointer("touchend", at("covered"));
    EXPECT_EQ(takeLog(), "card;");

    // A session that ends with the agent's button held: nothing is clicked.
    pointer("touchstart", at("covered"));
    injector.cancelAll();
    EXPECT_FALSE(covered->property("pressed").toBool());
    EXPECT_EQ(injector.activeTouchCount(), 0u);

    // Ten pointers, unknown ids, points that are not numbers or lie off the screen, and a burst of
    // a thousand moves: one mouse acts, the rest are dropped, and no control fires.
    const double nan = std::numeric_limits<double>::quiet_NaN();
    for (int id = 0; id < 10; ++id) pointer("touchstart", {410.0 + id, 300}, std::to_string(id).c_str());
    pointer("touchmove", {5, 5}, "unknown");
    pointer("touchend", {5, 5}, "unknown");
    send({{"type", "Touch"}, {"id", "nan"}, {"state", "touchstart"}, {"x", nan}, {"y", 0.5}});
    send({{"type", "Touch"}, {"id", "far"}, {"state", "touchstart"}, {"x", -3.0}, {"y", 40.0}});
    for (int move = 0; move < 1000; ++move) pointer("touchmove", {410.0 + move % 50, 300}, "0");
    EXPECT_EQ(injector.activeTouchCount(), 1u);
    for (int id = 0; id < 10; ++id) pointer("touchend", {410, 300}, std::to_string(id).c_str());
    EXPECT_EQ(injector.activeTouchCount(), 0u);
    EXPECT_EQ(takeLog(), "");
    tap(at("covered"));  // and the agent's mouse still works
    EXPECT_EQ(takeLog(), "covered;");
}

}  // namespace
}  // namespace halvora::qt::test
