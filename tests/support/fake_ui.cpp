#include "tests/support/fake_ui.h"
#include "tests/support/layout_outlets.h"


#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <stdexcept>

namespace halvora::testing {

void FakeView::addSubview(const platform::ViewRef& child) {
    auto view = std::dynamic_pointer_cast<FakeView>(child);
    if (!view) return;
    view->removeFromSuperview();
    children_.push_back(view);
    view->parent_ = weak_from_this();
}

void FakeView::bringSubviewToFront(const platform::ViewRef& child) {
    auto it = std::find_if(children_.begin(), children_.end(),
                           [&](const auto& view) { return view.get() == child.get(); });
    if (it != children_.end()) std::rotate(it, it + 1, children_.end());
}

void FakeView::removeFromSuperview() {
    auto parent = parent_.lock();
    if (!parent) return;
    auto& siblings = parent->children_;
    siblings.erase(std::remove_if(siblings.begin(), siblings.end(), [&](const auto& view) { return view.get() == this; }),
                   siblings.end());
    parent_.reset();
}

void FakeView::paint(RgbaFrame& canvas, platform::Point origin, double scale) const {
    if (role_ == platform::ViewRole::overlay) return;
    const double left = origin.x + frame_.x;
    const double top = origin.y + frame_.y;
    if (fill_[3] != 0) {
        const int x0 = std::max(0, static_cast<int>(std::lround(left * scale)));
        const int y0 = std::max(0, static_cast<int>(std::lround(top * scale)));
        const int x1 = std::min(canvas.width, static_cast<int>(std::lround((left + frame_.width) * scale)));
        const int y1 = std::min(canvas.height, static_cast<int>(std::lround((top + frame_.height) * scale)));
        for (int y = y0; y < y1; ++y) {
            for (int x = x0; x < x1; ++x) std::copy(fill_.begin(), fill_.end(), canvas.row(y) + x * 4);
        }
    }
    for (const auto& child : children_) child->paint(canvas, {left, top}, scale);
}

std::shared_ptr<platform::Window> FakeView::window() const {
    const FakeView* view = this;
    while (auto parent = view->parent_.lock()) view = parent.get();
    return view->window_ ? view->window_->shared_from_this() : nullptr;
}

platform::Point FakeView::convertToWindow(platform::Point point) const {
    for (const FakeView* view = this; view; view = view->parent_.lock().get()) {
        point = {point.x + view->frame_.x, point.y + view->frame_.y};
    }
    return point;
}

platform::Point FakeView::convertFromWindow(platform::Point point) const {
    const auto origin = convertToWindow({0, 0});
    return {point.x - origin.x, point.y - origin.y};
}

platform::ViewRef FakeView::hitTest(platform::Point point) {
    if (!takesTouches || !pointInside(point)) return nullptr;
    for (auto child = children_.rbegin(); child != children_.rend(); ++child) {
        const auto frame = (*child)->frame();
        if (auto hit = (*child)->hitTest({point.x - frame.x, point.y - frame.y})) return hit;
    }
    return shared_from_this();
}

bool FakeWindow::drawHierarchy(RgbaFrame& canvas, platform::Point at, double scale) {
    ++draws;
    root->paint(canvas, at, scale);
    return true;
}

std::shared_ptr<FakeWindow> FakeApplication::showKeyWindow(Rgba fill) {
    key = std::make_shared<FakeWindow>(platform::Rect{0, 0, 390, 844}, fill);
    windowList = {key};
    return key;
}

bool containsColour(const RgbaFrame& frame, Rgba colour, int tolerance) {
    for (int y = 0; y < frame.height; ++y) {
        const std::uint8_t* row = frame.row(y);
        for (int x = 0; x < frame.width; ++x) {
            const std::uint8_t* pixel = row + x * 4;
            bool near = true;
            for (int c = 0; c < 3 && near; ++c) near = std::abs(pixel[c] - colour[static_cast<std::size_t>(c)]) <= tolerance;
            if (near) return true;
        }
    }
    return false;
}

void FakeOutlet::sendActions(platform::ControlEvent event) {
    // A copy: an action may replace the screen, and with it this outlet's owner.
    auto due = actions;
    for (auto& [on, action] : due) {
        if (on == event) action();
    }
}

FakeLayout::FakeLayout(std::string layoutName) : name(std::move(layoutName)) {
    auto known = layoutOutlets().find(name);
    if (known == layoutOutlets().end()) return;
    for (const auto& outletName : known->second) {
        auto outlet = std::make_shared<FakeOutlet>(outletName);
        root->addSubview(outlet);
        outlets[outletName] = outlet;
    }
}

platform::ViewRef FakeLayout::outlet(const std::string& outletName) const {
    auto it = outlets.find(outletName);
    return it == outlets.end() ? nullptr : it->second;
}

FakeLayout& FakeApplication::layout(const std::string& layoutName) const {
    for (auto it = layouts.rbegin(); it != layouts.rend(); ++it) {
        if ((*it)->name == layoutName) return **it;
    }
    // Also linked into the fuzzers, which have no test framework: a missing layout is a bug in
    // the test that asked for it.
    throw std::logic_error("no layout " + layoutName + " was built");
}

}  // namespace halvora::testing
