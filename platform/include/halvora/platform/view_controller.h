#pragma once
// A screen of the host application (a view controller; a Page in Qt Quick).

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "halvora/platform/view.h"

namespace halvora::platform {

class ViewController {
public:
    virtual ~ViewController() = default;

    // The screen's class name as the agent should read it (a QML type name, for instance).
    virtual std::string className() const = 0;
    // The screen's title; none when it has none.
    virtual std::optional<std::string> title() const = 0;
    // The screen's root view.
    virtual ViewRef view() const = 0;
    // Identity of the underlying screen: two handles of one screen answer the same value.
    virtual const void* nativeHandle() const = 0;

    // The sensitive views the screen declares, masked while a session is active; none when the
    // screen declares nothing (it does not adopt the marker). Gone views are left out.
    virtual std::optional<std::vector<ViewRef>> redactedViews() const = 0;

    bool isSameController(const ViewController& other) const { return nativeHandle() == other.nativeHandle(); }
};

using ViewControllerRef = std::shared_ptr<ViewController>;

}  // namespace halvora::platform
