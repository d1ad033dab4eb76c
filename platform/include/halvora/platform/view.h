#pragma once
// A view of the host's toolkit, as the library sees it. Views belong to the toolkit: a View is a
// weak handle that knows when its view is gone, and every operation on a gone view is harmless.
// Sets and maps of views are keyed by identity (nativeHandle), never by handle object.

#include <memory>
#include <string>
#include <vector>

#include "halvora/platform/screen.h"

namespace halvora::platform {

// What a view is to the library. A toolkit maps its widgets to one role each; behaviour that
// depends on the kind of view is written once, in the library, against these roles. Roles for
// remote control are listed so that toolkits can report them already; their operations are
// added on the role-specific interfaces as that work lands.
enum class ViewRole {
    plain,
    window,
    viewController,    // a screen's root view (Page)
    redactionMask,     // the library's mask over a sensitive view
    overlay,           // the library's annotation overlay; never captured
    control,           // buttons and other tappable controls
    toggle,            // switches
    stepper,
    segmentedControl,
    slider,
    scrollView,
    tableView,
    tableCell,
    collectionView,
    collectionCell,
    picker,
    navigationBar,
    textInput,
    tapRecognizer,
};

// Where a view draws: the view, its children and whatever overflows its bounds (text running
// past its box, a child placed outside), cut to what its clipping ancestors let show, as
// rectangles in screen coordinates (those of Window::frame). Sensitive views are blanked in frames
// through this:
// - `known`: exactly these rectangles;
// - `within`: the place cannot be read now (something moves the view where the toolkit does not
//   report it, such as its render thread), but the view lies inside these rectangles, which are
//   blanked whole;
// - `unknown`: not even that, and no frame is sent while such a view exists.
struct DrawnArea {
    enum class Kind { notDrawn, known, within, unknown };
    Kind kind = Kind::unknown;
    std::vector<Rect> rects;  // when known or within

    static DrawnArea notDrawn() { return {Kind::notDrawn, {}}; }
    static DrawnArea at(Rect frame) { return {Kind::known, {frame}}; }
    static DrawnArea at(std::vector<Rect> rects) { return {Kind::known, std::move(rects)}; }
    static DrawnArea within(std::vector<Rect> rects) { return {Kind::within, std::move(rects)}; }
};

class View;
using ViewRef = std::shared_ptr<View>;
class Window;
class Control;
class Toggle;
class Stepper;
class SegmentedControl;
class Slider;
class ScrollView;
class CellContainer;
class TextInput;

class View {
public:
    virtual ~View() = default;

    virtual ViewRole role() const = 0;
    // The toolkit's class name of the view (a QML type name, for instance).
    virtual std::string className() const = 0;

    // False once the toolkit has destroyed the view.
    virtual bool isAlive() const = 0;
    // Identity of the underlying view: two handles of one view answer the same value.
    virtual const void* nativeHandle() const = 0;

    // In the view's own coordinates (normally at 0,0), in points.
    virtual Rect bounds() const = 0;
    // In the superview's coordinates (for a window: the screen's).
    virtual Rect frame() const = 0;
    virtual void setFrame(Rect frame) = 0;
    // Where the view draws now; `unknown` unless the toolkit answers (see DrawnArea).
    virtual DrawnArea drawnArea() const { return {}; }

    // Direct children, back to front.
    virtual std::vector<ViewRef> subviews() const = 0;
    // Adds `child` in front of the other subviews, taking it from its previous parent.
    virtual void addSubview(const ViewRef& child) = 0;
    // Moves a direct child in front of its siblings; anything else is ignored.
    virtual void bringSubviewToFront(const ViewRef& child) = 0;
    virtual void removeFromSuperview() = 0;

    // Remote control. The defaults describe a view the agent cannot operate: it passes touches
    // and keys to its superview, and has no role operations.

    // The view this one is a child of; none for a window or a view outside any window.
    virtual ViewRef superview() const { return nullptr; }
    // The window that shows the view; none while it is in no window.
    virtual std::shared_ptr<Window> window() const { return nullptr; }
    // Between the coordinates of the view's window and the view's own.
    virtual Point convertFromWindow(Point point) const { return point; }
    virtual Point convertToWindow(Point point) const { return point; }
    // Whether a point in the view's own coordinates lies in it, by the view's own shape.
    virtual bool pointInside(Point point) const { return bounds().contains(point); }
    // The front-most descendant (or the view itself) under a point of the view's own coordinates
    // that takes touches: visible, enabled, not transparent, containing the point; none if none.
    virtual ViewRef hitTest(Point /*point*/) { return nullptr; }
    // The view's default accessibility action (a button's press, for instance); true when it had one.
    virtual bool accessibilityActivate() { return false; }
    // Whether the view has single-tap, single-touch recognisers; triggering them makes each
    // report a tap at `windowPoint` and answers whether there was one.
    virtual bool hasTapGesture() const { return false; }
    virtual bool triggerTapGestures(Point /*windowPoint*/) { return false; }

    // The operations of the view's role; none when it has no such role.
    virtual Control* asControl() { return nullptr; }
    virtual Toggle* asToggle() { return nullptr; }
    virtual Stepper* asStepper() { return nullptr; }
    virtual SegmentedControl* asSegmentedControl() { return nullptr; }
    virtual Slider* asSlider() { return nullptr; }
    virtual ScrollView* asScrollView() { return nullptr; }
    // For table and collection views: how their cells are highlighted and selected.
    virtual CellContainer* asCellContainer() { return nullptr; }
    virtual TextInput* asTextInput() { return nullptr; }

    // Presentation, for the screens the library shows of its own. The defaults do nothing.
    // A hidden view draws nothing and takes no touches.
    virtual void setHidden(bool /*hidden*/) {}
    virtual bool isHidden() const { return false; }
    // 0 (transparent) to 1 (opaque).
    virtual void setAlpha(double /*alpha*/) {}
    // A label's or button's text; views without text ignore it.
    virtual void setText(const std::string& /*text*/) {}
    virtual std::string text() const { return {}; }
    // From now on, the view keeps the size and place of its superview's bounds as they change.
    virtual void setFillsSuperview() {}

    bool isSameView(const View& other) const { return nativeHandle() == other.nativeHandle(); }
};

}  // namespace halvora::platform
