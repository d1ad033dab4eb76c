#pragma once
// A user interface in memory: views with a fill colour, windows that paint their view tree into
// the capture canvas (masks dark, the overlay never), screens and an application the test drives.

#include <array>
#include <functional>
#include <map>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "halvora/platform/application.h"
#include "halvora/platform/controls.h"

namespace halvora::testing {

using Rgba = std::array<std::uint8_t, 4>;

class FakeView : public platform::View, public std::enable_shared_from_this<FakeView> {
public:
    static constexpr Rgba kMaskColour{30, 30, 32, 255};

    FakeView(platform::Rect frame, Rgba fill, platform::ViewRole role = platform::ViewRole::plain)
        : frame_(frame), fill_(fill), role_(role) {}

    platform::ViewRole role() const override { return role_; }
    bool isAlive() const override { return true; }
    const void* nativeHandle() const override { return this; }
    platform::Rect bounds() const override { return {0, 0, frame_.width, frame_.height}; }
    platform::Rect frame() const override { return frame_; }
    void setFrame(platform::Rect frame) override { frame_ = frame; }
    std::vector<platform::ViewRef> subviews() const override { return {children_.begin(), children_.end()}; }
    void addSubview(const platform::ViewRef& child) override;
    void bringSubviewToFront(const platform::ViewRef& child) override;
    void removeFromSuperview() override;

    platform::DrawnArea drawnArea() const override { return drawnAs; }
    platform::DrawnArea drawnAs;  // unknown until a test places it

    // Remote control: a tree with a window at its root, hit-tested front to back.
    platform::ViewRef superview() const override { return parent_.lock(); }
    std::shared_ptr<platform::Window> window() const override;
    platform::Point convertFromWindow(platform::Point point) const override;
    platform::Point convertToWindow(platform::Point point) const override;
    platform::ViewRef hitTest(platform::Point point) override;
    bool takesTouches = true;  // false: hidden, disabled or transparent
    std::string name = "FakeView";
    std::string className() const override { return name; }

    void setFill(Rgba fill) { fill_ = fill; }
    // Paints this view and its subviews, back to front, with its origin at `origin` (points).
    void paint(RgbaFrame& canvas, platform::Point origin, double scale) const;

private:
    platform::Rect frame_;
    Rgba fill_;
    platform::ViewRole role_;
    std::vector<std::shared_ptr<FakeView>> children_;
    std::weak_ptr<FakeView> parent_;
    friend class FakeWindow;
    class FakeWindow* window_ = nullptr;  // set on a window's root
};

class FakeWindow final : public platform::Window, public std::enable_shared_from_this<FakeWindow> {
public:
    FakeWindow(platform::Rect frame, Rgba fill, platform::ViewRole role = platform::ViewRole::window)
        : root(std::make_shared<FakeView>(platform::Rect{0, 0, frame.width, frame.height}, fill)),
          frame_(frame), role_(role) {
        root->window_ = this;
    }

    std::shared_ptr<FakeView> root;
    int draws = 0;

    platform::ViewRole role() const override { return role_; }
    std::string className() const override { return "FakeWindow"; }
    bool isAlive() const override { return true; }
    const void* nativeHandle() const override { return this; }
    platform::Rect bounds() const override { return {0, 0, frame_.width, frame_.height}; }
    platform::Rect frame() const override { return frame_; }
    void setFrame(platform::Rect frame) override { frame_ = frame; }
    std::vector<platform::ViewRef> subviews() const override { return {root}; }
    void addSubview(const platform::ViewRef& child) override { root->addSubview(child); }
    void bringSubviewToFront(const platform::ViewRef&) override {}
    void removeFromSuperview() override {}
    bool drawHierarchy(RgbaFrame& canvas, platform::Point at, double scale) override;
    platform::ViewRef hitTest(platform::Point point) override { return root->hitTest(point); }

private:
    platform::Rect frame_;
    platform::ViewRole role_;
};

class FakeViewController final : public platform::ViewController {
public:
    std::string name = "CheckoutScreen";
    std::optional<std::string> screenTitle;
    std::shared_ptr<FakeView> root = std::make_shared<FakeView>(platform::Rect{0, 0, 390, 844}, Rgba{0, 0, 0, 0});
    std::optional<std::vector<platform::ViewRef>> sensitive;

    std::string className() const override { return name; }
    std::optional<std::string> title() const override { return screenTitle; }
    platform::ViewRef view() const override { return root; }
    const void* nativeHandle() const override { return this; }
    std::optional<std::vector<platform::ViewRef>> redactedViews() const override { return sensitive; }
};

// An outlet of a layout: a label, button or indicator with text, visibility, opacity and, as a
// button, actions that tap() runs.
class FakeOutlet final : public FakeView, public platform::Control {
public:
    explicit FakeOutlet(std::string outletName)
        : FakeView({0, 0, 100, 40}, Rgba{0, 0, 0, 0}, platform::ViewRole::control) {
        name = std::move(outletName);
    }
    std::string label;
    bool hidden = false;
    double alpha = 1.0;

    void setHidden(bool value) override { hidden = value; }
    bool isHidden() const override { return hidden; }
    void setAlpha(double value) override { alpha = value; }
    void setText(const std::string& value) override { label = value; }
    std::string text() const override { return label; }
    platform::Control* asControl() override { return this; }
    void sendActions(platform::ControlEvent event) override;
    void addTarget(platform::ControlEvent event, std::function<void()> action) override {
        actions.emplace_back(event, std::move(action));
    }
    void tap() { sendActions(platform::ControlEvent::touchUpInside); }

private:
    std::vector<std::pair<platform::ControlEvent, std::function<void()>>> actions;
};

// One of the library's screens as the application shows it: the named layout's outlets (those of
// the real layouts of that name) under a root, and what was asked of its navigation.
class FakeLayout final : public platform::Layout {
public:
    explicit FakeLayout(std::string layoutName);
    std::string name;
    std::shared_ptr<FakeView> root = std::make_shared<FakeView>(platform::Rect{0, 0, 390, 640}, Rgba{0, 0, 0, 0});
    std::map<std::string, std::shared_ptr<FakeOutlet>> outlets;
    bool presented = false;
    int dismissals = 0;
    int pops = 0;
    int popsToRoot = 0;

    platform::ViewRef view() const override { return root; }
    platform::ViewRef outlet(const std::string& outletName) const override;
    FakeOutlet& operator[](const std::string& outletName) const { return *outlets.at(outletName); }
    bool isBeingPresented() const override { return presented; }
    void dismiss(bool) override {
        ++dismissals;
        presented = false;
    }
    void popNavigation(bool) override { ++pops; }
    void popNavigationToRoot(bool) override { ++popsToRoot; }
};

class FakeApplication final : public platform::Application {
public:
    platform::ApplicationState appState = platform::ApplicationState::active;
    std::vector<std::shared_ptr<FakeWindow>> windowList;  // back to front
    std::shared_ptr<FakeWindow> key;
    std::shared_ptr<FakeViewController> top;
    std::vector<platform::ViewRef> sensitive;
    bool idleTimerDisabled = false;

    platform::ApplicationState state() const override { return appState; }
    std::vector<platform::WindowRef> windows() const override { return {windowList.begin(), windowList.end()}; }
    platform::WindowRef keyWindow() const override { return key; }
    platform::ViewControllerRef topViewController() const override { return top; }
    platform::ViewRef firstResponder() const override { return focused; }
    platform::ViewRef focused;
    // A toolkit that delivers input events itself, when set.
    platform::InputDelivery* inputDelivery() override { return delivery; }
    platform::InputDelivery* delivery = nullptr;
    std::vector<platform::ViewRef> sensitiveViews() const override { return sensitive; }
    // A toolkit that tells when it renders, when set; render() then calls the observer.
    bool tellsRenders = false;
    std::function<void()> onRender;
    std::shared_ptr<void> observeRenders(std::function<void()> observer) override {
        if (!tellsRenders) return nullptr;
        onRender = std::move(observer);
        return std::make_shared<int>(0);
    }
    void render() const {
        if (onRender) onRender();
    }
    void setIdleTimerDisabled(bool disabled) override { idleTimerDisabled = disabled; }
    bool isIdleTimerDisabled() const override { return idleTimerDisabled; }
    platform::ViewRef makeRedactionMask(platform::Rect frame) override {
        return std::make_shared<FakeView>(frame, FakeView::kMaskColour, platform::ViewRole::redactionMask);
    }

    // Every layout built, oldest first; presentModally marks one presented and keeps its owner.
    std::vector<std::shared_ptr<FakeLayout>> layouts;
    std::vector<std::shared_ptr<void>> presentedOwners;
    bool refusesPresentation = false;  // as a host with no window to present over
    platform::LayoutRef loadLayout(const std::string& layoutName) override {
        return layouts.emplace_back(std::make_shared<FakeLayout>(layoutName));
    }
    bool presentModally(const platform::LayoutRef& layout, std::shared_ptr<void> owner) override {
        if (refusesPresentation) return false;
        std::static_pointer_cast<FakeLayout>(layout)->presented = true;
        presentedOwners.push_back(std::move(owner));
        return true;
    }
    // The link callback the library installed, and how often it asked.
    std::function<void(const std::string&)> onLink;
    int linkInterceptions = 0;
    void interceptLinks(std::function<void(const std::string& url)> handler) override {
        ++linkInterceptions;
        onLink = std::move(handler);
    }
    // The latest layout of that name; fails the test when there is none.
    FakeLayout& layout(const std::string& layoutName) const;

    // A phone-sized key window of one colour, the only window.
    std::shared_ptr<FakeWindow> showKeyWindow(Rgba fill);
};

// Whether any pixel of the frame is within `tolerance` of `colour` on every channel.
bool containsColour(const RgbaFrame& frame, Rgba colour, int tolerance);

}  // namespace halvora::testing
