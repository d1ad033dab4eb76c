// The laser pointer's movement threshold, trail lifetime and pulse, on the manual clock.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>

#include "overlay/laser_pointer.h"
#include "tests/support/library_fixture.h"

namespace halvora {
namespace {

using namespace std::chrono_literals;

class LaserPointerTest : public testing::LibraryTest {
protected:
    void SetUp() override {
        LibraryTest::SetUp();
        laser.setOnChange([this] { ++renders; });
    }
    HLVLaserPointerView laser{HLVRect{0, 0, 390, 844}};
    int renders = 0;
};

TEST_F(LaserPointerTest, IgnoresMovesOfThreePointsOrLess) {
    laser.setLaserPosition({2, 2});  // compared with the initial (0, 0)
    laser.setLaserPosition({3, 0});
    EXPECT_FALSE(laser.isEnabled());
    EXPECT_TRUE(laser.points().empty());
    EXPECT_EQ(renders, 0);

    laser.setLaserPosition({10, 10});
    EXPECT_TRUE(laser.isEnabled());
    EXPECT_EQ(laser.laserPosition(), (HLVPoint{10, 10}));
    laser.setLaserPosition({12, 10});
    EXPECT_EQ(laser.laserPosition(), (HLVPoint{10, 10}));
    EXPECT_EQ(laser.points().size(), 1u);
    laser.setLaserPosition({14, 10});  // measured from the dot, not from the ignored event
    EXPECT_EQ(laser.laserPosition(), (HLVPoint{14, 10}));
    EXPECT_EQ(laser.points().size(), 2u);

    laser.stopPointing();
    EXPECT_FALSE(laser.isEnabled());
    EXPECT_EQ(laser.laserPosition(), HLVLaserPointerView::kHiddenPosition);
    laser.setLaserPosition({-98, -100});  // now compared with the hidden position
    EXPECT_FALSE(laser.isEnabled());
    laser.setLaserPosition({0, 0});
    EXPECT_TRUE(laser.isEnabled());
}

TEST_F(LaserPointerTest, TrailPointsLiveAQuarterSecond) {
    laser.setLaserPosition({10, 10});
    advance(100ms);
    laser.setLaserPosition({20, 20});
    advance(149ms);
    EXPECT_EQ(laser.points(), (std::vector<HLVPoint>{{10, 10}, {20, 20}}));
    advance(1ms);
    EXPECT_EQ(laser.points(), (std::vector<HLVPoint>{{20, 20}}));
    advance(100ms);
    EXPECT_TRUE(laser.points().empty());

    // A position visited twice goes with its first expiry; stopping leaves the trail to fade.
    laser.setLaserPosition({10, 10});
    advance(100ms);
    laser.setLaserPosition({20, 20});
    advance(100ms);
    laser.setLaserPosition({10, 10});
    laser.stopPointing();
    EXPECT_EQ(laser.points().size(), 3u);
    advance(50ms);
    EXPECT_EQ(laser.points(), (std::vector<HLVPoint>{{20, 20}}));
    advance(100ms);
    EXPECT_TRUE(laser.points().empty());
}

TEST_F(LaserPointerTest, PulsesAfterRestingAndKeepsItsPhase) {
    laser.setLaserPosition({50, 50});
    EXPECT_NEAR(laser.dotRadius(), 5.4412, 1e-3);
    EXPECT_FLOAT_EQ(laser.trailOpacity(), 0.3f);
    advance(799ms);
    EXPECT_FALSE(laser.isHighlighting());
    advance(1ms);
    EXPECT_TRUE(laser.isHighlighting());
    EXPECT_FLOAT_EQ(laser.trailOpacity(), 1.0f);
    EXPECT_FLOAT_EQ(laser.size(), 6.0f);
    advance(100ms);
    EXPECT_FLOAT_EQ(laser.size(), 6.4f);

    laser.setLaserPosition({100, 100});  // a move freezes the phase
    EXPECT_FALSE(laser.isHighlighting());
    advance(500ms);
    EXPECT_FLOAT_EQ(laser.size(), 6.4f);
    advance(350ms);  // rested again: continues from where it stopped
    EXPECT_TRUE(laser.isHighlighting());
    EXPECT_FLOAT_EQ(laser.size(), 6.6f);

    float smallest = 10, largest = 0;
    for (int tick = 0; tick < 40; ++tick) {
        advance(50ms);
        smallest = std::min(smallest, laser.dotRadius());
        largest = std::max(largest, laser.dotRadius());
    }
    EXPECT_GE(smallest, 4.0f);
    EXPECT_LT(smallest, 4.05f);
    EXPECT_LE(largest, 8.0f);
    EXPECT_GT(largest, 7.95f);

    laser.stopPointing();
    const float stoppedAt = laser.size();
    advance(1s);
    EXPECT_FALSE(laser.isHighlighting());
    EXPECT_FLOAT_EQ(laser.size(), stoppedAt);
}

TEST_F(LaserPointerTest, StoppingBeforeTheRestEndsNeverPulses) {
    laser.setLaserPosition({50, 50});
    advance(400ms);
    laser.stopPointing();
    advance(2s);
    EXPECT_FALSE(laser.isHighlighting());
    EXPECT_FLOAT_EQ(laser.size(), HLVLaserPointerView::kInitialSize);
    EXPECT_EQ(loop->pendingTimerCount(), 0u);
}

}  // namespace
}  // namespace halvora
