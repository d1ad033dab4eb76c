#pragma once
// Halvora for Qt Quick applications.
//
//   #include <halvora/quick.h>
//
//   int main(int argc, char** argv) {
//       QGuiApplication app(argc, argv);
//       halvora::qt::install();                 // after the QGuiApplication, before loading QML
//       halvora::platform::install({.appInfo = ...});   // optional: the rest of your services
//       QQmlApplicationEngine engine;
//       engine.load(QUrl("qrc:/MyApp/Main.qml"));  // QML may `import Halvora`
//       halvora::Halvora::instance().start();
//       return app.exec();
//   }
//
// Linking (CMake, after find_package(Halvora CONFIG COMPONENTS Quick) or add_subdirectory):
//
//   target_link_libraries(my-app PRIVATE Halvora::Quick)
//   qt_add_qml_module(my-app URI MyApp ... IMPORT_PATH ${HALVORA_QML_IMPORT_PATH})  # tooling only
//
// Halvora::Quick is a static library without a QML plugin: install() registers the module's
// types, so `import Halvora` needs no import path at run time.
//
// install() makes the GUI thread the library's main thread and installs, through
// platform::install, the Qt main queue, the application (windows, screens, masks) and the screen
// (the key window). It registers the QML module "Halvora" (the attached property
// `Halvora.redactedItems` by which a Page lists its sensitive items, and `ResponderExtension`, by
// which QML handles the agent's touches and keys for a type of its own), reports every Page that
// appears or disappears to Halvora::instance(), and from the first turn of the event loop keeps the
// library's overlay (banner, drawing, laser, touches) drawn on top of the key window.

namespace halvora::qt {

// Call once, on the GUI thread, after the QGuiApplication exists and before QML is loaded.
// Calling it again does nothing.
void install();

}  // namespace halvora::qt
