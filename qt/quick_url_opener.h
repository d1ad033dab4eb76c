#pragma once
// Web pages the agent sends: in a modal browser page over the key window when the Qt WebView QML
// module is installed (looked for at run time, so the library never links it), else in the
// system's browser.

#include "halvora/platform/url_opener.h"

namespace halvora::qt {

class QuickUrlOpener final : public platform::UrlOpener {
public:
    void open(const std::string& url) override;
    // In a WebView over the key window, inside the shared picture, when Qt WebView is installed
    // (and halvora::qt::prepareApplication() ran); else in the system's browser, outside it.
    platform::PageShown openPage(const std::string& url) override;
    void openExternally(const std::string& url) override;

private:
    bool openInApplication(const std::string& url);
    bool webViewMissing_ = false;
};

}  // namespace halvora::qt
