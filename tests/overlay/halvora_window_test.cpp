// The overlay model: what agent events draw, which touches it takes, and how it follows the screen.
#include <gtest/gtest.h>

#include <chrono>

#include "halvora/agent_events.h"
#include "overlay/halvora_window.h"
#include "halvora/platform.h"
#include "tests/support/library_fixture.h"

namespace halvora {
namespace {

using namespace std::chrono_literals;

// A screen that rotates when told to.
struct RotatingScreen final : platform::Screen {
    HLVRect screenBounds{0, 0, 400, 800};
    HLVRect statusBar{0, 0, 400, 40};
    HLVRect bounds() const override { return screenBounds; }
    HLVRect statusBarFrame() const override { return statusBar; }
};

Json drawingRecord(std::optional<std::vector<std::uint8_t>> image) {
    Json record{{"type", "Drawing"}, {"id", 1}, {"x", 0.25}, {"y", 0.5}, {"width", 0.5}, {"height", 0.25}};
    if (image) record["image"] = Json::binary(*image);
    return record;
}

class HalvoraWindowTest : public testing::LibraryTest {
protected:
    void SetUp() override {
        LibraryTest::SetUp();
        platform::Services services;
        services.screen = screen;
        platform::install(services);
        window = std::make_unique<HLVHalvoraWindow>();
    }
    void laserAt(double x, double y, const char* state = "touchmove") {
        window->onAgentEvent(*HLVLaser::from(Json{{"type", "Laser"}, {"state", state}, {"x", x}, {"y", y}}));
    }
    void touch(const char* state, double x, double y, Json id = 1) {
        window->onAgentEvent(*HLVTouchEvent::from(Json{{"type", "Touch"}, {"id", id}, {"state", state}, {"x", x}, {"y", y}}));
    }
    std::shared_ptr<RotatingScreen> screen = std::make_shared<RotatingScreen>();
    std::unique_ptr<HLVHalvoraWindow> window;
};

TEST_F(HalvoraWindowTest, OnlyTheBannerTakesTouches) {
    int taps = 0;
    window->onStatusTap = [&] { ++taps; };
    touch("touchstart", 0.025, 0.025);  // a dot over the banner's corner
    laserAt(0.5, 0.5);
    EXPECT_TRUE(window->hitTest({0, 0}));
    EXPECT_TRUE(window->hitTest({399.5, 39.5}));
    EXPECT_FALSE(window->hitTest({400, 10}));  // one point outside
    EXPECT_FALSE(window->hitTest({10, 40}));
    EXPECT_FALSE(window->hitTest({-1, 10}));
    EXPECT_FALSE(window->hitTest({200, 400}));  // under the laser
    window->statusBarTapped();
    EXPECT_EQ(taps, 1);
}

TEST_F(HalvoraWindowTest, ShowsAndHidesOnTheMainQueueAndHidingClearsTheDrawing) {
    EXPECT_TRUE(window->isHidden());
    window->setActive(true);
    EXPECT_TRUE(window->isHidden());
    runPending();
    EXPECT_TRUE(window->isActive());

    window->onAgentEvent(*HLVDrawing::from(drawingRecord(std::vector<std::uint8_t>{1, 2, 3})));
    touch("touchstart", 0.5, 0.5);
    window->setActive(false);
    EXPECT_TRUE(window->latestDrawing());
    runPending();
    EXPECT_TRUE(window->isHidden());
    EXPECT_FALSE(window->latestDrawing());
    EXPECT_TRUE(window->annotationImage().empty());
    EXPECT_EQ(window->agentTouches().dots().size(), 1u);  // a dot stays until its end arrives

    window->setActive(true);
    runPending();
    EXPECT_FALSE(window->latestDrawing());
    EXPECT_TRUE(window->annotationImage().empty());
}

TEST_F(HalvoraWindowTest, PlacesTheDrawingAndADrawingWithoutImageClearsItAndTheLaser) {
    laserAt(0.5, 0.5);
    window->onAgentEvent(*HLVDrawing::from(drawingRecord(std::vector<std::uint8_t>{1, 2, 3})));
    EXPECT_EQ(window->annotationFrame(), (HLVRect{100, 400, 200, 200}));
    EXPECT_EQ(window->annotationImage(), (std::vector<std::uint8_t>{1, 2, 3}));
    EXPECT_FALSE(window->laserPointer().isEnabled());  // any drawing puts the laser away

    laserAt(0.5, 0.5);
    EXPECT_EQ(window->laserPointer().laserPosition(), (HLVPoint{200, 400}));
    window->onAgentEvent(*HLVDrawing::from(drawingRecord(std::nullopt)));
    EXPECT_FALSE(window->latestDrawing());
    EXPECT_TRUE(window->annotationImage().empty());
    EXPECT_FALSE(window->laserPointer().isEnabled());
}

TEST_F(HalvoraWindowTest, LaserStopsOnlyOnTouchEnd) {
    laserAt(0.25, 0.25, "something new");
    EXPECT_EQ(window->laserPointer().laserPosition(), (HLVPoint{100, 200}));
    window->onAgentEvent(*HLVLaser::from(Json{{"type", "Laser"}, {"x", 0.5}, {"y", 0.5}}));  // no state
    EXPECT_EQ(window->laserPointer().laserPosition(), (HLVPoint{200, 400}));
    laserAt(0.5, 0.5, "touchend");
    EXPECT_FALSE(window->laserPointer().isEnabled());
}

// Which dot an event moves is the touch view's business; here, that positions become screen points.
TEST_F(HalvoraWindowTest, TouchEventsDriveTheDotsInScreenPoints) {
    auto parsed = HLVTouchEvent::from(Json{{"type", "Touch"}, {"state", "touchstart"}, {"x", 0.1}, {"y", 0.3}});
    EXPECT_EQ(parsed->position, (HLVPoint{static_cast<double>(0.1f) * 400, static_cast<double>(0.3f) * 800}));

    touch("touchstart", 0.25, 0.25);
    touch("touchmove", 0.5, 0.5);
    ASSERT_EQ(window->agentTouches().dots().size(), 1u);
    EXPECT_EQ(window->agentTouches().dots()[0].frame, (HLVRect{185, 385, 30, 30}));
    touch("touchend", 0.5, 0.5);
    EXPECT_TRUE(window->agentTouches().dots().empty());
}

TEST_F(HalvoraWindowTest, FollowsTheStatusBarAfterAShortPause) {
    window->onAgentEvent(*HLVDrawing::from(drawingRecord(std::vector<std::uint8_t>{1})));
    screen->screenBounds = {0, 0, 800, 400};
    screen->statusBar = {0, 0, 800, 20};
    window->statusBarFrameChanged();
    EXPECT_EQ(window->bannerFrame(), HLVRect{});
    EXPECT_FALSE(window->hitTest({0, 0}));
    advance(99ms);
    EXPECT_EQ(window->bannerFrame(), HLVRect{});
    advance(1ms);
    EXPECT_EQ(window->bannerFrame(), (HLVRect{0, 0, 800, 20}));
    EXPECT_EQ(window->frame(), (HLVRect{0, 0, 800, 400}));
    EXPECT_EQ(window->annotationFrame(), (HLVRect{200, 200, 400, 100}));
}

}  // namespace
}  // namespace halvora
