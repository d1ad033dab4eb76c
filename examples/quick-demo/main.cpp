// The demo shop: a Qt Quick application that embeds Halvora. Start the reference service, run
//   halvora-demo-shop --api http://127.0.0.1:4000 --tour 2
// and let an agent start a session for this device: the shop's screens stream to the agent, the
// card number and balance on the checkout screen are masked, and the red banner shows while shared.

#include <QGuiApplication>
#include <QQmlApplicationEngine>
#include <QQmlContext>

#include <cstdio>
#include <filesystem>

#include <halvora/halvora.h>
#include <halvora/platform.h>
#include <halvora/quick.h>

#include "demo_options.h"
#include "shop_report.h"

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

    if (options.dataDir) {
        // The default settings store and device description keep their files under
        // $XDG_DATA_HOME, so pointing it elsewhere keeps this run apart from others.
        std::error_code ec;
        std::filesystem::create_directories(*options.dataDir, ec);
        qputenv("XDG_DATA_HOME", std::filesystem::absolute(*options.dataDir).string().c_str());
    }

    halvora::qt::install();
    halvora::platform::Services services;
    auto info = std::make_shared<halvora::platform::StaticAppInfo>();
    info->id = "io.halvora.demo.shop";
    info->name = "Halvora Shop";
    info->version = "1.0";
    info->build = "1";
    services.appInfo = info;
    halvora::platform::install(std::move(services));

    ShopReport report;  // before the engine, which may still read it while it is destroyed
    QQmlApplicationEngine engine;
    engine.rootContext()->setContextProperty("demoTourSeconds", options.tourSeconds);
    engine.rootContext()->setContextProperty("shop", &report);
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
