// The agent's touches and keys on a fake UI with a manual clock: which view each call reaches and
// when, and what each kind of control does with it. The same behaviours on real Qt Quick
// controls are in tests/qt.
#include <gtest/gtest.h>

#include "control/key_press_injector.h"
#include "control/touch_injector.h"
#include "facade/facade_access.h"
#include "halvora/halvora.h"
#include "halvora/platform.h"
#include "halvora/platform/controls.h"
#include "tests/support/fake_ui.h"
#include "tests/support/library_fixture.h"

namespace halvora {
namespace {

using platform::ControlEvent;
using platform::Point;
using platform::Rect;
using platform::ViewRole;
using testing::FakeView;

using Calls = std::vector<std::string>;

// Any control the agent can operate, by its role; every operation is written to `log`.
class FakeControl final : public FakeView,
                          public platform::Toggle,
                          public platform::Stepper,
                          public platform::SegmentedControl,
                          public platform::Slider,
                          public platform::ScrollView,
                          public platform::CellContainer,
                          public platform::TextInput {
public:
    FakeControl(Rect frame, ViewRole role, Calls& log) : FakeView(frame, {0, 0, 0, 0}, role), log_(log) {}

    Control* asControl() override { return this; }
    Toggle* asToggle() override { return is(ViewRole::toggle); }
    Stepper* asStepper() override { return is(ViewRole::stepper); }
    SegmentedControl* asSegmentedControl() override { return is(ViewRole::segmentedControl); }
    platform::Slider* asSlider() override { return is(ViewRole::slider); }
    platform::ScrollView* asScrollView() override {
        return role() == ViewRole::scrollView || role() == ViewRole::tableView ? this : nullptr;
    }
    CellContainer* asCellContainer() override { return is(ViewRole::tableView); }
    TextInput* asTextInput() override { return is(ViewRole::textInput); }

    void sendActions(ControlEvent event) override {
        log_.push_back(name + (event == ControlEvent::touchUpInside ? " tapped" : " changed"));
    }
    bool isOn() const override { return on; }
    void setOn(bool value, bool) override { on = value; }
    double value() const override { return number; }
    double minimumValue() const override { return 0; }
    double maximumValue() const override { return maximum; }
    double stepValue() const override { return 1; }
    void setValue(double value) override { number = value; }
    void setValue(double value, bool) override { number = value; }
    std::vector<double> segmentWidths() const override { return {100, 100, 100}; }
    void setSelectedSegmentIndex(std::size_t index) override { number = static_cast<double>(index); }
    Point contentOffset() const override { return offset; }
    void setContentOffset(Point to, bool animated) override {
        offset = to;
        if (animated) log_.push_back(name + " settled at " + std::to_string(static_cast<int>(to.y)));
    }
    Point contentSize() const override { return content; }
    platform::Insets contentInsets() const override { return {}; }
    bool bounces() const override { return bouncy; }
    void setCellHighlighted(const platform::ViewRef& cell, bool highlighted) override {
        log_.push_back(std::static_pointer_cast<FakeView>(cell)->name + (highlighted ? " highlighted" : " unhighlighted"));
    }
    void selectCell(const platform::ViewRef& cell) override {
        log_.push_back(std::static_pointer_cast<FakeView>(cell)->name + " selected");
    }
    bool isSingleLine() const override { return true; }
    void becomeFirstResponder() override { log_.push_back(name + " focused"); }
    std::size_t textLength() const override { return text.size(); }
    std::size_t closestPosition(Point point) const override { return std::min(text.size(), std::size_t(point.x / 10)); }
    std::pair<std::size_t, std::size_t> selectedRange() const override { return {caret, caret}; }
    void setSelectedRange(std::size_t start, std::size_t) override { caret = start; }
    void insertText(const std::string& typed) override { text.insert(caret, typed), caret += typed.size(); }
    void deleteBackward() override {
        if (caret > 0) text.erase(--caret, 1);
    }

    bool on = false;
    double number = 0;
    double maximum = 10;
    Point offset;
    Point content;
    bool bouncy = true;
    std::string text;
    std::size_t caret = 0;

private:
    FakeControl* is(ViewRole role) { return this->role() == role ? this : nullptr; }
    Calls& log_;
};

// Records the calls that reach views of its class and takes them, or lets them pass.
struct RecordingExtension : HLVResponderExtension {
    Calls& log;
    bool takes;
    RecordingExtension(Calls& into, bool take) : log(into), takes(take) {}
    bool record(const char* what, const HLVTouches& touches, const platform::ViewRef& view) {
        log.push_back(std::static_pointer_cast<FakeView>(view)->name + " " + what +
                      (touches.size() > 1 ? " x" + std::to_string(touches.size()) : ""));
        return takes;
    }
    bool halvoraTouchesBegan(const HLVTouches& t, const HLVTouchEvent&, const platform::ViewRef& v) override {
        return record("began", t, v);
    }
    bool halvoraTouchesMoved(const HLVTouches& t, const HLVTouchEvent&, const platform::ViewRef& v) override {
        return record("moved", t, v);
    }
    bool halvoraTouchesEnded(const HLVTouches& t, const HLVTouchEvent&, const platform::ViewRef& v) override {
        return record("ended", t, v);
    }
    bool halvoraKeyDown(const HLVKeyPress& key, const platform::ViewRef& v) override {
        log.push_back(std::static_pointer_cast<FakeView>(v)->name + " key " + key.key->get<std::string>());
        return takes;
    }
};

class RemoteControlTest : public testing::LibraryTest {
protected:
    void SetUp() override {
        LibraryTest::SetUp();
        // Every point the tests touch is a fraction a float holds exactly.
        platform::install({.screen = std::make_shared<platform::FixedScreen>(Rect{0, 0, 512, 1024}), .application = ui});
        window = ui->showKeyWindow({255, 255, 255, 255});
        HLVResponderRegistry::responders().clear();
    }
    template <typename View = FakeControl>
    std::shared_ptr<View> add(const std::shared_ptr<FakeView>& parent, Rect frame, ViewRole role, std::string name) {
        std::shared_ptr<View> view;
        if constexpr (std::is_same_v<View, FakeControl>) view = std::make_shared<FakeControl>(frame, role, log);
        else view = std::make_shared<FakeView>(frame, testing::Rgba{0, 0, 0, 0}, role);
        view->name = std::move(name);
        parent->addSubview(view);
        return view;
    }
    // In screen points.
    void touch(const char* state, double x, double y, const char* id = "p1") {
        auto event = HLVTouchEvent::from(Json{{"type", "Touch"}, {"id", id}, {"state", state}, {"x", x / 512}, {"y", y / 1024}});
        injector.inject(*event);
    }
    void tap(double x, double y) {
        touch("touchstart", x, y);
        touch("touchend", x, y);
    }
    void key(Json record) {
        record["type"] = "KeyPress";
        keys.inject(*HLVKeyPress::from(record));
    }

    std::shared_ptr<testing::FakeApplication> ui = std::make_shared<testing::FakeApplication>();
    std::shared_ptr<testing::FakeWindow> window;
    Calls log;
    HLVTouchInjector injector{nullptr};
    HLVKeyPressInjector keys;
};

TEST_F(RemoteControlTest, APressBeginsAfter250msOrAtTheReleaseAndEarlyMovesGoToTheScrollView) {
    auto list = add(window->root, {0, 0, 390, 844}, ViewRole::scrollView, "list");
    list->content = {390, 2000};
    list->bouncy = false;
    auto row = add<FakeView>(list, {0, 100, 390, 50}, ViewRole::plain, "row");
    HLVResponderRegistry::registerResponder("row", std::make_shared<RecordingExtension>(log, true));

    struct Step {
        const char* state;
        double y;
        int afterMs;
    };
    struct Case {
        const char* gesture;
        std::vector<Step> steps;
        Calls calls;
    };
    const Case cases[] = {
        {"quick tap", {{"touchstart", 120, 0}, {"touchend", 120, 100}, {nullptr, 0, 300}}, {"row began", "row ended"}},
        {"hold", {{"touchstart", 120, 0}, {nullptr, 0, 300}, {"touchend", 120, 0}}, {"row began", "row ended"}},
        // 2 points: the list scrolls but does not take the touch over; the press still lands on the row.
        {"small early move", {{"touchstart", 120, 0}, {"touchmove", 118, 50}, {"touchend", 118, 50}},
         {"row began", "row ended"}},
        {"hold then move", {{"touchstart", 120, 0}, {nullptr, 0, 260}, {"touchmove", 125, 0}, {"touchend", 125, 0}},
         {"row began", "row moved", "row ended"}},
        // 20 points in one early step: the list takes the drag; the row hears nothing.
        {"drag", {{"touchstart", 140, 0}, {"touchmove", 120, 50}, {nullptr, 0, 300}, {"touchend", 120, 0}},
         {"list settled at 20"}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.gesture);
        log.clear();
        list->offset = {};
        for (const auto& step : c.steps) {
            advance(std::chrono::milliseconds(step.afterMs));
            if (step.state) touch(step.state, 200, step.y);
            runPending();
        }
        EXPECT_EQ(log, c.calls);
        EXPECT_EQ(injector.activeTouchCount(), 0u);
    }
}

TEST_F(RemoteControlTest, ControlsActOnASingleTouchAsAFingerWould) {
    auto bar = add<FakeView>(window->root, {0, 100, 390, 60}, ViewRole::plain, "bar");
    auto button = add(bar, {10, 10, 100, 40}, ViewRole::control, "button");
    auto label = add<FakeView>(button, {10, 10, 50, 20}, ViewRole::plain, "label");
    auto toggle = add(window->root, {0, 200, 60, 30}, ViewRole::toggle, "switch");
    auto stepper = add(window->root, {100, 200, 100, 30}, ViewRole::stepper, "stepper");
    auto segments = add(window->root, {0, 300, 302, 30}, ViewRole::segmentedControl, "segments");
    auto slider = add(window->root, {20, 400, 200, 30}, ViewRole::slider, "slider");
    stepper->number = 10;
    slider->maximum = 1;

    tap(30, 125);  // on the label: it cannot act, so the button does
    tap(30, 215);
    tap(175, 215);  // right half at the maximum: nothing
    tap(150, 215);  // the exact middle steps down
    EXPECT_EQ(log, (Calls{"button tapped", "switch changed", "stepper changed"}));
    EXPECT_TRUE(toggle->on);
    EXPECT_EQ(stepper->number, 9);

    for (auto [x, index] : {std::pair{50.0, 0.0}, {150, 1}, {250, 2}, {100.5, -1}, {201.5, -1}}) {
        segments->number = -1;
        tap(x, 315);
        EXPECT_EQ(segments->number, index) << x;
    }
    touch("touchstart", 70, 415);
    runPending();
    advance(std::chrono::milliseconds(250));
    EXPECT_DOUBLE_EQ(slider->number, 0.25);
    touch("touchmove", 300, 415);
    EXPECT_DOUBLE_EQ(slider->number, 1);  // pinned at the maximum
    touch("touchend", 300, 415);

    // Two pointers: a release while the other is down presses nothing.
    log.clear();
    touch("touchstart", 30, 125, "a");
    touch("touchstart", 30, 215, "b");
    touch("touchend", 30, 215, "b");
    EXPECT_EQ(log, Calls{});
    touch("touchend", 30, 125, "a");
    EXPECT_EQ(log, Calls{"button tapped"});
    (void)label;
}

TEST_F(RemoteControlTest, ScrollingBouncesBackAndNestedListsHandOverAtTheirLimit) {
    auto outer = add(window->root, {0, 0, 390, 844}, ViewRole::scrollView, "outer");
    outer->content = {390, 3000};
    auto inner = add(outer, {0, 100, 390, 300}, ViewRole::scrollView, "inner");
    inner->content = {390, 600};
    inner->bouncy = false;

    // The inner list is at its top: a drag down is refused there and moves the outer one.
    touch("touchstart", 200, 200);
    for (int y = 210; y <= 350; y += 10) touch("touchmove", 200, y);
    EXPECT_EQ(inner->offset.y, 0);
    EXPECT_EQ(outer->offset.y, -150);  // 150 points past its top: bounces allow it during the drag
    touch("touchend", 200, 350);
    EXPECT_EQ(log, (Calls{"outer settled at 0"}));

    // Dragging up scrolls the inner list first.
    touch("touchstart", 200, 300);
    touch("touchmove", 200, 250);
    EXPECT_EQ(inner->offset.y, 50);
    EXPECT_EQ(outer->offset.y, 0);
    touch("touchend", 200, 250);
}

TEST_F(RemoteControlTest, TableRowsHighlightWhileHeldAndAreSelectedOnRelease) {
    auto table = add(window->root, {0, 0, 390, 844}, ViewRole::tableView, "table");
    auto row = add(table, {0, 100, 390, 50}, ViewRole::tableCell, "row");
    tap(100, 120);
    EXPECT_EQ(log, (Calls{"row unhighlighted", "row selected"}));

    log.clear();
    touch("touchstart", 100, 120);
    advance(std::chrono::milliseconds(250));
    touch("touchmove", 102, 120);
    touch("touchmove", 106, 120);  // 6 points of path: no longer a press
    touch("touchend", 106, 120);
    EXPECT_EQ(log, (Calls{"row highlighted", "row unhighlighted", "row unhighlighted", "row selected"}));

    // A session that ends under a held row leaves it unhighlighted and selects nothing.
    log.clear();
    touch("touchstart", 100, 120);
    advance(std::chrono::milliseconds(250));
    touch("touchmove", 101, 120);
    injector.cancelAll();
    EXPECT_EQ(log, (Calls{"row highlighted", "row unhighlighted", "table settled at 0"}));
    EXPECT_EQ(injector.activeTouchCount(), 0u);
    (void)row;
}

TEST_F(RemoteControlTest, ExtensionsComeFirstForTheirExactClassAndPlainViewsPassCallsUp) {
    auto card = add<FakeView>(window->root, {0, 100, 390, 100}, ViewRole::plain, "Card");
    auto label = add<FakeView>(card, {10, 10, 100, 20}, ViewRole::plain, "Label");
    HLVResponderRegistry::registerResponder("Card", std::make_shared<RecordingExtension>(log, true));
    tap(20, 115);
    EXPECT_EQ(log, (Calls{"Card began", "Card ended"}));

    log.clear();
    HLVResponderRegistry::registerResponder("Label", std::make_shared<RecordingExtension>(log, false));
    ui->focused = label;
    key({{"key", "k"}});
    EXPECT_EQ(log, (Calls{"Label key k", "Card key k"}));
}

TEST_F(RemoteControlTest, KeysTypeDeleteAndMoveTheCaretOfTheFocusedInput) {
    auto field = add(window->root, {0, 100, 390, 40}, ViewRole::textInput, "field");
    field->text = "abc";
    tap(15, 120);  // focus, and the caret after "a"
    EXPECT_EQ(log, (Calls{"field focused"}));
    ui->focused = field;
    struct Case {
        Json record;
        const char* text;
        std::size_t caret;
    };
    const Case cases[] = {
        {{{"key", "x"}, {"code", "KeyX"}, {"state", "keydown"}}, "axbc", 2},
        {{{"key", "y"}, {"state", "keyup"}}, "axbc", 2},
        {{{"key", "y"}}, "axybc", 3},
        {{{"key", "Backspace"}, {"code", "Backspace"}}, "axbc", 2},
        {{{"key", "ArrowLeft"}, {"code", "ArrowLeft"}}, "axbc", 1},
        {{{"key", "Enter"}, {"code", "Enter"}}, "axbc", 1},
        {{{"key", "\xC3\xA9"}}, "a\xC3\xA9xbc", 3},    // é: one UTF-16 unit
        {{{"key", "\xF0\x9F\x98\x80"}}, "a\xC3\xA9xbc", 3},  // an emoji: two units, dropped
        {{{"key", 7}}, "a\xC3\xA9xbc", 3},
    };
    for (const auto& c : cases) {
        key(c.record);
        EXPECT_EQ(field->text, c.text) << c.record.dump();
        EXPECT_EQ(field->caret, c.caret) << c.record.dump();
    }
    field->caret = 0;
    key({{"code", "ArrowLeft"}});
    EXPECT_EQ(field->caret, 0u);
}

TEST_F(RemoteControlTest, OnlyTheWindowsTheAgentSeesAreTouchedAndBadPointsTouchNothing) {
    auto button = add(window->root, {0, 0, 390, 844}, ViewRole::control, "button");
    auto overlay = std::make_shared<testing::FakeWindow>(Rect{0, 0, 390, 844}, testing::Rgba{}, ViewRole::overlay);
    ui->windowList.push_back(overlay);  // in front, over everything
    HLVTouchInjector seen([&](const platform::Window& w) { return &w != overlay.get(); });
    for (const Json& record : {Json{{"x", 0.5}, {"y", 0.5}}, Json{{"x", 2}, {"y", 0.5}}, Json{{"x", "0.5"}, {"y", 0.5}},
                               Json{{"x", -1e300}, {"y", 1e300}}}) {
        for (const char* state : {"touchstart", "touchend"}) {
            Json event = record;
            event.update(Json{{"type", "Touch"}, {"id", 1}, {"state", state}});
            seen.inject(*HLVTouchEvent::from(event));
        }
    }
    // Only the first point lies on the screen; (0, 0) for the unreadable one is on the button too.
    EXPECT_EQ(log, (Calls{"button tapped", "button tapped"}));
}

}  // namespace
}  // namespace halvora
