#include "tools/cli/host_setup.h"

#include <system_error>

#include "halvora/halvora.h"
#include "halvora/platform/app_info.h"
#include "halvora/platform/clock.h"
#include "platform/linux/curl_http_client.h"
#include "platform/linux/file_store.h"
#include "platform/linux/linux_device_info.h"
#include "halvora/platform.h"

namespace halvora::cli {

std::optional<DataFiles> dataFilesFor(const CliOptions& options) {
    if (!options.dataDir) return std::nullopt;
    return DataFiles{*options.dataDir / "settings.json", *options.dataDir / "vendor.json"};
}

std::variant<Host, std::string> installHost(const CliOptions& options) {
    Host host;
    // The sink goes first: the stores report unreadable files through the log as they load.
    host.log = std::make_shared<LogRelay>(!options.quiet);
    host.log->install();
    host.loop = std::make_shared<platform::RunLoop>(std::make_shared<platform::SystemClock>());

    auto app = std::make_shared<platform::StaticAppInfo>();
    app->id = kAppId;
    app->name = kAppName;
    app->version = Halvora::version();
    app->build = "1";

    platform::Services services;
    services.mainQueue = host.loop;
    services.appInfo = app;
    if (auto files = dataFilesFor(options)) {
        // Made now so that a bad --data is reported up front rather than as a device identifier
        // that silently changes at every run.
        std::error_code ec;
        std::filesystem::create_directories(*options.dataDir, ec);
        if (ec || !std::filesystem::is_directory(*options.dataDir)) {
            return "--data " + options.dataDir->string() + ": cannot use it as a directory" +
                   (ec ? " (" + ec.message() + ")" : std::string());
        }
        services.store = std::make_shared<platform::FileStore>(files->settings);
        services.deviceInfo =
            std::make_shared<platform::LinuxDeviceInfo>(std::make_shared<platform::FileStore>(files->vendor));
    } else {
        services.store = std::make_shared<platform::FileStore>(platform::FileStore::defaultPath(kAppId));
        // Left empty on purpose: the platform's default is a LinuxDeviceInfo whose vendor store
        // sits where every application of this vendor finds it.
    }
    // A little longer than the step deadline, so that the step reports the timeout and a request
    // does not linger long after the tool gave up on it.
    platform::CurlHttpClient::Options http;
    http.idleTimeout = options.timeout + std::chrono::seconds(1);
    services.http = std::make_shared<platform::CurlHttpClient>(http);

    platform::install(std::move(services));
    return host;
}

void configureLibrary(const CliOptions& options) {
    auto& halvora = Halvora::instance();
    halvora.setApi(options.api);
    if (!options.customData.empty()) halvora.setCustomData(options.customData);
}

}  // namespace halvora::cli
