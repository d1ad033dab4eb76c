// The facade's screen hooks during a session: sensitive views are masked while it is active (one
// mask each, in front), and frames blank them by themselves. Every kind of leak is looked for on
// real Qt windows in tests/qt/session_loop_test.cpp.
#include <gtest/gtest.h>

#include "halvora/halvora.h"
#include "facade/facade_access.h"
#include "halvora/platform.h"
#include "halvora/session.h"
#include "tests/support/fake_ui.h"
#include "tests/support/library_fixture.h"

namespace halvora {
namespace {

using testing::FakeView;
using testing::FakeViewController;
using testing::Rgba;

constexpr Rgba kCardRed{250, 10, 200, 255};

class ScreenHooksTest : public testing::LibraryTest {
protected:
    void SetUp() override {
        LibraryTest::SetUp();
        session = FacadeAccess::makeSession();
        platform::install({.application = ui});
        startLibrary();
        window = ui->showKeyWindow({255, 255, 255, 255});
        window->root->addSubview(card);
        screen->sensitive = std::vector<platform::ViewRef>{card};
        ui->top = screen;
    }

    void activate() {
        Halvora::instance().setCurrentSession(session);
        session->updateResource(Json::parse(R"({"type":"Session","id":"S","code":"123456","state":"pending"})"));
        session->activate([](OptionalError, std::shared_ptr<HLVSession>) {});
        http->respondJson(200, R"({"type":"Session","id":"S","code":"123456","state":"active"})");
        runPending();
    }
    int masksOn(const FakeView& view) const {
        int count = 0;
        for (const auto& child : view.subviews()) count += child->role() == platform::ViewRole::redactionMask;
        return count;
    }

    std::shared_ptr<testing::FakeApplication> ui = std::make_shared<testing::FakeApplication>();
    std::shared_ptr<testing::FakeWindow> window;
    std::shared_ptr<FakeView> card = std::make_shared<FakeView>(platform::Rect{20, 300, 350, 60}, kCardRed);
    std::shared_ptr<FakeViewController> screen = std::make_shared<FakeViewController>();
    std::shared_ptr<HLVSession> session;
};

TEST_F(ScreenHooksTest, DeclaredViewsAreMaskedFromActivationAndFramesFailClosedWithoutTheirPlace) {
    auto& halvora = Halvora::instance();
    ui->sensitive = {card};
    halvora.viewWillAppear(screen, false);
    EXPECT_EQ(masksOn(*card), 0);  // no session

    activate();  // the screen is already on show
    EXPECT_TRUE(ui->idleTimerDisabled);
    EXPECT_EQ(masksOn(*card), 1);
    card->addSubview(std::make_shared<FakeView>(platform::Rect{0, 0, 10, 10}, Rgba{1, 2, 3, 255}));
    auto second = std::make_shared<FakeViewController>();
    second->sensitive = std::vector<platform::ViewRef>{card, card};
    halvora.viewWillAppear(second, false);
    EXPECT_EQ(masksOn(*card), 1);
    EXPECT_EQ(card->subviews().back()->role(), platform::ViewRole::redactionMask);
    EXPECT_EQ(halvora.redactedViews().size(), 1u);

    EXPECT_FALSE(session->captureScreen());  // the toolkit cannot tell where the card draws
    card->drawnAs = platform::DrawnArea::at({20, 300, 350, 60});
    ASSERT_TRUE(session->captureScreen());
    EXPECT_FALSE(testing::containsColour(session->lastCapture(), kCardRed, 8));
    EXPECT_TRUE(testing::containsColour(session->lastCapture(), {0x26, 0x26, 0x28, 0xff}, 0));
}

// The display is kept awake while a session is active and may sleep and lock again once it
// ends (on a desktop the hold covers the whole desktop); a hold the application took itself is
// left to it.
TEST_F(ScreenHooksTest, TheDisplayIsKeptAwakeOnlyWhileTheSessionIsActive) {
    for (const bool heldByTheApplication : {false, true}) {
        ui->idleTimerDisabled = heldByTheApplication;
        session = FacadeAccess::makeSession();
        activate();
        EXPECT_TRUE(ui->idleTimerDisabled);
        session->updateResource(Json::parse(R"({"type":"Session","id":"S","code":"123456","state":"ended"})"));
        runPending();
        EXPECT_EQ(ui->idleTimerDisabled, heldByTheApplication) << "the application held it: " << heldByTheApplication;
    }
}

TEST_F(ScreenHooksTest, ARemaskRefreshesTheFrameAndComesToTheFront) {
    Halvora::redact(card);
    card->setFrame({20, 300, 350, 120});
    card->addSubview(std::make_shared<FakeView>(platform::Rect{0, 0, 10, 10}, Rgba{1, 2, 3, 255}));
    EXPECT_NE(card->subviews().back()->role(), platform::ViewRole::redactionMask);
    EXPECT_EQ(Halvora::redactionOverlay(*card)->frame().height, 60);
    Halvora::redact(card);
    EXPECT_EQ(masksOn(*card), 1);
    EXPECT_EQ(card->subviews().back()->role(), platform::ViewRole::redactionMask);
    EXPECT_EQ(Halvora::redactionOverlay(*card)->frame().height, 120);
}

}  // namespace
}  // namespace halvora
