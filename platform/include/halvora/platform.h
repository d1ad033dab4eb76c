#pragma once
// The platform boundary, for hosts that install their own pieces:
//
//   #include <halvora/platform.h>
//
// The services the library reaches the host through. A host installs its own before the first use
// of the library; anything not installed gets a portable default when first asked for.

#include <memory>

#include "halvora/platform/app_info.h"
#include "halvora/platform/application.h"
#include "halvora/platform/background_queue.h"
#include "halvora/platform/device_info.h"
#include "halvora/platform/http_client.h"
#include "halvora/platform/clock.h"
#include "halvora/platform/controls.h"
#include "halvora/platform/input_delivery.h"
#include "halvora/platform/key_value_store.h"
#include "halvora/platform/layout.h"
#include "halvora/platform/log.h"
#include "halvora/platform/main_queue.h"
#include "halvora/platform/realtime_socket.h"
#include "halvora/platform/rgba_frame.h"
#include "halvora/platform/run_loop.h"
#include "halvora/platform/screen.h"
#include "halvora/platform/url_opener.h"
#include "halvora/platform/view.h"
#include "halvora/platform/view_controller.h"
#include "halvora/platform/window.h"

namespace halvora::platform {

struct Services {
    std::shared_ptr<MainQueue> mainQueue = nullptr;          // default: RunLoop on the system clock
    std::shared_ptr<KeyValueStore> store = nullptr;          // default: FileStore at FileStore::defaultPath
    std::shared_ptr<AppInfo> appInfo = nullptr;              // default: StaticAppInfo named after the executable
    std::shared_ptr<DeviceInfo> deviceInfo = nullptr;        // default: LinuxDeviceInfo
    std::shared_ptr<HttpClient> http = nullptr;              // default: CurlHttpClient
    std::shared_ptr<RealtimeSocketFactory> sockets = nullptr; // default: SioSocketFactory (sio/)
    std::shared_ptr<UrlOpener> urlOpener = nullptr;          // default: LoggingUrlOpener
    std::shared_ptr<Screen> screen = nullptr;      // default: FixedScreen (a headless phone screen)
    std::shared_ptr<Application> application = nullptr; // default: HeadlessApplication (no windows)
    // Last, so that at exit it is stopped first: its tasks still find every other service.
    std::shared_ptr<BackgroundQueue> background = nullptr;   // default: one worker thread
};

// Installs the given services; empty members keep (or lazily get) their defaults.
// Call before the library is first used, from the thread that will be the main thread.
void install(Services services);
// The installed services, with defaults filled in for anything missing.
const Services& services();

inline MainQueue& mainQueue() { return *services().mainQueue; }
inline BackgroundQueue& backgroundQueue() { return *services().background; }
inline const AppInfo& appInfo() { return *services().appInfo; }
// These four abort with a clear message when neither the host nor the library installed one.
KeyValueStore& store();
const DeviceInfo& deviceInfo();
HttpClient& http();
RealtimeSocketFactory& sockets();
inline UrlOpener& urlOpener() { return *services().urlOpener; }
// Only the screen: the overlay reads it when the facade is made, before a host may have installed
// its services, and that must not start the other defaults (HTTP and worker threads).
const Screen& screen();
// The application (windows, screens, masks); like the screen, it starts nothing else.
Application& application();

}  // namespace halvora::platform
