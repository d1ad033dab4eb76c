#include "halvora/platform.h"

#include <cstdlib>
#include <mutex>
#include <string>
#include <utility>

#include "halvora/platform/log.h"
#include "halvora/platform/run_loop.h"
#include "platform/system_defaults.h"

namespace halvora::platform {
namespace {

std::mutex& servicesMutex() {
    static std::mutex mutex;
    return mutex;
}

// Destroyed at exit in reverse member order: the background queue first (its last tasks still find
// every other service), then the network client, the main queue last, so that completions still
// find the queue they post to.
Services& current() {
    static Services services;
    return services;
}

// The defaults that need the operating system; see platform/system_defaults.h.
SystemDefaults& systemDefaults() {
    static SystemDefaults make;
    return make;
}

void fillDefaults(Services& s) {
    // Only while something is missing: at exit the background queue's last tasks still come here.
    const bool complete = s.appInfo && s.store && s.deviceInfo && s.http && s.sockets;
    if (!complete && systemDefaults()) systemDefaults()(s);
    if (!s.appInfo) s.appInfo = std::make_shared<StaticAppInfo>();
    if (!s.mainQueue) s.mainQueue = std::make_shared<RunLoop>();
    if (!s.background) s.background = std::make_shared<BackgroundQueue>();
    if (!s.urlOpener) s.urlOpener = std::make_shared<LoggingUrlOpener>();
    if (!s.screen) s.screen = std::make_shared<FixedScreen>();
    if (!s.application) s.application = std::make_shared<HeadlessApplication>();
}

template <typename T>
void replaceIfGiven(std::shared_ptr<T>& target, std::shared_ptr<T>& given) {
    if (given) target = std::move(given);
}

}  // namespace

void install(Services services) {
    Services replaced;  // what is replaced is released outside the lock
    {
        std::lock_guard lock(servicesMutex());
        Services& s = current();
        replaced = s;
        replaceIfGiven(s.mainQueue, services.mainQueue);
        replaceIfGiven(s.background, services.background);
        replaceIfGiven(s.store, services.store);
        replaceIfGiven(s.appInfo, services.appInfo);
        replaceIfGiven(s.deviceInfo, services.deviceInfo);
        replaceIfGiven(s.http, services.http);
        replaceIfGiven(s.sockets, services.sockets);
        replaceIfGiven(s.urlOpener, services.urlOpener);
        replaceIfGiven(s.screen, services.screen);
        replaceIfGiven(s.application, services.application);
    }
}

const Screen& screen() {
    std::lock_guard lock(servicesMutex());
    Services& s = current();
    if (!s.screen) s.screen = std::make_shared<FixedScreen>();
    return *s.screen;
}

Application& application() {
    std::lock_guard lock(servicesMutex());
    Services& s = current();
    if (!s.application) s.application = std::make_shared<HeadlessApplication>();
    return *s.application;
}

const Services& services() {
    std::lock_guard lock(servicesMutex());
    Services& s = current();
    fillDefaults(s);
    return s;
}

void setSystemDefaults(SystemDefaults make) {
    std::lock_guard lock(servicesMutex());
    systemDefaults() = std::move(make);
}

namespace {
[[noreturn]] void missing(const char* what) {
    log(std::string("Halvora: no ") + what +
        " is installed; install one with platform::install() or link the full library (Halvora::Halvora)");
    std::abort();
}
}  // namespace

KeyValueStore& store() {
    auto& s = services();
    if (!s.store) missing("settings store");
    return *s.store;
}

const DeviceInfo& deviceInfo() {
    auto& s = services();
    if (!s.deviceInfo) missing("device information");
    return *s.deviceInfo;
}

HttpClient& http() {
    auto& s = services();
    if (!s.http) missing("HTTP client");
    return *s.http;
}

RealtimeSocketFactory& sockets() {
    auto& s = services();
    if (!s.sockets) missing("realtime socket factory");
    return *s.sockets;
}

}  // namespace halvora::platform
