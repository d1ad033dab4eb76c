#pragma once
// Which Qt Quick windows the library sees, and which one is key. Qt exposes no stacking order of
// top-level windows, so "back to front" is creation order with the key window moved last.

#include <vector>

class QQuickWindow;

namespace halvora::qt {

// Visible Qt Quick windows, back to front as described above.
std::vector<QQuickWindow*> visibleQuickWindows();
// The focus window when it is a visible Qt Quick window; otherwise the last visible one; null
// when the application shows none.
QQuickWindow* keyQuickWindow();

}  // namespace halvora::qt
