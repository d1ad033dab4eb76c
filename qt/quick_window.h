#pragma once
// A Window over a QQuickWindow. Its subviews are the children of the window's root item.

#include <QPointer>
#include <QQuickWindow>

#include <functional>

#include "halvora/platform/window.h"

namespace halvora::qt {

class QuickWindow final : public platform::Window {
public:
    explicit QuickWindow(QQuickWindow* window);

    platform::ViewRole role() const override { return platform::ViewRole::window; }
    std::string className() const override;
    bool isAlive() const override { return !window_.isNull(); }
    const void* nativeHandle() const override { return handle_; }

    platform::Rect bounds() const override;
    // In screen coordinates; the capture places each window relative to the key window.
    platform::Rect frame() const override;
    void setFrame(platform::Rect frame) override;

    std::vector<platform::ViewRef> subviews() const override;
    void addSubview(const platform::ViewRef& child) override;
    void bringSubviewToFront(const platform::ViewRef& child) override;
    // A top-level window has no superview.
    void removeFromSuperview() override {}

    // Renders the window with grabWindow() (the scene as it is now, pending changes included) and
    // draws it smoothly scaled into the canvas. The overlay is hidden for the grab and shown again
    // right after; the grab renders off screen (not checked on a GPU render loop, whether a presented
    // frame can fall in between).
    bool drawHierarchy(platform::RgbaFrame& canvas, platform::Point at, double scale) override;
    // The library's screen is the key window (see QuickScreen): a point of it lies at the key
    // window's position on the desktop.
    platform::Point convertFromScreen(platform::Point point) const override;
    // The front-most item under a point of the window that a finger could touch.
    platform::ViewRef hitTest(platform::Point point) override;

    // Runs before every capture of a window. Screens are otherwise noticed after the frame that
    // first shows them, and a capture in between would grab a sensitive item before its mask.
    static void setBeforeCapture(std::function<void(QQuickWindow*)> hook);

    QQuickWindow* quickWindow() const { return window_.data(); }

private:
    QPointer<QQuickWindow> window_;
    const void* handle_;
};

platform::WindowRef windowFor(QQuickWindow* window);

}  // namespace halvora::qt
