#include "control/touch_behaviours.h"

#include <algorithm>
#include <cmath>

#include "halvora/platform/window.h"

namespace halvora::control {

using platform::ViewRef;
using platform::ViewRole;

namespace {

using Touches = HLVTouches;

// A forwarded call climbs at most this many superviews: a toolkit with a cycle in its tree must
// not hang the main thread.
constexpr int kMaxChain = 256;

enum class Phase { began, moved, ended };

bool isSingle(const Touches& touches) { return touches.size() == 1; }
const HLVTouch& touchOf(const Touches& touches) { return *touches.front(); }
bool singleAndInside(const Touches& touches) { return isSingle(touches) && touchOf(touches).isInsideTarget(); }

// The left edge of a view in its window's coordinates.
double leftInWindow(const platform::View& view) {
    const auto bounds = view.bounds();
    return view.convertToWindow({bounds.x, bounds.y}).x;
}

bool offerToExtension(const ViewRef& view, Phase phase, const Touches& touches, const HLVTouchEvent& event) {
    auto extension = HLVResponderRegistry::responder(view->className());
    if (!extension) return false;
    switch (phase) {
    case Phase::began: return extension->halvoraTouchesBegan(touches, event, view);
    case Phase::moved: return extension->halvoraTouchesMoved(touches, event, view);
    case Phase::ended: return extension->halvoraTouchesEnded(touches, event, view);
    }
    return false;
}

void deliver(const ViewRef& view, Phase phase, const Touches& touches, const HLVTouchEvent& event, int depth);

// A plain view: its extension first, then its superview.
void offerThenForward(const ViewRef& view, Phase phase, const Touches& touches, const HLVTouchEvent& event,
                      int depth) {
    if (offerToExtension(view, phase, touches, event)) return;
    if (depth >= kMaxChain) return;
    if (auto next = view->superview()) deliver(next, phase, touches, event, depth + 1);
}

// A plain view's ended: a single touch released inside the target activates the view or fires
// its tap recognisers; otherwise, and after an activation, the call climbs on.
void viewEnded(const ViewRef& view, const Touches& touches, const HLVTouchEvent& event, int depth) {
    if (singleAndInside(touches) && !view->accessibilityActivate() && view->hasTapGesture()) {
        view->triggerTapGestures(touchOf(touches).position());
        return;
    }
    offerThenForward(view, Phase::ended, touches, event, depth);
}

void controlEnded(const ViewRef& view, const Touches& touches) {
    if (!singleAndInside(touches)) return;
    view->triggerTapGestures(touchOf(touches).position());
    if (view->accessibilityActivate()) return;
    if (auto* control = view->asControl()) control->sendActions(platform::ControlEvent::touchUpInside);
}

void toggleEnded(const ViewRef& view, const Touches& touches) {
    auto* toggle = view->asToggle();
    if (!toggle || !singleAndInside(touches) || view->accessibilityActivate()) return;
    toggle->setOn(!toggle->isOn(), true);
    toggle->sendActions(platform::ControlEvent::valueChanged);
}

// The half under the touch steps down (left, and the exact middle) or up; at a limit nothing.
void stepperEnded(const ViewRef& view, const Touches& touches) {
    auto* stepper = view->asStepper();
    if (!stepper || !singleAndInside(touches)) return;
    const double middle = leftInWindow(*view) + view->bounds().width * 0.5;
    const double value = stepper->value();
    const double step = stepper->stepValue();
    if (touchOf(touches).position().x > middle) {
        if (!(value + step <= stepper->maximumValue())) return;
        stepper->setValue(step + value);
    } else {
        if (!(value - step >= stepper->minimumValue())) return;
        stepper->setValue(value - step);
    }
    stepper->sendActions(platform::ControlEvent::valueChanged);
}

// Segments lie side by side with a divider after each; a point on a boundary or a divider
// selects nothing. Selecting the selected segment again still reports a change.
void segmentedEnded(const ViewRef& view, const Touches& touches) {
    auto* segmented = view->asSegmentedControl();
    if (!segmented || !singleAndInside(touches)) return;
    const double left = leftInWindow(*view);
    const double x = touchOf(touches).position().x;
    const double divider = segmented->dividerWidth();
    double offset = 0;
    const auto widths = segmented->segmentWidths();
    for (std::size_t i = 0; i < widths.size(); ++i) {
        if (x > left + offset && x < left + offset + widths[i]) {
            segmented->setSelectedSegmentIndex(i);
            segmented->sendActions(platform::ControlEvent::valueChanged);
            return;
        }
        offset += widths[i] + divider;
    }
}

// The thumb jumps to the touch on the press and follows every move. No inside test: a drag past
// the track's end pins the value to its limit.
void updateSlider(const ViewRef& view, const Touches& touches) {
    auto* slider = view->asSlider();
    if (!slider || touches.size() > 1) return;
    const double width = view->bounds().width;
    if (!(width > 0)) return;
    const double fraction = (touchOf(touches).position().x - leftInWindow(*view)) / width;
    const double minimum = slider->minimumValue();
    const double maximum = slider->maximumValue();
    const float range = static_cast<float>(maximum) - static_cast<float>(minimum);
    double value = fraction * static_cast<double>(range) + minimum;
    value = std::min(maximum, std::max(minimum, value));
    if (!std::isfinite(value)) return;
    slider->setValue(static_cast<double>(static_cast<float>(value)), true);
    slider->sendActions(platform::ControlEvent::valueChanged);
}

struct ScrollLimits {
    double maxX, maxY, minX, minY;
};

ScrollLimits scrollLimits(const platform::View& view, const platform::ScrollView& scroll) {
    const auto insets = scroll.contentInsets();
    const auto size = scroll.contentSize();
    const auto bounds = view.bounds();
    return {insets.right + size.x - std::min(size.x, bounds.width),
            insets.bottom + size.y - std::min(size.y, bounds.height), -insets.left, -insets.top};
}

// One step of a drag: the content follows the touch's latest step, accepted whole or refused
// whole. Dragging past an edge is allowed by up to 200 points where the view bounces.
bool performScroll(const ViewRef& view, platform::ScrollView& scroll, const Touches& touches) {
    const HLVTouch& touch = touchOf(touches);
    const bool inPicker = touch.closest(ViewRole::picker) != nullptr;
    const auto size = scroll.contentSize();
    const auto bounds = view->bounds();
    const bool canX = size.x > bounds.width;
    const bool canY = inPicker || size.y > bounds.height;
    if (!canX && !canY) return false;
    const auto step = touch.lastDelta();
    const auto offset = scroll.contentOffset();
    const double newX = offset.x - (canX ? step.x : 0.0);
    const double newY = offset.y - (canY ? step.y : 0.0);
    const double slack = (inPicker || scroll.bounces()) ? 200.0 : 0.0;
    const auto limits = scrollLimits(*view, scroll);
    const bool within = limits.minY - slack <= newY && newY <= limits.maxY + slack &&
                        limits.minX - slack <= newX && newX <= limits.maxX + slack;
    if (!within) return false;
    scroll.setContentOffset({newX, newY}, false);
    return true;
}

// A scroll view that moves more than 3 points in one step, for a touch that has gone more than
// 3 points from its press, takes the touch over; a refused step goes to the enclosing views, so
// a nested scroll view at its limit hands the drag on.
void scrollMoved(const ViewRef& view, const Touches& touches, const HLVTouchEvent& event, int depth) {
    auto* scroll = view->asScrollView();
    if (!scroll) return offerThenForward(view, Phase::moved, touches, event, depth);
    const auto before = scroll->contentOffset();
    if (!performScroll(view, *scroll, touches)) return offerThenForward(view, Phase::moved, touches, event, depth);
    const auto after = scroll->contentOffset();
    const double moved = std::hypot(after.x - before.x, after.y - before.y);
    HLVTouch& touch = *touches.front();
    if (moved > 3.0 && touch.distance() > 3.0) touch.setTarget(view);
}

// Pulls an overscroll back within the limits, animated.
void settleScroll(const ViewRef& view) {
    auto* scroll = view->asScrollView();
    if (!scroll) return;
    const auto limits = scrollLimits(*view, *scroll);
    const auto offset = scroll->contentOffset();
    scroll->setContentOffset({std::min(limits.maxX, std::max(limits.minX, offset.x)),
                              std::min(limits.maxY, std::max(limits.minY, offset.y))},
                             true);
}

// The operations live in the handle: keep `container` alive while using them.
platform::CellContainer* containerOf(const ViewRef& container) {
    return container ? container->asCellContainer() : nullptr;
}

// A table row highlights while a held touch stays inside and within 5 points of path; the move
// then climbs the chain as a began.
void tableCellMoved(const ViewRef& cell, const Touches& touches, const HLVTouchEvent& event, int depth) {
    const HLVTouch& touch = touchOf(touches);
    auto table = touch.closest(ViewRole::tableView);
    if (auto* container = containerOf(table); container && isSingle(touches)) {
        container->setCellHighlighted(cell, touch.isInsideTarget() && touch.totalDistance() < 5.0);
    }
    offerThenForward(cell, Phase::began, touches, event, depth);
}

void collectionCellTouched(const ViewRef& cell, Phase phase, const Touches& touches, const HLVTouchEvent& event,
                           int depth) {
    const HLVTouch& touch = touchOf(touches);
    auto collection = touch.closest(ViewRole::collectionView);
    if (auto* container = containerOf(collection); container && isSingle(touches)) {
        const bool inside = touch.isInsideTarget();
        if (phase == Phase::moved) {
            container->setCellHighlighted(cell, inside);
        } else if (inside) {
            container->setCellHighlighted(cell, true);
        }
    }
    offerThenForward(cell, phase, touches, event, depth);
}

// A released cell loses its highlight and, released inside, is selected. Nothing climbs on.
void cellEnded(const ViewRef& cell, ViewRole containerKind, const Touches& touches) {
    const HLVTouch& touch = *touches.back();
    const auto owner = touch.closest(containerKind);
    auto* container = containerOf(owner);
    if (!container || !isSingle(touches)) return;
    container->setCellHighlighted(cell, false);
    if (touch.isInsideTarget()) container->selectCell(cell);
}

// The bar's front-most item under the touch is activated.
void navigationBarEnded(const ViewRef& bar, const Touches& touches) {
    if (!isSingle(touches)) return;
    const auto items = bar->subviews();
    for (auto item = items.rbegin(); item != items.rend(); ++item) {
        if (*item && touchOf(touches).isInsideView(**item)) {
            (*item)->accessibilityActivate();
            return;
        }
    }
}

// A tap focuses the input and puts the caret where it landed, collapsing any selection.
void textInputEnded(const ViewRef& view, const Touches& touches) {
    auto* input = view->asTextInput();
    if (!input || !singleAndInside(touches)) return;
    input->becomeFirstResponder();
    const auto position = input->closestPosition(view->convertFromWindow(touchOf(touches).position()));
    input->setSelectedRange(position, position);
}

void deliver(const ViewRef& view, Phase phase, const Touches& touches, const HLVTouchEvent& event, int depth) {
    if (!view || !view->isAlive()) return;
    switch (view->role()) {
    case ViewRole::control:
        if (phase == Phase::ended) controlEnded(view, touches);
        return;
    case ViewRole::toggle:
        if (phase == Phase::ended) toggleEnded(view, touches);
        return;
    case ViewRole::stepper:
        if (phase == Phase::ended) stepperEnded(view, touches);
        return;
    case ViewRole::segmentedControl:
        if (phase == Phase::ended) segmentedEnded(view, touches);
        return;
    case ViewRole::slider:
        updateSlider(view, touches);
        return;
    case ViewRole::navigationBar:
        if (phase == Phase::ended) navigationBarEnded(view, touches);
        return;
    case ViewRole::textInput: {
        // A text field is a control (began and moved stop there); a text view passes them on.
        auto* input = view->asTextInput();
        if (phase == Phase::ended) return textInputEnded(view, touches);
        if (input && input->isSingleLine()) return;
        return offerThenForward(view, phase, touches, event, depth);
    }
    case ViewRole::scrollView:
    case ViewRole::tableView:
    case ViewRole::collectionView:
        if (phase == Phase::moved) return scrollMoved(view, touches, event, depth);
        if (phase == Phase::ended) {
            settleScroll(view);
            return viewEnded(view, touches, event, depth);
        }
        return offerThenForward(view, phase, touches, event, depth);
    case ViewRole::tableCell:
        if (phase == Phase::moved) return tableCellMoved(view, touches, event, depth);
        if (phase == Phase::ended) return cellEnded(view, ViewRole::tableView, touches);
        return offerThenForward(view, phase, touches, event, depth);
    case ViewRole::collectionCell:
        if (phase == Phase::ended) return cellEnded(view, ViewRole::collectionView, touches);
        return collectionCellTouched(view, phase, touches, event, depth);
    case ViewRole::plain:
    case ViewRole::window:
    case ViewRole::viewController:
    case ViewRole::redactionMask:
    case ViewRole::overlay:
    case ViewRole::picker:
    case ViewRole::tapRecognizer:
        if (phase == Phase::ended) return viewEnded(view, touches, event, depth);
        return offerThenForward(view, phase, touches, event, depth);
    }
}

}  // namespace

bool isKindOf(ViewRole role, ViewRole kind) {
    if (role == kind) return true;
    switch (kind) {
    case ViewRole::control:
        return role == ViewRole::toggle || role == ViewRole::stepper || role == ViewRole::segmentedControl ||
               role == ViewRole::slider;
    case ViewRole::scrollView:
        return role == ViewRole::tableView || role == ViewRole::collectionView;
    default:
        return false;
    }
}

void touchesBegan(const ViewRef& view, const HLVTouches& touches, const HLVTouchEvent& event) {
    if (!touches.empty()) deliver(view, Phase::began, touches, event, 0);
}

void touchesMoved(const ViewRef& view, const HLVTouches& touches, const HLVTouchEvent& event) {
    if (!touches.empty()) deliver(view, Phase::moved, touches, event, 0);
}

void touchesEnded(const ViewRef& view, const HLVTouches& touches, const HLVTouchEvent& event) {
    if (!touches.empty()) deliver(view, Phase::ended, touches, event, 0);
}

void touchesCancelled(const ViewRef& view, const HLVTouch& touch) {
    int depth = 0;
    for (auto current = view; current && current->isAlive() && depth < kMaxChain;
         current = current->superview(), ++depth) {
        switch (current->role()) {
        case ViewRole::tableCell:
        case ViewRole::collectionCell: {
            const auto kind = current->role() == ViewRole::tableCell ? ViewRole::tableView : ViewRole::collectionView;
            const auto owner = touch.closest(kind);
            if (auto* container = containerOf(owner)) container->setCellHighlighted(current, false);
            break;
        }
        case ViewRole::scrollView:
        case ViewRole::tableView:
        case ViewRole::collectionView:
            settleScroll(current);
            break;
        default:
            break;
        }
    }
}

void moveCaretBy(platform::TextInput& input, long offset) {
    const long start = static_cast<long>(input.selectedRange().first);
    const long target = start + offset;
    if (target < 0 || target > static_cast<long>(input.textLength())) return;
    input.setSelectedRange(static_cast<std::size_t>(target), static_cast<std::size_t>(target));
}

namespace {

// The length of UTF-8 text in UTF-16 code units; none when it is not valid UTF-8.
std::optional<std::size_t> utf16Length(const std::string& text) {
    std::size_t units = 0;
    for (std::size_t i = 0; i < text.size();) {
        const auto lead = static_cast<unsigned char>(text[i]);
        std::size_t length = lead < 0x80 ? 1 : (lead >> 5) == 0x6 ? 2 : (lead >> 4) == 0xE ? 3 : (lead >> 3) == 0x1E ? 4 : 0;
        if (length == 0 || i + length > text.size()) return std::nullopt;
        for (std::size_t k = 1; k < length; ++k) {
            if ((static_cast<unsigned char>(text[i + k]) & 0xC0) != 0x80) return std::nullopt;
        }
        units += length == 4 ? 2 : 1;
        i += length;
    }
    return units;
}

bool isString(const std::optional<Json>& value, const char* text) {
    return value && value->is_string() && value->get_ref<const std::string&>() == text;
}

// Text inputs type one character, delete backwards and move the caret; other keys do nothing.
void textKeyDown(platform::TextInput& input, const HLVKeyPress& keyPress) {
    if (keyPress.key && keyPress.key->is_string()) {
        const auto& key = keyPress.key->get_ref<const std::string&>();
        if (utf16Length(key) == std::size_t{1}) return input.insertText(key);
    }
    if (isString(keyPress.code, "Backspace")) {
        input.deleteBackward();
    } else if (isString(keyPress.code, "ArrowLeft")) {
        moveCaretBy(input, -1);
    } else if (isString(keyPress.code, "ArrowRight")) {
        moveCaretBy(input, 1);
    }
}

}  // namespace

void keyDown(const ViewRef& view, const HLVKeyPress& keyPress) {
    int depth = 0;
    for (auto current = view; current && current->isAlive() && depth < kMaxChain;
         current = current->superview(), ++depth) {
        if (auto* input = current->asTextInput(); input && current->role() == ViewRole::textInput) {
            return textKeyDown(*input, keyPress);
        }
        if (auto extension = HLVResponderRegistry::responder(current->className());
            extension && extension->halvoraKeyDown(keyPress, current)) {
            return;
        }
    }
}

}  // namespace halvora::control
