#include "platform/linux/linux_defaults.h"

#include <unistd.h>

#include <climits>
#include <string>
#include <string_view>

#include "platform/linux/curl_http_client.h"
#include "platform/linux/data_paths.h"
#include "platform/linux/file_store.h"
#include "platform/linux/linux_device_info.h"
#include "platform/linux/sio_socket_factory.h"
#include "platform/system_defaults.h"

namespace halvora::platform {
namespace {

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

void fillLinuxDefaults(Services& s) {
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
    if (!s.http) s.http = std::make_shared<CurlHttpClient>();
    if (!s.sockets) s.sockets = std::make_shared<SioSocketFactory>();
}

}  // namespace

void useLinuxDefaults() { setSystemDefaults(fillLinuxDefaults); }

}  // namespace halvora::platform
