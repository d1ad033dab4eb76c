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

class QObject;
class QString;

namespace halvora::qt {

// Call once, before the QGuiApplication exists: sets what Qt needs set that early for the pages
// the agent sends to open in a WebView inside the shared window (Qt WebView's web engine shares
// OpenGL contexts). Harmless when Qt WebView is not installed.
void prepareApplication();

// Call once, on the GUI thread, after the QGuiApplication exists and before QML is loaded.
// Calling it again does nothing.
//
// A copy of the application started for a session link (the desktop's x-scheme-handler, or an
// https link to the library's link host) while another copy of it runs for the same user hands
// the link to that copy and exits here, so one copy, with one device identifier, joins it.
void install();

// Your application's own handler for links of a scheme, as QDesktopServices::setUrlHandler takes
// it (a receiver and the name of its slot taking a QUrl). Use it instead of QDesktopServices for
// the https scheme, or the scheme Halvora's links use: once started, Halvora takes the links of
// those schemes that are its own and hands every other one to your handler (without one, other
// https links go to the browser). Qt does not tell which handler was set before, so this is how
// Halvora learns of yours.
void setUrlHandler(const QString& scheme, QObject* receiver, const char* method);

}  // namespace halvora::qt
