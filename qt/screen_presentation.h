#pragma once
// The library's own screens in Qt Quick: layouts built from the module's QML files by name, their
// place in the application's navigation (a Popup presents, a StackView pushes), and the modal
// Popup that presents them over the key window.

#include <QPointer>
#include <QQuickItem>

#include <memory>
#include <string>

#include "halvora/platform/layout.h"

class QQmlEngine;
class QQuickWindow;

namespace halvora::qt {

// Where the layouts are, as resources of the library.
inline constexpr const char* kLayoutsUrl = "qrc:/halvora/layouts/";
// The layouts' names, which are also their QML type names in the module Halvora.
inline constexpr const char* kLayoutNames[] = {"HLVHalvoraView",         "HLVCodeDisplayView",
                                               "HLVCountdownView",       "HLVSessionApprovalView",
                                               "HLVManageSessionView",   "HLVErrorDisplayView"};

class QuickLayout final : public platform::Layout {
public:
    // Owns `root` until it is destroyed (deleted later, so a layout can go from its own handler).
    explicit QuickLayout(QQuickItem* root);
    ~QuickLayout() override;

    platform::ViewRef view() const override;
    // The root or its descendant whose objectName is `name`.
    platform::ViewRef outlet(const std::string& name) const override;
    // Inside a Popup (the library's or the application's own).
    bool isBeingPresented() const override;
    void dismiss(bool animated) override;
    // The StackView the layout is in: pop() and pop(null).
    void popNavigation(bool animated) override;
    void popNavigationToRoot(bool animated) override;

private:
    QPointer<QQuickItem> root_;
};

// The engine that made the window's QML (the application's), or else one of the library's own.
QQmlEngine* engineFor(QQuickWindow* window);

// Builds the named layout of the module; null (and a log line) when it cannot be built.
std::shared_ptr<QuickLayout> loadQuickLayout(const std::string& name, QQuickWindow* window);

// Opens a modal Popup over `window` holding `content` (filling it), which keeps `owner` alive until
// the Popup closes; the Popup is destroyed after closing. Content with a closeRequested() signal
// closes it that way too.
bool presentInPopup(QQuickWindow* window, QQuickItem* content, std::shared_ptr<void> owner);

}  // namespace halvora::qt
