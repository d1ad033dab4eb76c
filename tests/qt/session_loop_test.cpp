// A whole session over real Qt Quick windows, composed as an application gets it from
// halvora::qt::install(): the frame loop's pictures as the agent would decode them, the overlay kept
// out of them, and no pixel of a redacted item in any of them, in every Controls style.
#include <gtest/gtest.h>

#include <QQuickStyle>

#include <algorithm>
#include <iostream>
#include <optional>
#include <string_view>

#include "halvora/delegate.h"
#include "qt/redaction_mask_item.h"
#include "session_fixture.h"

namespace halvora::qt {
namespace {

using namespace test;

// The home page has a blue badge.
constexpr const char* kShopQml = R"(
    import QtQuick
    import QtQuick.Controls
    Window {
        width: 390; height: 844; color: "white"
        StackView {
            anchors.fill: parent
            initialItem: Page {
                title: "Home"
                Rectangle { objectName: "badge"; x: 40; y: 200; width: 200; height: 200; color: "#2040c0" }
            }
        }
    })";

// Everything sensitive is drawn in magenta, a colour nothing else uses: a card with a child outside
// its bounds and a Text running past its box on the checkout screen (on show when the session
// starts), a rotated, scaled, half-transparent field declared by a plain Item on the home screen,
// a SwipeView's second page, and a Dialog's content. Each screen has a marker colour of its own.
constexpr const char* kLeakQml = R"(
    import QtQuick
    import QtQuick.Controls
    import Halvora
    ApplicationWindow {
        width: 390; height: 844; color: "white"
        function push(name) { stack.push(name === "home" ? home : name === "swipe" ? swipe : checkout) }
        function pop() { stack.pop() }
        function halfSwipe(on) { stack.currentItem.swipe.contentItem.contentX = on ? 195 : 0 }
        function openPopups() { dialog.open(); menu.open(); tip.visible = true }
        function closePopups() { dialog.close(); menu.close(); tip.visible = false }
        Component {
            id: checkout
            Page {
                title: "Checkout"
                Halvora.redactedItems: [card, number]
                Rectangle { width: parent.width; height: 120; color: "#10a040" }
                Rectangle {
                    id: card; x: 20; y: 300; width: 350; height: 90; color: "#ff00cc"
                    Rectangle { x: -15; y: 95; width: 60; height: 40; color: "#ff00cc" }
                }
                Text {
                    id: number; x: 20; y: 450; width: 60; height: 20; color: "#ff00cc"
                    font.pixelSize: 40; text: "4111 1111 1111 1111"
                }
            }
        }
        Component {
            id: home
            Page {
                title: "Home"
                Rectangle { x: 40; y: 130; width: 200; height: 60; color: "#2040c0" }
                Item {
                    anchors.fill: parent
                    Halvora.redactedItems: [pin]
                    Rectangle {
                        id: pin; x: 100; y: 400; width: 160; height: 50; color: "#ff00cc"
                        rotation: 30; scale: 1.5; opacity: 0.6
                    }
                }
            }
        }
        Component {
            id: swipe
            Page {
                title: "Cards"
                property alias swipe: swipeView
                SwipeView {
                    id: swipeView; anchors.fill: parent
                    Page { Rectangle { x: 40; y: 130; width: 200; height: 60; color: "#e0c000" } }
                    Page {
                        Halvora.redactedItems: [secret]
                        Rectangle { id: secret; x: 10; y: 300; width: 370; height: 200; color: "#ff00cc" }
                    }
                }
            }
        }
        StackView { id: stack; anchors.fill: parent; initialItem: checkout }
        Dialog {
            id: dialog; title: "Card"; anchors.centerIn: parent
            Halvora.redactedItems: [dialogField]
            contentItem: Rectangle { id: dialogField; implicitWidth: 220; implicitHeight: 90; color: "#ff00cc" }
        }
        Menu { id: menu; MenuItem { text: "Copy" } }
        ToolTip { id: tip; text: "Long press to copy"; x: 30; y: 600 }
    })";

bool isBannerRed(QColor c) { return c.red() > 200 && c.green() < 90 && c.blue() < 90; }
bool isCheckoutGreen(QColor c) { return c.red() < 60 && c.green() > 130 && c.blue() < 100; }
bool isBadgeBlue(QColor c) { return c.red() < 60 && c.green() < 100 && c.blue() > 160; }
bool isHomeBlue(QColor c) { return isBadgeBlue(c); }
bool isSwipeYellow(QColor c) { return c.red() > 190 && c.green() > 160 && c.blue() < 60; }
bool isBadgeOrange(QColor c) { return c.red() > 200 && c.green() > 100 && c.green() < 170 && c.blue() < 60; }

class RefuseEveryWindow final : public HalvoraDelegate {
public:
    void halvoraSessionDidUpdate(const std::shared_ptr<HLVSession>&) override {}
    void halvoraSessionDidEnd(const std::shared_ptr<HLVSession>&) override {}
    std::optional<bool> halvoraShouldCaptureWindow(const platform::Window&) override { return false; }
};

class QtSessionTest : public SessionOverQuickWindow {
protected:
    const char* windowQml() const override { return kShopQml; }
};

// The largest difference of a colour channel between two pictures of one size.
int largestDifference(const QImage& a, const QImage& b) {
    EXPECT_EQ(a.size(), b.size());
    int largest = 0;
    for (int y = 0; y < std::min(a.height(), b.height()); ++y)
        for (int x = 0; x < std::min(a.width(), b.width()); ++x) {
            const QColor p = a.pixelColor(x, y), q = b.pixelColor(x, y);
            largest = std::max({largest, std::abs(p.red() - q.red()), std::abs(p.green() - q.green()),
                                std::abs(p.blue() - q.blue())});
        }
    return largest;
}

TEST_F(QtSessionTest, FramesFollowTheScreenWholeOrInRegionsAndSyncResendsWithoutTheOverlayEvenIfEveryWindowIsRefused) {
    Halvora::instance().setDelegate(std::make_shared<RefuseEveryWindow>());
    ASSERT_NO_FATAL_FAILURE(activate());
    waitForFrameShowing(isBadgeBlue);
    // The banner is on the screen the user sees, but never in what the agent gets.
    ASSERT_TRUE(eventually([&] { return anyPixel(window->grabWindow(), isBannerRed); }));

    // Several passes over a still screen: nothing sent, and the window on screen not rendered
    // again for them (the overlay is left out of the grabs' own renders only).
    int rendered = 0;
    const auto counting = QObject::connect(window.get(), &QQuickWindow::frameSwapped, [&] { ++rendered; });
    QTest::qWait(600);
    QObject::disconnect(counting);
    ASSERT_EQ(frames().size(), 1u);
    EXPECT_LE(rendered, 1) << "the capture made the window render";

    child(window.get(), "badge")->setProperty("color", QColor("#f08020"));
    waitForFrameShowing(isBadgeOrange);
    stream()->fire("sync");
    ASSERT_TRUE(eventually([&] { return frames().size() == 3; }));
    QTest::qWait(300);

    // An agent that draws regions gets a whole picture at its "sync", then only what changed;
    // drawn over the picture before, that is the picture a whole frame of the same moment shows.
    stream()->fire("sync", {Json{{"regions", true}}});
    ASSERT_TRUE(eventually([&] { return frames().size() == 4; }));
    child(window.get(), "badge")->setProperty("color", QColor("#2040c0"));
    waitForFrameShowing(isBadgeBlue);
    stream()->fire("sync");
    ASSERT_TRUE(eventually([&] { return frames().size() == 6; }));
    // 500 pixels at most, as phones had it.
    Halvora::instance().setMaxFrameSide(500);
    stream()->fire("sync");
    ASSERT_TRUE(eventually([&] { return frames().size() == 7; }));
    QTest::qWait(300);

    const auto sent = frames();
    ASSERT_EQ(sent.size(), 7u);
    for (std::size_t i = 0; i < sent.size(); ++i) {
        EXPECT_EQ(sent[i].id, static_cast<int>(i) + 1);
        EXPECT_EQ(sent[i].image.size(), i < 6 ? QSize(390, 844) : QSize(231, 500)) << "frame " << sent[i].id;
        EXPECT_EQ(sent[i].regions > 0, i == 4) << "frame " << sent[i].id;
        EXPECT_FALSE(anyPixel(sent[i].image, isBannerRed)) << "frame " << sent[i].id;
    }
    EXPECT_EQ(sent[2].image, sent[1].image);
    EXPECT_EQ(sent[3].image, sent[1].image);
    EXPECT_LE(largestDifference(sent[4].image, sent[5].image), 32);  // chroma smoothing at the regions' edges
}

// Any window: the masks the library made, wherever they are.
int masksIn(QQuickItem* item) {
    int count = qobject_cast<RedactionMaskItem*>(item) ? 1 : 0;
    for (QQuickItem* child : item->childItems()) count += masksIn(child);
    return count;
}

class RedactionLeakTest : public SessionOverQuickWindow, public ::testing::WithParamInterface<const char*> {
protected:
    void SetUp() override {
#if HALVORA_SANITIZED
        // Qt's Material and Universal styles leave font-engine allocations at exit that the leak
        // checker reports (and its tracer has crashed on); the default build runs them.
        if (std::string_view(GetParam()) != "Basic") GTEST_SKIP() << "style not run in sanitizer builds";
#endif
        QQuickStyle::setStyle(QString::fromLatin1(GetParam()));  // before the first Controls type loads
        SessionOverQuickWindow::SetUp();
    }
    const char* windowQml() const override { return kLeakQml; }
    void call(const char* method, QVariant argument = {}) {
        if (argument.isValid()) QMetaObject::invokeMethod(window.get(), method, Q_ARG(QVariant, argument));
        else QMetaObject::invokeMethod(window.get(), method);
    }
    std::size_t screensAnnounced() const {
        const auto sent = stream()->emittedSoFar();
        return static_cast<std::size_t>(std::count_if(sent.begin(), sent.end(), [](const auto& e) { return e.first == "screen"; }));
    }
    void waitForMoreFrames(std::size_t than) {
        EXPECT_TRUE(eventually([&] { return frames().size() > than; })) << "no new frame";
    }
};

TEST_P(RedactionLeakTest, NoFrameEverHoldsAPixelOfARedactedItem) {
    CaptureProbe probe;
    ASSERT_NO_FATAL_FAILURE(activate());  // the checkout screen is already on show
    waitForFrameShowing(isCheckoutGreen);

    for (int round = 0; round < 3; ++round) {  // pages made afresh, often where old ones were
        call("push", "home");
        waitForFrameShowing(isHomeBlue);
        call("pop");
        waitForFrameShowing(isCheckoutGreen);
        call("push", "checkout");
        waitForFrameShowing(isCheckoutGreen);
        call("pop");
    }
    call("push", "swipe");
    waitForFrameShowing(isSwipeYellow);
    call("halfSwipe", true);
    waitForMoreFrames(frames().size());
    call("halfSwipe", false);
    call("pop");
    waitForFrameShowing(isCheckoutGreen);

    const std::size_t screens = screensAnnounced();
    const std::size_t before = frames().size();
    call("openPopups");
    waitForMoreFrames(before);
    QTest::qWait(300);
    EXPECT_EQ(screensAnnounced(), screens) << "a popup was announced as a screen";
    call("closePopups");
    QTest::qWait(300);

    // Enough pictures for the probe to have meant something; a slow (sanitized) build takes longer.
    EXPECT_TRUE(eventually([&] { return probe.shown > 50; })) << "only " << probe.shown << " pictures probed";
    session->updateResource(record("ended"));
    ASSERT_TRUE(eventually([&] { return masksIn(window->contentItem()) == 0; })) << "a mask outlived the session";
    EXPECT_TRUE(Halvora::instance().redactedViews().empty());

    const auto sent = frames();
    for (const auto& frame : sent) EXPECT_FALSE(anyPixel(frame.image, isCardColour)) << "frame " << frame.id;
    EXPECT_EQ(probe.leaked, 0) << "of " << probe.shown << " pictures";
    // The colour really is on screen: the test would see a leak.
    EXPECT_TRUE(anyPixel(window->grabWindow(), isCardColour));
    std::cout << sent.size() << " frames sent, " << probe.shown << " pictures probed, " << probe.refused
              << " refused while a place was unknown\n";
}

INSTANTIATE_TEST_SUITE_P(Styles, RedactionLeakTest, ::testing::Values("Basic", "Material", "Universal"),
                         [](const auto& style) { return std::string(style.param); });

}  // namespace
}  // namespace halvora::qt
