#pragma once
// The device's screen as the library sees it: sizes in points, origin at the top-left corner.

#include <memory>

namespace halvora::platform {

struct Point {
    double x = 0;
    double y = 0;
    bool operator==(const Point&) const = default;
};

struct Rect {
    double x = 0;
    double y = 0;
    double width = 0;
    double height = 0;
    bool operator==(const Rect&) const = default;

    // Half-open on the far edges, so neighbouring rectangles never both contain a point and an
    // empty rectangle contains nothing.
    bool contains(Point p) const { return p.x >= x && p.x < x + width && p.y >= y && p.y < y + height; }
};

class Screen {
public:
    virtual ~Screen() = default;
    // The main screen's bounds in points.
    virtual Rect bounds() const = 0;
    // Where the status bar sits now, in the same coordinates; zero when it is hidden.
    virtual Rect statusBarFrame() const = 0;
};

// A screen that never changes, for hosts without a display (tests, the command-line tool).
// By default a portrait phone: 390x844 points with a 47-point status bar across the top.
class FixedScreen final : public Screen {
public:
    static constexpr Rect kDefaultBounds{0, 0, 390, 844};
    static constexpr Rect kDefaultStatusBar{0, 0, 390, 47};

    explicit FixedScreen(Rect bounds = kDefaultBounds, Rect statusBar = kDefaultStatusBar)
        : bounds_(bounds), statusBar_(statusBar) {}

    Rect bounds() const override { return bounds_; }
    Rect statusBarFrame() const override { return statusBar_; }

private:
    Rect bounds_;
    Rect statusBar_;
};

}  // namespace halvora::platform
