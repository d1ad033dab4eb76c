// The shortest Qt Quick application that embeds Halvora:
//   minimal-quick [API]     (default: the production service)
#include <QGuiApplication>
#include <QQmlApplicationEngine>

#include <cstdio>

#include <halvora/halvora.h>
#include <halvora/quick.h>

int main(int argc, char** argv) {
    QGuiApplication app(argc, argv);
    halvora::qt::install();  // the GUI thread becomes the library's main thread

    QQmlApplicationEngine engine;
    engine.load(QUrl(QStringLiteral("qrc:/Minimal/Main.qml")));
    if (engine.rootObjects().isEmpty()) return 1;

    auto& halvora = halvora::Halvora::instance();
    if (argc > 1) halvora.setApi(argv[1]);
    halvora.start();  // registers this device and keeps it registered
    std::printf("device %s\n", halvora.deviceId().c_str());
    std::fflush(stdout);
    return app.exec();
}
