// Streaming frames: the loop's pace, change detection, numbering, "sync", the window choice and
// the screen announcements, on the manual clock with an in-memory user interface.
#include <gtest/gtest.h>

#include "capture/screen_capture.h"
#include "facade/facade_access.h"
#include "halvora/halvora.h"
#include "halvora/delegate.h"
#include "halvora/platform.h"
#include "halvora/session.h"
#include "tests/support/fake_ui.h"
#include "tests/support/library_fixture.h"

namespace halvora {
namespace {

using namespace std::chrono_literals;
using testing::FakeApplication;
using testing::FakeView;
using testing::FakeWindow;
using testing::Rgba;

constexpr Rgba kWhite{255, 255, 255, 255};
constexpr Rgba kBlue{20, 60, 200, 255};

Json record(const std::string& state) {
    return Json{{"type", "Session"},         {"id", "S"},          {"code", "123456"}, {"state", state},
                {"control_url", "http://svc"}, {"control_token", "c1"}, {"stream_url", "http://svc"},
                {"stream_token", "s1"}};
}

class SessionFramesTest : public testing::LibraryTest {
protected:
    void SetUp() override {
        LibraryTest::SetUp();
        session = FacadeAccess::makeSession();
        platform::install({.application = ui});
        startLibrary();
        window = ui->showKeyWindow(kWhite);
        session->updateResource(record("active"));
        stream()->connected = true;
    }

    std::shared_ptr<testing::FakeRealtimeSocket> stream() const { return sockets->latestWithToken("s1"); }
    // Lets the main queue and the sending queue settle at the current time.
    void settle() {
        for (int i = 0; i < 3; ++i) {
            runPending();
            platform::backgroundQueue().drain();
        }
        runPending();
    }
    std::vector<Json> sent(const std::string& event) const {
        std::vector<Json> records;
        for (const auto& [name, items] : stream()->emitted) {
            if (name == event) records.push_back(items.at(0));
        }
        return records;
    }

    std::shared_ptr<FakeApplication> ui = std::make_shared<FakeApplication>();
    std::shared_ptr<FakeWindow> window;
    std::shared_ptr<HLVSession> session;
};

TEST_F(SessionFramesTest, OnlyChangedOrResyncedPicturesAreSentNumberedFromOne) {
    session->frameLoop();
    settle();
    auto frames = sent("frame");
    ASSERT_EQ(frames.size(), 1u);
    const auto& jpeg = frames[0]["image"].get_binary();  // decoded as a picture in tests/qt
    ASSERT_GT(jpeg.size(), 2u);
    EXPECT_EQ(jpeg[0], 0xFF);
    EXPECT_FALSE(jpeg.has_subtype());
    frames[0]["image"] = nullptr;
    frames[0]["timestamp"] = nullptr;
    EXPECT_EQ(frames[0].dump(), R"({"type":"Frame","id":1,"image":null,"timestamp":null,"mime_type":"image/jpeg"})");
    EXPECT_EQ(session->lastFrameId(), "1");
    EXPECT_EQ(session->lastCapture().width, 231);  // 390x844 points at 500/844
    EXPECT_EQ(session->lastCapture().height, 500);

    for (int i = 0; i < 5; ++i) {  // still screen: captured every 0.1 s, never sent
        advance(100ms);
        settle();
    }
    EXPECT_EQ(sent("frame").size(), 1u);
    EXPECT_GE(window->draws, 5);

    window->root->addSubview(std::make_shared<FakeView>(platform::Rect{10, 100, 200, 40}, kBlue));
    advance(100ms);
    settle();
    stream()->fire("sync");
    advance(100ms);
    settle();
    frames = sent("frame");
    ASSERT_EQ(frames.size(), 3u);
    EXPECT_EQ(frames[1]["id"], 2);
    EXPECT_EQ(frames[2]["id"], 3);
    EXPECT_EQ(frames[2]["image"], frames[1]["image"]);  // the same picture, sent again on request
}

TEST_F(SessionFramesTest, ADisconnectedStreamSpendsTheNumberAndKeepsThePictureAsSent) {
    stream()->connected = false;
    session->frameLoop();
    settle();
    EXPECT_TRUE(sent("frame").empty());
    EXPECT_EQ(session->lastFrameId(), "1");

    stream()->connected = true;
    advance(100ms);
    settle();
    EXPECT_TRUE(sent("frame").empty());  // unchanged since the dropped frame
    window->root->setFill(kBlue);
    advance(100ms);
    settle();
    ASSERT_EQ(sent("frame").size(), 1u);
    EXPECT_EQ(sent("frame")[0]["id"], 2);
}

TEST_F(SessionFramesTest, InTheBackgroundTheLoopPollsWithoutCapturing) {
    ui->appState = platform::ApplicationState::background;
    session->frameLoop();
    settle();
    advance(400ms);
    settle();
    EXPECT_EQ(window->draws, 0);
    ui->appState = platform::ApplicationState::active;
    advance(99ms);
    settle();
    EXPECT_EQ(window->draws, 0);  // the next check is 0.5 s after the last
    advance(1ms);
    settle();
    EXPECT_EQ(window->draws, 1);
}

TEST_F(SessionFramesTest, TheLoopStopsAfterTheSessionEndsAndDoesNotRunTwice) {
    session->frameLoop();
    session->frameLoop();  // a second activation
    settle();
    EXPECT_EQ(window->draws, 1);
    session->updateResource(record("ended"));
    advance(100ms);
    settle();
    advance(1s);
    settle();
    EXPECT_EQ(window->draws, 1);
    EXPECT_FALSE(session->isFrameLoopRunning());
}

class RefusingDelegate final : public HalvoraDelegate {
public:
    void halvoraSessionDidUpdate(const std::shared_ptr<HLVSession>&) override {}
    void halvoraSessionDidEnd(const std::shared_ptr<HLVSession>&) override {}
    std::optional<bool> halvoraShouldCaptureWindow(const platform::Window&) override { return false; }
};

TEST_F(SessionFramesTest, TheKeyWindowIsAlwaysCapturedTheOverlayNeverOthersAsTheDelegateSays) {
    auto behind = std::make_shared<FakeWindow>(platform::Rect{0, 0, 390, 844}, kBlue);
    auto overlay = std::make_shared<FakeWindow>(platform::Rect{0, 0, 390, 844}, kBlue, platform::ViewRole::overlay);
    ui->windowList = {behind, window, overlay};
    auto& halvora = Halvora::instance();
    EXPECT_TRUE(halvora.shouldCaptureWindow(*behind));
    EXPECT_FALSE(halvora.shouldCaptureWindow(*overlay));

    halvora.setDelegate(std::make_shared<RefusingDelegate>());
    ASSERT_TRUE(session->captureScreen());
    EXPECT_EQ(window->draws, 1);
    EXPECT_EQ(behind->draws + overlay->draws, 0);
    EXPECT_FALSE(testing::containsColour(session->lastCapture(), kBlue, 0));
}

TEST(CaptureScale, CapsTheLongerSideAt500Pixels) {
    EXPECT_EQ(captureScale({0, 0, 320, 480}), 1.0f);
    EXPECT_NEAR(captureScale({0, 0, 414, 896}), 0.558f, 0.001f);
    EXPECT_NEAR(captureScale({0, 0, 896, 414}), 0.558f, 0.001f);
    EXPECT_EQ(captureScale({0, 0, 0, 0}), 1.0f);
}

TEST_F(SessionFramesTest, TheTopScreenIsAnnouncedWhileActiveWithANullTitleWhenItHasNone) {
    auto shown = std::make_shared<testing::FakeViewController>();
    auto other = std::make_shared<testing::FakeViewController>();
    ui->top = shown;
    session->viewWillAppear(other, true);
    session->viewWillAppear(shown, false);
    shown->screenTitle = "Pay";
    session->viewWillAppear(shown, false);
    auto screens = sent("screen");
    ASSERT_EQ(screens.size(), 2u);
    screens[0]["timestamp"] = nullptr;
    EXPECT_EQ(screens[0].dump(), R"({"type":"Screen","class":"CheckoutScreen","title":null,"timestamp":null})");
    EXPECT_EQ(screens[1]["title"], "Pay");

    session->updateResource(record("pending"));
    session->viewWillAppear(shown, false);
    EXPECT_EQ(sent("screen").size(), 2u);
}

}  // namespace
}  // namespace halvora
