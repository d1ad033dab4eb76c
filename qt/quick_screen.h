#pragma once
// The library's screen for a desktop Qt Quick application: the key window. Its bounds are the key
// window's size in points at 0,0. A desktop window has no status bar; what the library places
// there, the sharing banner, becomes a badge set where it covers no control of the application
// (see sharing_badge.h). Without a window, the primary screen's size stands in.

#include <QRectF>

#include "halvora/platform/screen.h"

namespace halvora::qt {

class QuickScreen final : public platform::Screen {
public:
    platform::Rect bounds() const override;
    // Where the sharing badge goes in the key window now; empty without a key window.
    platform::Rect statusBarFrame() const override;

private:
    mutable QRectF lastBadge_;  // kept where it is while nowhere better shows up
};

}  // namespace halvora::qt
