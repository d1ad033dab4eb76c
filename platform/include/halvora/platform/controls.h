#pragma once
// The operations of the controls the agent can operate, one interface per role. A toolkit's view
// answers View::asToggle() and the like with itself; the library acts on controls only through
// these, the way a user's finger would, on a toolkit that does not deliver input events itself
// (see input_delivery.h).

#include <cstddef>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "halvora/platform/view.h"

namespace halvora::platform {

// What a control tells its application: a tap released inside it, or a value the user changed.
enum class ControlEvent { touchUpInside, valueChanged };

class Control {
public:
    virtual ~Control() = default;
    // Runs the application's handlers of `event` as a real touch would (a button's clicked).
    virtual void sendActions(ControlEvent event) = 0;
    // Runs `action` whenever `event` happens to the control, by the user or through sendActions.
    // Controls the library does not wire up may ignore it.
    virtual void addTarget(ControlEvent /*event*/, std::function<void()> /*action*/) {}
};

// A switch.
class Toggle : public virtual Control {
public:
    virtual bool isOn() const = 0;
    virtual void setOn(bool on, bool animated) = 0;
};

// Steps a value up or down by a fixed amount, within limits.
class Stepper : public virtual Control {
public:
    virtual double value() const = 0;
    virtual double minimumValue() const = 0;
    virtual double maximumValue() const = 0;
    virtual double stepValue() const = 0;
    virtual void setValue(double value) = 0;
};

// A row of segments, one selected.
class SegmentedControl : public virtual Control {
public:
    // The segments' widths, left to right, in points.
    virtual std::vector<double> segmentWidths() const = 0;
    // The gap after each segment, in points.
    virtual double dividerWidth() const { return 1.0; }
    virtual void setSelectedSegmentIndex(std::size_t index) = 0;
};

class Slider : public virtual Control {
public:
    virtual double value() const = 0;
    virtual double minimumValue() const = 0;
    virtual double maximumValue() const = 0;
    // The slider may pick which of its handles moves (the nearest, for a range).
    virtual void setValue(double value, bool animated) = 0;
};

struct Insets {
    double top = 0;
    double left = 0;
    double bottom = 0;
    double right = 0;
};

// Content larger than the view, moved by an offset.
class ScrollView {
public:
    virtual ~ScrollView() = default;
    // The point of the content shown at the view's top-left corner.
    virtual Point contentOffset() const = 0;
    virtual void setContentOffset(Point offset, bool animated) = 0;
    // As width and height.
    virtual Point contentSize() const = 0;
    // Room around the content, in points.
    virtual Insets contentInsets() const = 0;
    // Whether the content may be dragged past its edges (and springs back).
    virtual bool bounces() const = 0;
};

// A table or collection of cells.
class CellContainer {
public:
    virtual ~CellContainer() = default;
    // A cell of this container shows or stops showing the press.
    virtual void setCellHighlighted(const ViewRef& cell, bool highlighted) = 0;
    // Makes a cell the selected one and runs the application's handler of its selection.
    virtual void selectCell(const ViewRef& cell) = 0;
};

// An editable text: positions are offsets in UTF-16 code units from the start of the text.
class TextInput {
public:
    virtual ~TextInput() = default;
    // A single line (a text field) rather than a text view.
    virtual bool isSingleLine() const = 0;
    // Takes the keyboard focus.
    virtual void becomeFirstResponder() = 0;
    virtual std::size_t textLength() const = 0;
    // The position nearest a point of the view's own coordinates.
    virtual std::size_t closestPosition(Point point) const = 0;
    // Start and end of the selection; equal for a caret.
    virtual std::pair<std::size_t, std::size_t> selectedRange() const = 0;
    virtual void setSelectedRange(std::size_t start, std::size_t end) = 0;
    // Replaces the selection with `text` (UTF-8) as typing would, the caret after it.
    virtual void insertText(const std::string& text) = 0;
    // Deletes the selection, or the character before the caret.
    virtual void deleteBackward() = 0;
};

}  // namespace halvora::platform
