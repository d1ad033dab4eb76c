#pragma once
// The library's screen for a desktop Qt Quick application: the key window. Its bounds are the key
// window's size in points at 0,0, and the status bar is a strip across the window's top, where the
// sharing banner goes. Without a window, the primary screen's size stands in.

#include "halvora/platform/screen.h"

namespace halvora::qt {

class QuickScreen final : public platform::Screen {
public:
    static constexpr double kStatusBarHeight = 24;

    platform::Rect bounds() const override;
    platform::Rect statusBarFrame() const override;
};

}  // namespace halvora::qt
