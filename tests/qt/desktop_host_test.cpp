// The library as a desktop host sees it, in a real X server (Xvfb) with a session bus of its own
// (dbus-run-session): the screen saver held off only while a session is active, and frames that
// keep coming while another application has the focus. Offscreen, without X or a bus, these skip;
// CTest runs them under both (tests/CMakeLists.txt).
#include <gtest/gtest.h>

#include <QDBusConnection>
#include <QGuiApplication>
#include <QProcess>
#include <QProcessEnvironment>

#include <vector>

#include "session_fixture.h"

namespace halvora::qt {
namespace {

using namespace test;

// Stands in for the desktop's screen saver on the session bus, recording what it is asked.
class StandInScreenSaver final : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.ScreenSaver")
public:
    bool registered() {
        auto bus = QDBusConnection::sessionBus();
        return bus.registerService("org.freedesktop.ScreenSaver") &&
               bus.registerObject("/org/freedesktop/ScreenSaver", this, QDBusConnection::ExportAllSlots);
    }
    ~StandInScreenSaver() override {
        auto bus = QDBusConnection::sessionBus();
        bus.unregisterObject("/org/freedesktop/ScreenSaver");
        bus.unregisterService("org.freedesktop.ScreenSaver");
    }
    std::vector<uint> inhibited, released;

public Q_SLOTS:
    uint Inhibit(const QString&, const QString&) {
        inhibited.push_back(next_);
        return next_++;
    }
    void UnInhibit(uint cookie) { released.push_back(cookie); }

private:
    uint next_ = 41;
};

bool isOrange(QColor c) { return c.red() > 200 && c.green() > 100 && c.green() < 160 && c.blue() < 80; }

class DesktopHostTest : public SessionOverQuickWindow {
protected:
    void SetUp() override {
        if (QGuiApplication::platformName() != "xcb" || !QDBusConnection::sessionBus().isConnected())
            GTEST_SKIP() << "needs an X server and a session bus";
        SessionOverQuickWindow::SetUp();
    }
    void TearDown() override {
        if (thief_.state() != QProcess::NotRunning) {
            thief_.kill();
            thief_.waitForFinished();
        }
        if (session && session->isActive()) session->updateResource(record("ended"));
    }
    const char* windowQml() const override {
        return R"(
            import QtQuick
            Window {
                width: 640; height: 400; color: "white"
                Rectangle { objectName: "badge"; x: 40; y: 40; width: 200; height: 200; color: "#2040c0" }
            })";
    }
    // Another application that takes the keyboard focus (this binary, as qt_test_main.cpp runs it).
    void focusAnotherApplication() {
        auto environment = QProcessEnvironment::systemEnvironment();
        environment.insert("HALVORA_TEST_TAKE_FOCUS", "1");
        thief_.setProcessEnvironment(environment);
        thief_.start(QCoreApplication::applicationFilePath(), {});
        ASSERT_TRUE(eventually([&] { return thief_.readAllStandardOutput().contains("focused"); }))
            << "the other application never got the focus";
        ASSERT_TRUE(eventually([] { return QGuiApplication::applicationState() != Qt::ApplicationActive; }));
    }

    QProcess thief_;
};

TEST_F(DesktopHostTest, TheScreenSaverIsHeldOffOnlyWhileTheSessionIsActive) {
    StandInScreenSaver saver;
    ASSERT_TRUE(saver.registered()) << "the session bus refused the stand-in";
    activate();
    ASSERT_TRUE(eventually([&] { return saver.inhibited.size() == 1; }));
    EXPECT_TRUE(saver.released.empty());
    session->updateResource(record("ended"));
    ASSERT_TRUE(eventually([&] { return saver.released.size() == 1; })) << "the desktop would never lock";
    EXPECT_EQ(saver.released, saver.inhibited);
}

// The user talks to the agent in another application while the shared window stays in sight:
// Qt calls the application inactive, and the picture must keep flowing. Hidden, nothing is sent.
TEST_F(DesktopHostTest, FramesKeepComingWhileAnotherApplicationHasTheFocus) {
    activate();
    ASSERT_TRUE(eventually([&] { return !frames().empty(); }));
    focusAnotherApplication();
    child(window.get(), "badge")->setProperty("color", QColor("#f08020"));
    waitForFrameShowing(isOrange);

    window->hide();
    QTest::qWait(300);
    const std::size_t sent = frames().size();
    QTest::qWait(1200);
    EXPECT_EQ(frames().size(), sent) << "frames of a hidden window";
}

}  // namespace
}  // namespace halvora::qt

#include "desktop_host_test.moc"
