#pragma once
// A View over a QQuickItem: a weak handle (QPointer) that turns harmless once the item is gone.
// nativeHandle() is the item's address, so two handles of one item compare equal. It answers the
// operations of whichever role its item has (quick_controls.cpp), through Qt's properties,
// invokable methods and signals, so that the application's own handlers run.

#include <QPointer>
#include <QQuickItem>

#include <vector>

#include "halvora/platform/controls.h"
#include "halvora/platform/view.h"

namespace halvora::qt {

class QuickView final : public platform::View,
                        public platform::Toggle,
                        public platform::Stepper,
                        public platform::SegmentedControl,
                        public platform::Slider,
                        public platform::ScrollView,
                        public platform::CellContainer,
                        public platform::TextInput {
public:
    explicit QuickView(QQuickItem* item);

    platform::ViewRole role() const override;
    std::string className() const override;
    bool isAlive() const override { return !item_.isNull(); }
    const void* nativeHandle() const override { return handle_; }

    platform::Rect bounds() const override;
    platform::Rect frame() const override;
    void setFrame(platform::Rect frame) override;
    // The item's and its visible descendants' bounding rectangles (a Text's include what overflows)
    // mapped through every transform, on the screen. Unknown while a StackView above it is in a
    // transition: its animators may run on the render thread, ahead of the item's properties.
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
    // Skips what a finger cannot touch: invisible, disabled or transparent items, and the
    // library's overlay. Children first (front to back), then the item itself.
    platform::ViewRef hitTest(platform::Point point) override;

    // Remote control (quick_controls.cpp): what each role does.
    // A button's accessibility press: a click, as Qt's own accessibility performs it.
    bool accessibilityActivate() override;
    // A MouseArea itself, or TapHandlers on the item.
    bool hasTapGesture() const override;
    bool triggerTapGestures(platform::Point windowPoint) override;

    Control* asControl() override;
    Toggle* asToggle() override;
    Stepper* asStepper() override;
    SegmentedControl* asSegmentedControl() override;
    platform::Slider* asSlider() override;
    platform::ScrollView* asScrollView() override;
    CellContainer* asCellContainer() override;
    TextInput* asTextInput() override;

    void sendActions(platform::ControlEvent event) override;
    bool isOn() const override;
    void setOn(bool on, bool animated) override;
    double value() const override;
    double minimumValue() const override;
    double maximumValue() const override;
    double stepValue() const override;
    void setValue(double value) override;
    void setValue(double value, bool animated) override;
    std::vector<double> segmentWidths() const override;
    double dividerWidth() const override;
    void setSelectedSegmentIndex(std::size_t index) override;
    platform::Point contentOffset() const override;
    void setContentOffset(platform::Point offset, bool animated) override;
    platform::Point contentSize() const override;
    platform::Insets contentInsets() const override;
    bool bounces() const override;
    void setCellHighlighted(const platform::ViewRef& cell, bool highlighted) override;
    void selectCell(const platform::ViewRef& cell) override;
    bool isSingleLine() const override;
    void becomeFirstResponder() override;
    std::size_t textLength() const override;
    std::size_t closestPosition(platform::Point point) const override;
    std::pair<std::size_t, std::size_t> selectedRange() const override;
    void setSelectedRange(std::size_t start, std::size_t end) override;
    void insertText(const std::string& text) override;
    void deleteBackward() override;

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
