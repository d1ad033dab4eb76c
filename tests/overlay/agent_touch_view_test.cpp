// The agent's touch circles: placement, and which circle each event moves or removes.
#include <gtest/gtest.h>

#include "overlay/agent_touch_view.h"

namespace halvora {
namespace {

TEST(AgentTouchViewTest, CentresTheCircleWithTheSizeHalvedInWholePoints) {
    HLVAgentTouchView view;
    EXPECT_EQ(view.dotFrame({100, 200}), (HLVRect{85, 185, 30, 30}));
    view.setDotSize(31);
    EXPECT_EQ(view.dotFrame({100, 200}), (HLVRect{85, 185, 31, 31}));
    view.start({100, 200}, 1);
    EXPECT_DOUBLE_EQ(view.dots().at(0).cornerRadius, 15.5);
}

TEST(AgentTouchViewTest, EventsMoveAndEndOnlyTheCircleOfTheirIdentifier) {
    HLVAgentTouchView view;
    int changes = 0;
    view.setOnChange([&] { ++changes; });
    view.move({10, 10}, 7);
    view.end({10, 10}, 7);
    EXPECT_TRUE(view.dots().empty());
    EXPECT_EQ(changes, 0);

    view.start({100, 200}, 7);
    view.start({50, 50}, "7");  // identifiers compare by value, type included
    view.move({110, 210}, 7);
    ASSERT_TRUE(view.dotFor(7));
    EXPECT_EQ(view.dotFor(7)->frame, (HLVRect{95, 195, 30, 30}));
    EXPECT_EQ(view.dotFor("7")->frame, (HLVRect{35, 35, 30, 30}));
    view.end({0, 0}, 7);
    EXPECT_FALSE(view.dotFor(7));
    ASSERT_EQ(view.dots().size(), 1u);
    EXPECT_EQ(changes, 4);
}

TEST(AgentTouchViewTest, ARepeatedStartLeavesTheOldCircleOnScreenUntracked) {
    HLVAgentTouchView view;
    view.start({100, 100}, 1);
    view.setColor({1, 0, 0, 1});
    view.start({200, 200}, 1);
    view.move({300, 300}, 1);
    ASSERT_EQ(view.dots().size(), 2u);
    EXPECT_FALSE(view.dots()[0].tracked);
    EXPECT_EQ(view.dots()[0].frame, (HLVRect{85, 85, 30, 30}));
    EXPECT_EQ(view.dots()[0].color, HLVAgentTouchView::kDefaultColor);
    EXPECT_EQ(view.dots()[1].frame, (HLVRect{285, 285, 30, 30}));
    EXPECT_EQ(view.dots()[1].color, (HLVColor{1, 0, 0, 1}));

    view.end({0, 0}, 1);
    view.end({0, 0}, 1);
    ASSERT_EQ(view.dots().size(), 1u);
    EXPECT_EQ(view.dots()[0].frame, (HLVRect{85, 85, 30, 30}));
}

}  // namespace
}  // namespace halvora
