#pragma once
// A View over a QQuickItem: a weak handle (QPointer) that turns harmless once the item is gone.
// nativeHandle() is the item's address, so two handles of one item compare equal.

#include <QPointer>
#include <QQuickItem>

#include <vector>

#include "halvora/platform/controls.h"
#include "halvora/platform/view.h"

namespace halvora::qt {

class QuickView final : public platform::View, public platform::Control {
public:
    explicit QuickView(QQuickItem* item);

    platform::ViewRole role() const override;
    std::string className() const override;
    bool isAlive() const override { return !item_.isNull(); }
    const void* nativeHandle() const override { return handle_; }

    platform::Rect bounds() const override;
    platform::Rect frame() const override;
    void setFrame(platform::Rect frame) override;
    // See drawnAreaOf (drawn_area.h).
    platform::DrawnArea drawnArea() const override;

    std::vector<platform::ViewRef> subviews() const override;
    void addSubview(const platform::ViewRef& child) override;
    void bringSubviewToFront(const platform::ViewRef& child) override;
    // An item the library made (a mask) is destroyed; an application's item is only unparented.
    void removeFromSuperview() override;

    // Remote control (quick_view.cpp): the tree and its geometry.
    platform::ViewRef superview() const override;
    std::shared_ptr<platform::Window> window() const override;
    platform::Point convertFromWindow(platform::Point point) const override;
    platform::Point convertToWindow(platform::Point point) const override;
    bool pointInside(platform::Point point) const override;
    // What responder extensions are offered the agent's touches for. Skips what a finger cannot
    // touch: invisible, disabled or transparent items, and the library's overlay. Children first
    // (front to back), then the item itself.
    platform::ViewRef hitTest(platform::Point point) override;

    // The library's own screens' buttons (quick_controls.cpp). The agent's input reaches items as
    // Qt's own events (input_delivery.h), so no other role has operations here.
    Control* asControl() override;
    void sendActions(platform::ControlEvent event) override;

    // Presentation (screen_presentation.cpp): the library's own screens.
    void setHidden(bool hidden) override;
    bool isHidden() const override;
    void setAlpha(double alpha) override;
    void setText(const std::string& text) override;
    std::string text() const override;
    void setFillsSuperview() override;
    // A button's clicked(); a control's toggled(), valueModified() or moved().
    void addTarget(platform::ControlEvent event, std::function<void()> action) override;

    QQuickItem* item() const { return item_.data(); }

private:
    QPointer<QQuickItem> item_;
    const void* handle_;  // kept once the item is gone, so identity outlives it
};

platform::ViewRef viewFor(QQuickItem* item);
// The item behind a handle made here; null for other handles and gone items.
QQuickItem* itemOf(const platform::ViewRef& view);

// An item's children as they are painted: by z, then in order; back to front.
std::vector<QQuickItem*> childItemsInPaintOrder(const QQuickItem* item);

// Reparents `child` under `parent` (in front of its siblings); a mask also becomes the parent's
// QObject child, so it goes away with the view it hides.
void addChildItem(QQuickItem* parent, QQuickItem* child);
// Moves `child` in front of its siblings: on top of the highest z among them (the library's overlay
// aside), last among equals.
void raiseItem(QQuickItem* child);

}  // namespace halvora::qt
