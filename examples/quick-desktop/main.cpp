// The desktop demo: a 1280x800 order desk that embeds Halvora.
//   halvora-desktop-demo [--api URL] [--data DIR]
// An agent starts a session for this device at the console and sees the desk at one pixel per
// point: the table, the form's caret blinking in the customer field, the "New order" dialog. The
// card number in the form is masked. What the user or the agent does is printed ("app: ...").

#include <QCommandLineParser>
#include <QDateTime>
#include <QGuiApplication>
#include <QQmlApplicationEngine>
#include <QQmlContext>

#include <cstdio>
#include <filesystem>

#include <halvora/halvora.h>
#include <halvora/platform.h>
#include <halvora/quick.h>

namespace {

// Lets the desk say what just happened, one line on standard output, for whoever runs it and for
// the scripts that drive it.
class DeskReport final : public QObject {
    Q_OBJECT
public:
    using QObject::QObject;
    Q_INVOKABLE void say(const QString& line) const {
        std::printf("app: %s\n", line.toUtf8().constData());
        std::fflush(stdout);
    }
};

}  // namespace

int main(int argc, char** argv) {
    halvora::qt::prepareApplication();  // before the QGuiApplication: pages the agent sends open in the window
    QGuiApplication app(argc, argv);
    app.setApplicationName("Halvora Desk");
    QCommandLineParser parser;
    parser.setApplicationDescription("A desktop-sized application that shares its window with a support agent.");
    parser.addHelpOption();
    const QCommandLineOption api("api", "The service's base address.", "URL", "http://127.0.0.1:4000");
    const QCommandLineOption data("data", "Where to keep the settings (device identifier).", "DIR");
    parser.addOptions({api, data});
    parser.process(app);  // exits with a message on a wrong command line

    if (parser.isSet(data)) {
        // The default settings store keeps its files under $XDG_DATA_HOME.
        std::error_code ec;
        std::filesystem::create_directories(parser.value(data).toStdString(), ec);
        qputenv("XDG_DATA_HOME", std::filesystem::absolute(parser.value(data).toStdString()).string().c_str());
    }

    app.setProperty("HLVAutostart", false);  // started below, once the address is set
    halvora::qt::install();
    halvora::platform::Services services;
    auto info = std::make_shared<halvora::platform::StaticAppInfo>();
    info->id = "io.halvora.demo.desk";
    info->name = "Halvora Desk";
    info->version = "1.0";
    info->build = "1";
    services.appInfo = info;
    if (QGuiApplication::platformName() == "offscreen") {
        services.urlOpener = std::make_shared<halvora::platform::LoggingUrlOpener>();
    }
    halvora::platform::install(std::move(services));

    DeskReport report;
    QQmlApplicationEngine engine;
    engine.rootContext()->setContextProperty("desk", &report);
    engine.load(QUrl(QStringLiteral("qrc:/HalvoraDesk/Main.qml")));
    if (engine.rootObjects().isEmpty()) return 1;

    auto& halvora = halvora::Halvora::instance();
    halvora.setApi(parser.value(api).toStdString());
    halvora.start();
    std::printf("device %s\n", halvora.deviceId().c_str());
    std::fflush(stdout);
    return app.exec();
}

#include "main.moc"
