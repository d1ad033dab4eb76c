#pragma once
// The screens a window shows now: every visible Page, where a StackView or a SwipeView shows only
// its current item. Listed in paint order, parents before the pages they contain, so the last one
// is the front-most (and innermost) screen.

#include <vector>

class QQuickItem;
class QQuickWindow;

namespace halvora::qt {

struct ShownPage {
    QQuickItem* page = nullptr;
    // Shown by a StackView in the middle of a transition.
    bool animated = false;
};

std::vector<ShownPage> shownPages(QQuickWindow* window);

}  // namespace halvora::qt
