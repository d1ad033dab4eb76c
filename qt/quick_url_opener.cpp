#include "qt/quick_url_opener.h"

#include <QDesktopServices>
#include <QQmlComponent>
#include <QQmlEngine>
#include <QQuickItem>
#include <QQuickWindow>
#include <QUrl>

#include "halvora/platform/log.h"
#include "qt/key_window.h"
#include "qt/screen_presentation.h"

namespace halvora::qt {

void QuickUrlOpener::open(const std::string& url) { openPage(url); }

platform::PageShown QuickUrlOpener::openPage(const std::string& url) {
    if (openInApplication(url)) return platform::PageShown::inApplication;
    openExternally(url);
    return platform::PageShown::outside;
}

void QuickUrlOpener::openExternally(const std::string& url) {
    if (!QDesktopServices::openUrl(QUrl(QString::fromStdString(url)))) {
        platform::log("Halvora could not open " + url + " in the system browser");
    }
}

bool QuickUrlOpener::openInApplication(const std::string& url) {
    if (webViewMissing_) return false;
    QQuickWindow* window = keyQuickWindow();
    if (!window) return false;
    QQmlComponent component(engineFor(window));
    component.setData(R"(import QtQuick
import QtQuick.Controls
import QtWebView
Item {
    property alias url: page.url
    signal closeRequested()
    WebView { id: page; anchors.fill: parent }
    RoundButton { text: "\u2715"; anchors.top: parent.top; anchors.right: parent.right
                  anchors.margins: 8; Accessible.name: "Close"; onClicked: closeRequested() }
})",
                      QUrl(QStringLiteral("qrc:/halvora/BrowserPage.qml")));
    if (!component.isReady()) {
        // Looked for once: the module does not appear while the application runs.
        webViewMissing_ = true;
        return false;
    }
    auto* page = qobject_cast<QQuickItem*>(component.create());
    if (!page) return false;
    QQmlEngine::setObjectOwnership(page, QQmlEngine::CppOwnership);
    page->setProperty("url", QUrl(QString::fromStdString(url)));
    // The popup's content goes with the popup: nothing of the library's keeps the page.
    auto owner = std::shared_ptr<void>(nullptr, [page = QPointer<QQuickItem>(page)](void*) {
        if (page) page->deleteLater();
    });
    return presentInPopup(window, page, owner);
}

}  // namespace halvora::qt
