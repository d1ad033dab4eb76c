// The agent's touches and keys on real Qt Quick Controls, offscreen: each control's own handler
// reports the change once, with the value a user's finger or keyboard would give.
#include <QTest>

#include "control/key_press_injector.h"
#include "control/touch_injector.h"
#include "halvora/platform.h"
#include "tests/qt/quick_test_support.h"

namespace halvora::qt::test {
namespace {

const QByteArray kControls = R"(
import QtQuick
import QtQuick.Controls
Window {
    width: 400; height: 760
    property string log: ""
    function note(line) { log += line + ";" }
    Column {
        Button { objectName: "button"; text: "Add to cart"; onClicked: note("clicked") }
        Switch { objectName: "switch"; onToggled: note("toggled " + checked) }
        Slider { objectName: "slider"; width: 200; onMoved: note("moved") }
        SpinBox { objectName: "spin"; value: 5; onValueModified: note("spin " + value) }
        TabBar {
            objectName: "tabs"; width: 300
            onCurrentIndexChanged: note("tab " + currentIndex)
            TabButton { text: "A" } TabButton { text: "B" } TabButton { objectName: "tabC"; text: "C" }
        }
        TextField { objectName: "field"; width: 200; onAccepted: note("accepted") }
        MouseArea {
            objectName: "card"; width: 200; height: 40; onClicked: note("card")
            Label { objectName: "cardLabel"; text: "Open the card" }
        }
        ListView {
            objectName: "list"; width: 400; height: 200; clip: true; model: 40
            onCurrentIndexChanged: note("current " + currentIndex)
            delegate: ItemDelegate {
                objectName: "row" + index; width: 400; height: 40; text: "Row " + index
                onClicked: note("row " + index)
            }
        }
    }
}
)";

class RemoteControlQtTest : public ::testing::Test {
protected:
    void SetUp() override {
        window = showWindow(kControls);
        ASSERT_TRUE(window);
        window->setPosition(130, 70);  // the agent's points are the key window's, wherever it is
        ASSERT_TRUE(eventually([&] { return window->position() == QPoint(130, 70); }));
        takeLog();  // the list's first current index
    }
    // A point of an item, as the agent's fraction of what it sees: the key window.
    void touch(const char* state, QQuickItem* item, QPointF local, const char* id = "agent") {
        const QPointF scene = item->mapToScene(local);
        const double x = scene.x() / window->width();
        const double y = scene.y() / window->height();
        injector.inject(*HLVTouchEvent::from(Json{{"type", "Touch"}, {"id", id}, {"state", state}, {"x", x}, {"y", y}}));
    }
    void tap(const char* name, double xFraction = 0.5) {
        ASSERT_TRUE(window);
        QQuickItem* item = child(window.get(), name);
        const QPointF point(item->width() * xFraction, item->height() / 2);
        touch("touchstart", item, point);
        touch("touchend", item, point);
    }
    void type(const char* key, const char* code) {
        keys.inject(*HLVKeyPress::from(Json{{"type", "KeyPress"}, {"key", key}, {"code", code}, {"state", "keydown"}}));
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

TEST_F(RemoteControlQtTest, TapsPressButtonsToggleSwitchesStepSpinBoxesAndSelectTabs) {
    tap("button");
    tap("switch");
    tap("spin", 0.9);  // the right half steps up
    tap("tabC");
    tap("cardLabel");  // the label cannot act: the MouseArea around it does
    EXPECT_EQ(takeLog(), "clicked;toggled true;spin 6;tab 2;card;");
    EXPECT_TRUE(child(window.get(), "switch")->property("checked").toBool());
}

TEST_F(RemoteControlQtTest, SliderFollowsTheDragAndAListScrollsOrSelectsItsRow) {
    QQuickItem* slider = child(window.get(), "slider");
    touch("touchstart", slider, {slider->width() * 0.25, 10});
    QTest::qWait(300);
    touch("touchmove", slider, {slider->width() * 2, 10});  // far past the end
    touch("touchend", slider, {slider->width() * 2, 10});
    EXPECT_DOUBLE_EQ(slider->property("value").toDouble(), 1.0);
    EXPECT_EQ(takeLog(), "moved;moved;moved;");  // began, moved, ended

    QQuickItem* list = child(window.get(), "list");
    tap("row2");
    EXPECT_EQ(list->property("currentIndex").toInt(), 2);
    EXPECT_EQ(takeLog(), "current 2;row 2;");
    // The row shows the user's own presses again afterwards.
    QQuickItem* row = child(window.get(), "row2");
    QTest::mousePress(window.get(), Qt::LeftButton, {}, row->mapToScene({10, 10}).toPoint());
    EXPECT_TRUE(row->property("down").toBool());
    QTest::mouseRelease(window.get(), Qt::LeftButton, {}, row->mapToScene({10, 10}).toPoint());
    takeLog();

    // A quick drag scrolls the list by the distance dragged and presses nothing.
    touch("touchstart", list, {200, 180});
    for (int y = 160; y >= 60; y -= 20) touch("touchmove", list, {200, static_cast<double>(y)});
    touch("touchend", list, {200, 60});
    EXPECT_NEAR(list->property("contentY").toDouble() - list->property("originY").toDouble(), 120, 0.5);
    EXPECT_EQ(takeLog(), "");
    EXPECT_EQ(injector.activeTouchCount(), 0u);
}

TEST_F(RemoteControlQtTest, KeysTypeIntoTheFocusedFieldAtTheCaret) {
    QQuickItem* field = child(window.get(), "field");
    field->setProperty("text", "ac");
    QQuickItem* fieldItem = field;
    // A tap between the two letters focuses the field and puts the caret there.
    QRectF second;
    QMetaObject::invokeMethod(fieldItem, "positionToRectangle", Q_RETURN_ARG(QRectF, second), Q_ARG(int, 1));
    touch("touchstart", field, {second.x() + 0.5, field->height() / 2});
    touch("touchend", field, {second.x() + 0.5, field->height() / 2});
    ASSERT_TRUE(field->hasActiveFocus());
    EXPECT_EQ(field->property("cursorPosition").toInt(), 1);

    type("b", "KeyB");
    type("x", "KeyX");
    type("Backspace", "Backspace");
    type("ArrowRight", "ArrowRight");
    type("!", "Digit1");
    EXPECT_EQ(field->property("text").toString(), "abc!");
}

const QByteArray kCustom = R"(
import QtQuick
import QtQuick.Controls
import Halvora
Window {
    width: 400; height: 700
    property string log: ""
    function note(line) { log += line + ";" }
    ResponderExtension {
        viewClass: "Rectangle"
        function touchEnded(item, x, y, touchCount) { note(item.objectName + " at " + Math.round(x) + " of " + touchCount); return true }
        function keyDown(item, key, code) { if (key !== "q") return false; note(item.objectName + " took " + key); return true }
    }
    Rectangle {
        objectName: "card"; width: 200; height: 100; color: "#dddddd"
        Label { objectName: "cardLabel"; x: 10; y: 10; width: 100; text: "A custom card" }
        Item { objectName: "keys"; focus: true }
    }
    Button { objectName: "button"; y: 120; text: "Pay"; onClicked: note("clicked") }
    Flickable {
        objectName: "outer"; y: 200; width: 400; height: 300; contentHeight: 1000
        boundsBehavior: Flickable.StopAtBounds
        Flickable {
            objectName: "inner"; width: 400; height: 200; contentHeight: 380
            boundsBehavior: Flickable.StopAtBounds
        }
    }
    TextArea { objectName: "area"; y: 520; width: 400; height: 80; text: "line one" }
}
)";

TEST_F(RemoteControlQtTest, QmlExtensionsNestedFlickablesTwoPointersAndTextAreas) {
    window = showWindow(kCustom);
    ASSERT_TRUE(window);

    // The label has no behaviour: the tap climbs to the card, whose QML extension takes it.
    tap("cardLabel", 0.1);
    child(window.get(), "keys")->forceActiveFocus();
    type("q", "KeyQ");
    type("z", "KeyZ");  // not taken: it climbs on and nothing else wants it
    EXPECT_EQ(takeLog(), "card at 20 of 1;card took q;");

    // While a second pointer is down, the button's release presses nothing.
    QQuickItem* button = child(window.get(), "button");
    touch("touchstart", button, {10, 10}, "a");
    touch("touchstart", child(window.get(), "card"), {10, 10}, "b");
    touch("touchend", button, {10, 10}, "a");
    touch("touchend", child(window.get(), "card"), {10, 10}, "b");
    EXPECT_EQ(takeLog(), "card at 10 of 1;");  // b ends alone

    // Dragging up 300 points: the inner list scrolls to its end (180), then hands the rest on.
    QQuickItem* inner = child(window.get(), "inner");
    QQuickItem* screen = window->contentItem();  // the finger moves on the screen, not with the lists
    touch("touchstart", screen, {200, 390});
    for (int step = 1; step <= 10; ++step) touch("touchmove", screen, {200, 390.0 - 30 * step});
    touch("touchend", screen, {200, 90});
    EXPECT_NEAR(inner->property("contentY").toDouble(), 180, 0.01);
    EXPECT_NEAR(child(window.get(), "outer")->property("contentY").toDouble(), 120, 0.01);

    QQuickItem* area = child(window.get(), "area");
    tap("area", 0.99);
    ASSERT_TRUE(area->hasActiveFocus());
    type("!", "Digit1");
    EXPECT_EQ(area->property("text").toString(), "line one!");
}

const QByteArray kMoreControls = R"(
import QtQuick
import QtQuick.Controls
Window {
    width: 400; height: 700
    property string log: ""
    function note(line) { log += line + ";" }
    Column {
        RangeSlider {
            objectName: "range"; width: 200; from: 0; to: 1; first.value: 0.2; second.value: 0.8
            first.onMoved: note("first " + first.value.toFixed(2))
            second.onMoved: note("second " + second.value.toFixed(2))
        }
        Tumbler {
            objectName: "tumbler"; model: 10; height: 120; visibleItemCount: 3; wrap: false
            onCurrentIndexChanged: note("tumbler " + currentIndex)
        }
        Tumbler {
            objectName: "wheel"; model: 10; height: 120; visibleItemCount: 3
            onCurrentIndexChanged: note("wheel " + currentIndex)
        }
        GridView {
            objectName: "grid"; width: 300; height: 100; cellWidth: 100; cellHeight: 50; model: 6
            delegate: ItemDelegate { objectName: "cell" + index; width: 100; height: 50; text: index; onClicked: note("cell " + index) }
        }
        ToolBar {
            width: 400
            ToolButton { objectName: "tool"; text: "Menu"; onClicked: note("tool") }
        }
        Rectangle {
            objectName: "tapTarget"; width: 100; height: 40
            TapHandler { onTapped: (point) => note("tapped at " + Math.round(point.scenePosition.x)) }
        }
    }
}
)";

TEST_F(RemoteControlQtTest, RangeSlidersTumblersGridsToolBarsAndTapHandlers) {
    window = showWindow(kMoreControls);
    ASSERT_TRUE(window);
    takeLog();
    tap("range", 0.3);  // nearer the first handle; the press and the release each report
    tap("range", 0.95);
    QQuickItem* tumbler = child(window.get(), "tumbler");
    touch("touchstart", tumbler, {tumbler->width() / 2, 100});
    touch("touchend", tumbler, {tumbler->width() / 2, 100});
    // A wrapping Tumbler spins, its current item following the wheel as a finger's drag would:
    // dragged up by two items (40 points each) it stops at 2, then down by three it wraps to 9.
    QQuickItem* wheel = child(window.get(), "wheel");
    QQuickItem* screen = window->contentItem();
    const QPointF middle = wheel->mapToScene({wheel->width() / 2, 60});
    touch("touchstart", screen, middle);
    for (int step = 1; step <= 8; ++step) touch("touchmove", screen, middle - QPointF(0, 10 * step));
    touch("touchend", screen, middle - QPointF(0, 80));
    touch("touchstart", screen, middle);
    for (int step = 1; step <= 10; ++step) touch("touchmove", screen, middle + QPointF(0, 12 * step));
    touch("touchend", screen, middle + QPointF(0, 120));
    tap("cell4");
    tap("tool");
    tap("tapTarget", 0.25);
    EXPECT_EQ(takeLog(), "first 0.30;first 0.30;second 0.95;second 0.95;tumbler 1;"
                         "wheel 1;wheel 2;wheel 1;wheel 0;wheel 9;cell 4;tool;tapped at 25;");
}

}  // namespace
}  // namespace halvora::qt::test
