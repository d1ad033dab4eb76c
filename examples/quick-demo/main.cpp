// The demo shop: a Qt Quick application that embeds Halvora. Start the reference service, run
//   halvora-demo-shop --api http://127.0.0.1:4000 --tour 2
// and let an agent start a session for this device: the shop's screens stream to the agent, the
// card number and balance on the checkout screen are masked, and the red banner shows while shared.

#include <QGuiApplication>
#include <QQmlApplicationEngine>
#include <QQmlContext>

#include <cstdio>
#include <filesystem>

#include "core/halvora.h"
#include "core/halvora_delegate.h"
#include "demo_options.h"
#include "platform/file_store.h"
#include "platform/linux_device_info.h"
#include "platform/platform.h"
#include "qt/halvora_quick.h"
#include "session/session.h"

namespace {

// Prints the session's progress, so whoever runs the demo can follow it from the terminal.
class PrintingDelegate final : public halvora::HalvoraDelegate {
public:
    void halvoraSessionDidUpdate(const std::shared_ptr<halvora::HLVSession>& session) override {
        std::printf("session %s: %s\n", session->code().value_or("?").c_str(), session->state().value_or("?").c_str());
        std::fflush(stdout);
    }
    void halvoraSessionDidEnd(const std::shared_ptr<halvora::HLVSession>& session) override {
        std::printf("session %s ended\n", session->code().value_or("?").c_str());
        std::fflush(stdout);
    }
};

}  // namespace

int main(int argc, char** argv) {
    QGuiApplication app(argc, argv);
    app.setApplicationName("Halvora Shop");
    const auto parsed = halvora::demo::parseDemoOptions(app.arguments());
    if (parsed.error) {
        std::fprintf(stderr, "%s\n", parsed.error->c_str());
        return 64;
    }
    const auto& options = parsed.options;

    halvora::qt::install();
    halvora::platform::Services services;
    auto info = std::make_shared<halvora::platform::StaticAppInfo>();
    info->id = "io.halvora.demo.shop";
    info->name = "Halvora Shop";
    info->version = "1.0";
    info->build = "1";
    services.appInfo = info;
    if (options.dataDir) {
        const std::filesystem::path dir(*options.dataDir);
        std::error_code ec;
        std::filesystem::create_directories(dir, ec);
        services.store = std::make_shared<halvora::platform::FileStore>(dir / "settings.json");
        services.deviceInfo = std::make_shared<halvora::platform::LinuxDeviceInfo>(
            std::make_shared<halvora::platform::FileStore>(dir / "vendor.json"));
    }
    halvora::platform::install(std::move(services));

    QQmlApplicationEngine engine;
    engine.rootContext()->setContextProperty("demoTourSeconds", options.tourSeconds);
    engine.load(QUrl(QStringLiteral("qrc:/HalvoraDemo/Main.qml")));
    if (engine.rootObjects().isEmpty()) return 1;

    auto& halvora = halvora::Halvora::instance();
    halvora.setDelegate(std::make_shared<PrintingDelegate>());
    halvora.setApi(options.api);
    halvora.start();
    std::printf("device %s\n", halvora.deviceId().c_str());
    std::fflush(stdout);
    if (options.joinCode) halvora::Halvora::joinFromOutside(*options.joinCode);
    return app.exec();
}
