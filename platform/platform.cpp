#include "platform/platform.h"

#include <unistd.h>

#include <climits>
#include <mutex>
#include <string>
#include <string_view>
#include <utility>

#include "platform/curl_http_client.h"
#include "platform/data_paths.h"
#include "platform/file_store.h"
#include "platform/linux_device_info.h"
#include "platform/run_loop.h"
#include "platform/sio_socket_factory.h"

namespace halvora::platform {
namespace {

std::mutex& servicesMutex() {
    static std::mutex mutex;
    return mutex;
}

// Destroyed at exit in reverse member order: the network client first, the main queue last, so
// that completions and background tasks still find the queue they post to.
Services& current() {
    static Services services;
    return services;
}

std::string executableName() {
    char buffer[PATH_MAX];
    const ssize_t length = ::readlink("/proc/self/exe", buffer, sizeof buffer - 1);
    if (length <= 0) return "app";
    std::string_view path(buffer, static_cast<std::size_t>(length));
    constexpr std::string_view kDeleted = " (deleted)";  // the binary was replaced while running
    if (path.ends_with(kDeleted)) path.remove_suffix(kDeleted.size());
    const auto slash = path.rfind('/');
    if (slash != std::string_view::npos) path.remove_prefix(slash + 1);
    return std::string(path);
}

// Applications of one vendor share "com.example" out of "com.example.app".
std::string vendorOf(const std::string& appId) {
    const auto dot = appId.rfind('.');
    return dot == std::string::npos ? appId : appId.substr(0, dot);
}

void fillDefaults(Services& s) {
    const std::string localId = "local." + safePathComponent(executableName());
    if (!s.appInfo) {
        auto info = std::make_shared<StaticAppInfo>();
        info->id = localId;
        s.appInfo = std::move(info);
    }
    // A host's own application information names the store too, when it has an identifier.
    const std::string appId = s.appInfo->identifier().value_or(localId);
    if (!s.store) s.store = std::make_shared<FileStore>(FileStore::defaultPath(appId));
    if (!s.deviceInfo) {
        const auto vendorFile =
            dataHome() / "halvora" / "vendors" / (safePathComponent(vendorOf(appId)) + ".json");
        s.deviceInfo = std::make_shared<LinuxDeviceInfo>(std::make_shared<FileStore>(vendorFile));
    }
    if (!s.mainQueue) s.mainQueue = std::make_shared<RunLoop>();
    if (!s.background) s.background = std::make_shared<BackgroundQueue>();
    if (!s.http) s.http = std::make_shared<CurlHttpClient>();
    if (!s.sockets) s.sockets = std::make_shared<SioSocketFactory>();
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

}  // namespace halvora::platform
