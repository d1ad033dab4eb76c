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
    picker,
    navigationBar,
    textInput,
    tapRecognizer,
};

// Where a view draws: the view, its children and whatever overflows its bounds (text running
// past its box, a child placed outside), as one rectangle in screen coordinates (those of
// Window::frame). Sensitive views are blanked in frames through this, so a toolkit that cannot
// tell says `unknown` and no frame is sent while such a view exists.
struct DrawnArea {
    enum class Kind { notDrawn, known, unknown };
    Kind kind = Kind::unknown;
    Rect frame;  // when known

    static DrawnArea notDrawn() { return {Kind::notDrawn, {}}; }
    static DrawnArea at(Rect frame) { return {Kind::known, frame}; }
};

class View;
using ViewRef = std::shared_ptr<View>;

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

    bool isSameView(const View& other) const { return nativeHandle() == other.nativeHandle(); }
};

}  // namespace halvora::platform
