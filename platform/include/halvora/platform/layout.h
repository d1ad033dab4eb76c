#pragma once
// A screen the library shows of its own (the session flow and its child screens), built from a
// layout the toolkit integration supplies by name, and its place in the application's navigation.

#include <memory>
#include <string>

#include "halvora/platform/view.h"

namespace halvora::platform {

class Layout {
public:
    virtual ~Layout() = default;

    // The layout's root view.
    virtual ViewRef view() const = 0;
    // The layout's view named `name` (its outlet); none when it has none.
    virtual ViewRef outlet(const std::string& name) const = 0;

    // Whether the screen is shown modally (Application::presentModally, or a modal popup of the
    // application's own) rather than pushed onto a navigation stack.
    virtual bool isBeingPresented() const = 0;
    // Closes the modal presentation that shows the screen; nothing when it is not presented.
    virtual void dismiss(bool animated) = 0;
    // The navigation stack that holds the screen: back by one screen, or to its first screen.
    // Nothing when the screen is in no stack.
    virtual void popNavigation(bool animated) = 0;
    virtual void popNavigationToRoot(bool animated) = 0;
};

using LayoutRef = std::shared_ptr<Layout>;

}  // namespace halvora::platform
