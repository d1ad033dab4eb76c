#include "qt/quick_application.h"

#include <QDesktopServices>
#include <QGuiApplication>
#include <QPointer>
#include <QQuickWindow>
#include <QUrl>

#include <map>
#include <set>

#include "halvora/halvora.h"
#include "halvora/platform.h"
#include "qt/halvora_attached.h"
#include "qt/idle_inhibitor.h"
#include "qt/input_delivery.h"
#include "qt/key_window.h"
#include "qt/link_relay.h"
#include "qt/page_controller.h"
#include "qt/quick_view.h"
#include "qt/quick_window.h"
#include "qt/redaction_mask_item.h"
#include "qt/render_watcher.h"
#include "qt/screen_presentation.h"
#include "qt/shown_pages.h"

namespace halvora::qt {
namespace {

// The application's own handlers, by scheme, given through halvora::qt::setUrlHandler.
struct AppHandler {
    QPointer<QObject> receiver;
    QByteArray method;
};
std::map<QString, AppHandler>& appHandlers() {
    static std::map<QString, AppHandler> handlers;
    return handlers;
}
// The schemes whose links Halvora takes now.
std::set<QString>& heldSchemes() {
    static std::set<QString> schemes;
    return schemes;
}

// Hands `url` to the application's handler for its scheme; false when it has none.
bool toApplication(const QUrl& url) {
    const auto it = appHandlers().find(url.scheme().toLower());
    if (it == appHandlers().end() || !it->second.receiver) return false;
    // QDesktopServices' own contract: the slot is named in a string.
    return QMetaObject::invokeMethod(it->second.receiver, it->second.method.constData(), Q_ARG(QUrl, url));
}

// QDesktopServices hands the links of a scheme to a slot by name. Of the links of the library's
// scheme and the https links the application opens, those to the library's link host are ours
// (any host for the library's own scheme); the others go to the application's handler, or for
// https to the browser as if no handler were set.
class LinkHandler final : public QObject {
    Q_OBJECT
public:
    LinkHandler(QObject* parent, QString scheme, std::function<void(const std::string&)> onLink)
        : QObject(parent), scheme_(std::move(scheme)), onLink_(std::move(onLink)) {
        QDesktopServices::setUrlHandler(scheme_, this, "handle");
        QDesktopServices::setUrlHandler(kWeb, this, "handleWeb");
        heldSchemes() = {scheme_.toLower(), QString::fromLatin1(kWeb)};
    }
    ~LinkHandler() override {
        heldSchemes().clear();
        // The application's handlers come back.
        for (const QString& scheme : {scheme_, QString::fromLatin1(kWeb)}) {
            const auto it = appHandlers().find(scheme);
            if (it != appHandlers().end() && it->second.receiver) {
                QDesktopServices::setUrlHandler(scheme, it->second.receiver, it->second.method.constData());
            } else {
                QDesktopServices::unsetUrlHandler(scheme);
            }
        }
    }

public Q_SLOTS:
    void handle(const QUrl& url) { onLink_(url.toString(QUrl::FullyEncoded).toStdString()); }
    void handleWeb(const QUrl& url) {
        if (url.host().compare(QString::fromStdString(Halvora::instance().linkHost()), Qt::CaseInsensitive) == 0) {
            handle(url);
            return;
        }
        if (toApplication(url)) return;
        QDesktopServices::unsetUrlHandler(kWeb);
        QDesktopServices::openUrl(url);
        QDesktopServices::setUrlHandler(kWeb, this, "handleWeb");
    }

private:
    static constexpr const char* kWeb = "https";
    QString scheme_;
    std::function<void(const std::string&)> onLink_;
};

}  // namespace

std::string linkScheme() {
    auto value = platform::appInfo().infoValue("HLVLinkScheme");
    const std::string* scheme = value ? std::get_if<std::string>(&*value) : nullptr;
    return scheme && !scheme->empty() ? *scheme : "halvora";
}

void setApplicationUrlHandler(const QString& scheme, QObject* receiver, const char* method) {
    appHandlers()[scheme.toLower()] = AppHandler{receiver, QByteArray(method ? method : "")};
    // Until the library takes the scheme, and when it lets go of it, the application's handler
    // has its links; while the library holds it, it passes on those not its own.
    if (!heldSchemes().contains(scheme.toLower())) QDesktopServices::setUrlHandler(scheme, receiver, method);
}


QuickApplication::QuickApplication()
    : maskOwner_(new QObject(QCoreApplication::instance())),
      idle_(new IdleInhibitor(QCoreApplication::instance())),
      input_(new QuickInputDelivery(QCoreApplication::instance())) {}

QuickApplication::~QuickApplication() { delete linkHandler_.data(); }

void QuickApplication::setLinkRelay(LinkRelay* relay) { linkRelay_ = relay; }

std::shared_ptr<void> QuickApplication::observeRenders(std::function<void()> onRender) {
    auto* watcher = new RenderWatcher(std::move(onRender), QCoreApplication::instance());
    // The application object deletes the watcher first when it goes before the handle.
    return std::shared_ptr<RenderWatcher>(watcher, [guard = QPointer<RenderWatcher>(watcher)](RenderWatcher*) {
        delete guard.data();
    });
}

void QuickApplication::setIdleTimerDisabled(bool disabled) {
    if (idle_) idle_->setInhibited(disabled);
}

bool QuickApplication::isIdleTimerDisabled() const { return idle_ && idle_->isInhibited(); }

platform::LayoutRef QuickApplication::loadLayout(const std::string& name) {
    return loadQuickLayout(name, keyQuickWindow());
}

bool QuickApplication::presentModally(const platform::LayoutRef& layout, std::shared_ptr<void> owner) {
    return layout && presentInPopup(keyQuickWindow(), itemOf(layout->view()), std::move(owner));
}

void QuickApplication::interceptLinks(std::function<void(const std::string& url)> onLink) {
    if (linkHandler_) return;
    const QString scheme = QString::fromStdString(linkScheme());
    linkHandler_ = new LinkHandler(QCoreApplication::instance(), scheme, onLink);
    // Links that other copies of the application were started with.
    if (linkRelay_) linkRelay_->setOnLink(onLink);
    // A desktop launching the application for a link passes it as an argument (the %u of the
    // .desktop entry's Exec line): the same rule as for a link handed over by another copy.
    const auto link = LinkRelay::linkIn(QCoreApplication::arguments(), scheme,
                                        QString::fromStdString(Halvora::instance().linkHost()));
    if (link) onLink(link->toStdString());
}

platform::ApplicationState QuickApplication::state() const {
    // On a desktop the user's focus moves to other applications (a call with the agent, a
    // browser) while the window stays in sight; Qt then calls the application inactive. What
    // matters to the agent is whether there is a picture: any window on show, not minimised.
    if (QGuiApplication::applicationState() == Qt::ApplicationSuspended) return platform::ApplicationState::background;
    for (QQuickWindow* window : visibleQuickWindows()) {
        if (window->visibility() != QWindow::Minimized && window->visibility() != QWindow::Hidden)
            return platform::ApplicationState::active;
    }
    return platform::ApplicationState::background;
}

std::vector<platform::WindowRef> QuickApplication::windows() const {
    std::vector<platform::WindowRef> windows;
    for (QQuickWindow* window : visibleQuickWindows()) windows.push_back(windowFor(window));
    return windows;
}

platform::WindowRef QuickApplication::keyWindow() const { return windowFor(keyQuickWindow()); }

platform::ViewControllerRef QuickApplication::topViewController() const {
    const std::vector<ShownPage> pages = shownPages(keyQuickWindow());
    if (pages.empty()) return nullptr;
    return std::make_shared<PageController>(pages.back().page);
}

platform::ViewRef QuickApplication::firstResponder() const {
    QQuickWindow* window = keyQuickWindow();
    return window ? viewFor(window->activeFocusItem()) : nullptr;
}

platform::InputDelivery* QuickApplication::inputDelivery() { return input_.data(); }

std::vector<platform::ViewRef> QuickApplication::sensitiveViews() const {
    std::vector<platform::ViewRef> views;
    for (QQuickItem* item : HalvoraAttached::allRedactedItems()) views.push_back(viewFor(item));
    return views;
}

platform::ViewRef QuickApplication::makeRedactionMask(platform::Rect frame) {
    auto* mask = new RedactionMaskItem(QRectF(frame.x, frame.y, frame.width, frame.height), maskOwner_.data());
    return viewFor(mask);
}

}  // namespace halvora::qt

#include "quick_application.moc"
