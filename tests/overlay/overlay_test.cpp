// The overlay model: what agent events draw, and the laser's and the touch circles' rules. Which
// touches it takes (the banner's only), that its banner follows the window and that it never
// reaches a frame are checked on real Qt Quick windows in tests/qt.
#include <gtest/gtest.h>

#include "halvora/agent_events.h"
#include "halvora/platform.h"
#include "overlay/agent_touch_view.h"
#include "overlay/halvora_window.h"
#include "overlay/laser_pointer.h"
#include "tests/support/library_fixture.h"

namespace halvora {
namespace {

using namespace std::chrono_literals;
using Points = std::vector<HLVPoint>;

struct Screen final : platform::Screen {
    HLVRect bounds() const override { return {0, 0, 400, 800}; }
    HLVRect statusBarFrame() const override { return {0, 0, 400, 40}; }
};

HLVDrawing drawing(std::optional<std::vector<std::uint8_t>> image) {
    Json record{{"type", "Drawing"}, {"id", 1}, {"x", 0.25}, {"y", 0.5}, {"width", 0.5}, {"height", 0.25}};
    if (image) record["image"] = Json::binary(*image);
    return *HLVDrawing::from(record);
}

class OverlayTest : public testing::LibraryTest {
protected:
    void SetUp() override {
        LibraryTest::SetUp();
        platform::install({.screen = screen});
        window = std::make_unique<HLVHalvoraWindow>();
    }
    void laserAt(double x, double y, const char* state = "touchmove") {
        window->onAgentEvent(*HLVLaser::from(Json{{"type", "Laser"}, {"state", state}, {"x", x}, {"y", y}}));
    }
    void touch(const char* state, double x, double y) {
        window->onAgentEvent(*HLVTouchEvent::from(Json{{"type", "Touch"}, {"id", 1}, {"state", state}, {"x", x}, {"y", y}}));
    }
    std::shared_ptr<Screen> screen = std::make_shared<Screen>();
    std::unique_ptr<HLVHalvoraWindow> window;
    HLVLaserPointerView laser{HLVRect{0, 0, 390, 844}};
};

TEST_F(OverlayTest, ShowsAndHidesOnTheMainQueueAndHidingClearsTheDrawing) {
    window->setActive(true);
    EXPECT_TRUE(window->isHidden());
    runPending();
    EXPECT_TRUE(window->isActive());

    window->onAgentEvent(drawing(std::vector<std::uint8_t>{1, 2, 3}));
    touch("touchstart", 0.5, 0.5);
    window->setActive(false);
    EXPECT_TRUE(window->latestDrawing());
    runPending();
    EXPECT_TRUE(window->isHidden());
    EXPECT_FALSE(window->latestDrawing());
    EXPECT_TRUE(window->annotationImage().empty());
    EXPECT_EQ(window->agentTouches().dots().size(), 1u);  // a dot stays until its end arrives
}

TEST_F(OverlayTest, ADrawingPutsTheLaserAwayAndOneWithoutImageClearsTheDrawing) {
    laserAt(0.5, 0.5);
    window->onAgentEvent(drawing(std::vector<std::uint8_t>{1, 2, 3}));
    EXPECT_EQ(window->annotationFrame(), (HLVRect{100, 400, 200, 200}));
    EXPECT_EQ(window->annotationImage(), (std::vector<std::uint8_t>{1, 2, 3}));
    EXPECT_FALSE(window->laserPointer().isEnabled());

    laserAt(0.25, 0.25, "something new");  // only touchend stops it
    EXPECT_EQ(window->laserPointer().laserPosition(), (HLVPoint{100, 200}));
    window->onAgentEvent(drawing(std::nullopt));
    EXPECT_FALSE(window->latestDrawing());
    EXPECT_FALSE(window->laserPointer().isEnabled());
    laserAt(0.5, 0.5);
    laserAt(0.5, 0.5, "touchend");
    EXPECT_FALSE(window->laserPointer().isEnabled());
}

TEST_F(OverlayTest, TouchCirclesAreCentredInScreenPointsAndTrackedByIdentifierValue) {
    touch("touchstart", 0.25, 0.25);
    touch("touchmove", 0.5, 0.5);
    ASSERT_EQ(window->agentTouches().dots().size(), 1u);
    EXPECT_EQ(window->agentTouches().dots()[0].frame, (HLVRect{185, 385, 30, 30}));
    touch("touchend", 0.5, 0.5);
    EXPECT_TRUE(window->agentTouches().dots().empty());

    HLVAgentTouchView view;
    view.setDotSize(31);  // halved in whole points
    view.start({100, 200}, 7);
    view.start({50, 50}, "7");  // identifiers compare by value, type included
    view.move({110, 210}, 7);
    EXPECT_EQ(view.dotFor(7)->frame, (HLVRect{95, 195, 31, 31}));
    EXPECT_DOUBLE_EQ(view.dotFor(7)->cornerRadius, 15.5);
    EXPECT_EQ(view.dotFor("7")->frame, (HLVRect{35, 35, 31, 31}));
    view.start({200, 200}, 7);  // a repeated start leaves the old circle on screen, untracked
    view.end({0, 0}, 7);
    view.end({0, 0}, 7);
    ASSERT_EQ(view.dots().size(), 2u);
    EXPECT_FALSE(view.dots()[0].tracked);
    EXPECT_EQ(view.dots()[0].frame, (HLVRect{95, 195, 31, 31}));
}

TEST_F(OverlayTest, TheLaserIgnoresMovesOfThreePointsOrLessMeasuredFromTheDot) {
    laser.setLaserPosition({2, 2});  // compared with the initial (0, 0)
    laser.setLaserPosition({3, 0});
    EXPECT_FALSE(laser.isEnabled());
    laser.setLaserPosition({10, 10});
    laser.setLaserPosition({12, 10});
    EXPECT_EQ(laser.laserPosition(), (HLVPoint{10, 10}));
    laser.setLaserPosition({14, 10});  // measured from the dot, not from the ignored event
    EXPECT_EQ(laser.laserPosition(), (HLVPoint{14, 10}));
    laser.stopPointing();
    laser.setLaserPosition({-98, -100});  // now compared with the hidden position
    EXPECT_FALSE(laser.isEnabled());
}

TEST_F(OverlayTest, TheLasersTrailPointsLiveAQuarterSecondEachAndFadeAfterTheStop) {
    laser.setLaserPosition({10, 10});
    advance(100ms);
    laser.setLaserPosition({20, 20});
    advance(100ms);
    laser.setLaserPosition({10, 10});  // visited twice: goes with its first expiry
    laser.stopPointing();
    advance(49ms);
    EXPECT_EQ(laser.points().size(), 3u);
    advance(1ms);
    EXPECT_EQ(laser.points(), (Points{{20, 20}}));
    advance(100ms);
    EXPECT_TRUE(laser.points().empty());
}

}  // namespace
}  // namespace halvora
