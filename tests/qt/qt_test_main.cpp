// Runs the Qt suites inside one QGuiApplication, with the library's main queue, screen and
// application being the Qt ones (the overlay and screen tracking are set up per test).
#include <QGuiApplication>
#include <QRasterWindow>
#include <gtest/gtest.h>

#include <cstdio>
#include <memory>

#include "halvora/platform.h"
#include "qt/qt_main_queue.h"
#include "qt/quick_application.h"
#include "qt/quick_screen.h"

void qml_register_types_Halvora();

// Qt's software scene graph keeps the textures and images of a window's last frame until its render
// loop is torn down, after the leak check of a test process. Only allocations made inside Qt's own
// scene-graph and image code are ignored; read by LeakSanitizer in the ASan build.
extern "C" const char* __lsan_default_suppressions() {
    return "leak:QSGTexture::QSGTexture\n"
           "leak:QImageData::create\n"
           "leak:QPixmap::fromImage\n"
           "leak:QtSharedPointer::ExternalRefCountData::getAndRef\n";
}

// Another application for the desktop tests: a window that takes the keyboard focus, says so,
// and stays until it is killed.
int takeFocus(int argc, char** argv) {
    QGuiApplication app(argc, argv);
    QRasterWindow window;
    window.resize(200, 200);
    QObject::connect(&app, &QGuiApplication::focusWindowChanged, [&](QWindow* focus) {
        if (focus != &window) return;
        std::printf("focused\n");
        std::fflush(stdout);
    });
    window.show();
    window.requestActivate();
    return app.exec();
}

int main(int argc, char** argv) {
    if (qEnvironmentVariableIsSet("HALVORA_TEST_TAKE_FOCUS")) return takeFocus(argc, argv);
    // CTest sets both; test discovery runs the binary without that environment.
    if (!qEnvironmentVariableIsSet("QT_QPA_PLATFORM")) qputenv("QT_QPA_PLATFORM", "offscreen");
    if (!qEnvironmentVariableIsSet("QT_QUICK_BACKEND")) qputenv("QT_QUICK_BACKEND", "software");
    testing::InitGoogleTest(&argc, argv);
    QGuiApplication app(argc, argv);
    qml_register_types_Halvora();
    halvora::platform::Services services;
    services.mainQueue = std::make_shared<halvora::qt::QtMainQueue>();
    services.screen = std::make_shared<halvora::qt::QuickScreen>();
    services.application = std::make_shared<halvora::qt::QuickApplication>();
    halvora::platform::install(std::move(services));
    return RUN_ALL_TESTS();
}
