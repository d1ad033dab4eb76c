// The demo shop: a Qt Quick application that embeds Halvora. Start the reference service, run
//   halvora-demo-shop --api http://127.0.0.1:4000 --tour 2
// and let an agent start a session for this device: the shop's screens stream to the agent, the
// card number and balance on the checkout screen are masked, and the red banner shows while shared.
// Or ask for help from the shop's header ("Get help"): read the code to the agent, approve, and end
// the session later by tapping the banner.

#include <QGuiApplication>
#include <QQmlApplicationEngine>
#include <QQmlContext>
#include <QQuickWindow>

#include <cstdio>
#include <filesystem>

#include <halvora/halvora.h>
#include <halvora/platform.h>
#include <halvora/quick.h>

#include "demo_options.h"
#include "demo_user.h"
#include "shop_report.h"
#include "window_shots.h"

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
    halvora::qt::prepareApplication();  // before the QGuiApplication: pages the agent sends open in the window
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

    // The shop starts Halvora itself below, once its service address is known.
    app.setProperty("HLVAutostart", false);
    halvora::qt::install();
    halvora::platform::Services services;
    auto info = std::make_shared<halvora::platform::StaticAppInfo>();
    info->id = "io.halvora.demo.shop";
    info->name = "Halvora Shop";
    info->version = "1.0";
    info->build = "1";
    services.appInfo = info;
    // Offscreen, there is no browser to show the agent's pages in: log them instead.
    if (QGuiApplication::platformName() == "offscreen") {
        services.urlOpener = std::make_shared<halvora::platform::LoggingUrlOpener>();
    }
    halvora::platform::install(std::move(services));

    ShopReport report;  // before the engine, which may still read it while it is destroyed
    QQmlApplicationEngine engine;
    engine.rootContext()->setContextProperty("demoTourSeconds", options.tourSeconds);
    engine.rootContext()->setContextProperty("demoProbeMs", options.probeMs);
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
    auto* window = qobject_cast<QQuickWindow*>(engine.rootObjects().first());
    if (options.playUserSeconds) {
        const auto sharedFor = std::chrono::milliseconds(static_cast<long long>(*options.playUserSeconds * 1000));
        new DemoUser(window, sharedFor, QString::fromStdString(options.screenshotDir.value_or("")), &app);
    } else if (options.screenshotDir) {
        new WindowShots(window, QString::fromStdString(*options.screenshotDir), &app);
    }
    return app.exec();
}
