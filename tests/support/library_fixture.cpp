#include "tests/support/library_fixture.h"

#include <algorithm>

#include "halvora/halvora.h"
#include "halvora/platform/log.h"
#include "halvora/platform.h"

namespace halvora::testing {

void LibraryTest::SetUp() {
    loop = std::make_shared<platform::RunLoop>(clock);
    app->id = "com.example.shop";
    app->name = "Shop";
    app->version = "2.3";
    app->build = "417";
    app->localization = "en";
    platform::install({.mainQueue = loop, .store = store, .appInfo = app, .deviceInfo = device, .http = http,
                       .sockets = sockets, .urlOpener = browser});
    auto log = log_;
    platform::setLogSink([log](std::string_view line) {
        std::lock_guard lock(log->mutex);
        log->lines.emplace_back(line);
    });
}

void LibraryTest::TearDown() { platform::setLogSink(nullptr); }

std::vector<std::string> LibraryTest::logLines() const {
    std::lock_guard lock(log_->mutex);
    return log_->lines;
}

int LibraryTest::countLog(const std::string& line) const {
    auto lines = logLines();
    return static_cast<int>(std::count(lines.begin(), lines.end(), line));
}

Json LibraryTest::bodyOf(const platform::HttpRequest& request) {
    return request.body ? Json::parse(*request.body) : Json();
}

void LibraryTest::startLibrary() {
    Halvora::instance().setApi("http://svc");
    Halvora::instance().start();
    http->respondJson(200, R"({"id":"device","next_registration":600})");
    runPending();
}

}  // namespace halvora::testing
