#pragma once
// The application as the library sees it, for Qt Quick: its visible QQuickWindows, the key window's
// front-most Page, the application state, and the masks the library lays over sensitive items.

#include <QPointer>
#include <QString>

#include <string>

#include "halvora/platform/application.h"


namespace halvora::qt {

class IdleInhibitor;
class LinkRelay;
class QuickInputDelivery;

// The scheme of the library's links: the information key "HLVLinkScheme", else "halvora".
std::string linkScheme();
// halvora::qt::setUrlHandler's record: links of `scheme` not the library's go to this slot.
void setApplicationUrlHandler(const QString& scheme, QObject* receiver, const char* method);

class QuickApplication final : public platform::Application {
public:
    // Create on the GUI thread, after the QGuiApplication.
    QuickApplication();
    ~QuickApplication() override;

    // Active while any of its Qt Quick windows is on show and not minimised, whether or not it
    // has the focus; background otherwise, and while the platform has suspended the application.
    platform::ApplicationState state() const override;
    // Back to front: creation order with the key window last (Qt exposes no stacking order).
    std::vector<platform::WindowRef> windows() const override;
    // The focus window when it is one of the application's Qt Quick windows, else the last visible one.
    platform::WindowRef keyWindow() const override;
    // The key window's front-most shown Page: the current item of StackViews and SwipeViews,
    // otherwise the last visible Page in paint order.
    platform::ViewControllerRef topViewController() const override;

    // The key window's item with the active focus.
    platform::ViewRef firstResponder() const override;
    // The agent's pointer and keys as Qt's own input events (QuickInputDelivery).
    platform::InputDelivery* inputDelivery() override;

    // After each swap of any of its Qt Quick windows (a grab swaps nothing).
    std::shared_ptr<void> observeRenders(std::function<void()> onRender) override;

    // The desktop's screen saver, held off over D-Bus where the session bus has it.
    void setIdleTimerDisabled(bool disabled) override;
    bool isIdleTimerDisabled() const override;

    // The module's QML layouts, built with the application's engine.
    platform::LayoutRef loadLayout(const std::string& name) override;
    // A modal Popup over the key window.
    bool presentModally(const platform::LayoutRef& layout, std::shared_ptr<void> owner) override;
    // Links of the scheme the information key "HLVLinkScheme" names ("halvora" when absent) and
    // https links to the library's link host that the application opens with QDesktopServices
    // (this takes QDesktopServices' https handler; other https links go on to the browser), and
    // such links (or http(s) ones) given on the command line when the desktop launches the
    // application for one.
    void interceptLinks(std::function<void(const std::string& url)> onLink) override;

    // Every item a Halvora.redactedItems list declares, on any window, shown or not.
    std::vector<platform::ViewRef> sensitiveViews() const override;

    // Where links handed over by other copies of the application arrive (see link_relay.h).
    void setLinkRelay(LinkRelay* relay);

    // A RedactionMaskItem, owned by the application until the library adds it to the item it hides
    // (then by that item).
    platform::ViewRef makeRedactionMask(platform::Rect frame) override;

private:
    QPointer<QObject> maskOwner_;
    QPointer<IdleInhibitor> idle_;
    QPointer<QuickInputDelivery> input_;
    QPointer<QObject> linkHandler_;
    QPointer<LinkRelay> linkRelay_;
};

}  // namespace halvora::qt
