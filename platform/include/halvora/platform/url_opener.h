#pragma once
// Shows a web page to the user on the agent's behalf (an in-application browser page where the
// toolkit has one). Only absolute http(s) URLs ever reach it.

#include <string>

namespace halvora::platform {

class UrlOpener {
public:
    virtual ~UrlOpener() = default;
    virtual void open(const std::string& url) = 0;
    // In the system's browser, leaving the application (the service's credit page).
    virtual void openExternally(const std::string& url) { open(url); }
};

// Headless hosts have nowhere to show a page: the default logs the request instead.
class LoggingUrlOpener final : public UrlOpener {
public:
    void open(const std::string& url) override;
};

}  // namespace halvora::platform
