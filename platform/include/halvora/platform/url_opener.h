#pragma once
// Shows a web page to the user on the agent's behalf (an in-application browser page where the
// toolkit has one). Only absolute http(s) URLs ever reach it.

#include <string>

namespace halvora::platform {

// Where a page the agent sent went: into the application's own window, where the agent sees it in
// the frames; outside it (the system's browser), where the agent does not; or the host cannot tell.
enum class PageShown { inApplication, outside, unknown };

class UrlOpener {
public:
    virtual ~UrlOpener() = default;
    virtual void open(const std::string& url) = 0;
    // open(), saying where the page went; the library tells the agent when it went outside.
    virtual PageShown openPage(const std::string& url) {
        open(url);
        return PageShown::unknown;
    }
    // In the system's browser, leaving the application (the service's credit page).
    virtual void openExternally(const std::string& url) { open(url); }
};

// Headless hosts have nowhere to show a page: the default logs the request instead.
class LoggingUrlOpener final : public UrlOpener {
public:
    void open(const std::string& url) override;
};

}  // namespace halvora::platform
