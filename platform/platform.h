#pragma once
// The services the library reaches the host through. A host installs its own before the first use
// of the library; anything not installed gets a portable default when first asked for.

#include <memory>

#include "platform/app_info.h"
#include "platform/application.h"
#include "platform/background_queue.h"
#include "platform/device_info.h"
#include "platform/http_client.h"
#include "platform/key_value_store.h"
#include "platform/main_queue.h"
#include "platform/realtime_socket.h"
#include "platform/screen.h"
#include "platform/url_opener.h"

namespace halvora::platform {

struct Services {
    std::shared_ptr<MainQueue> mainQueue = nullptr;          // default: RunLoop on the system clock
    std::shared_ptr<BackgroundQueue> background = nullptr;   // default: one worker thread
    std::shared_ptr<KeyValueStore> store = nullptr;          // default: FileStore at FileStore::defaultPath
    std::shared_ptr<AppInfo> appInfo = nullptr;              // default: StaticAppInfo named after the executable
    std::shared_ptr<DeviceInfo> deviceInfo = nullptr;        // default: LinuxDeviceInfo
    std::shared_ptr<HttpClient> http = nullptr;              // default: CurlHttpClient
    std::shared_ptr<RealtimeSocketFactory> sockets = nullptr; // default: SioSocketFactory (sio/)
    std::shared_ptr<UrlOpener> urlOpener = nullptr;          // default: LoggingUrlOpener
    std::shared_ptr<Screen> screen = nullptr;      // default: FixedScreen (a headless phone screen)
    std::shared_ptr<Application> application = nullptr; // default: HeadlessApplication (no windows)
};

// Installs the given services; empty members keep (or lazily get) their defaults.
// Call before the library is first used, from the thread that will be the main thread.
void install(Services services);
// The installed services, with defaults filled in for anything missing.
const Services& services();

inline MainQueue& mainQueue() { return *services().mainQueue; }
inline BackgroundQueue& backgroundQueue() { return *services().background; }
inline KeyValueStore& store() { return *services().store; }
inline const AppInfo& appInfo() { return *services().appInfo; }
inline const DeviceInfo& deviceInfo() { return *services().deviceInfo; }
inline HttpClient& http() { return *services().http; }
inline RealtimeSocketFactory& sockets() { return *services().sockets; }
inline UrlOpener& urlOpener() { return *services().urlOpener; }
// Only the screen: the overlay reads it when the facade is made, before a host may have installed
// its services, and that must not start the other defaults (HTTP and worker threads).
const Screen& screen();
// The application (windows, screens, masks); like the screen, it starts nothing else.
Application& application();

}  // namespace halvora::platform
