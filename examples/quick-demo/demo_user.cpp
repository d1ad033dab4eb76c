#include "demo_user.h"

#include <QCoreApplication>
#include <QDir>
#include <QImage>
#include <QMouseEvent>
#include <QQuickItem>
#include <QQuickWindow>

#include <cstdio>

#include <halvora/platform.h>
#include <functional>

namespace {

QQuickItem* findVisible(QQuickItem* item, const QString& objectName) {
    if (!item || !item->isVisible() || item->opacity() <= 0) return nullptr;
    if (item->objectName() == objectName && item->width() > 0 && item->height() > 0) return item;
    // Front to back: of two such items (a screen leaving under a popup), the one on top counts.
    const auto children = item->childItems();
    for (auto child = children.rbegin(); child != children.rend(); ++child) {
        if (auto* found = findVisible(*child, objectName)) return found;
    }
    return nullptr;
}

}  // namespace

DemoUser::DemoUser(QQuickWindow* window, std::chrono::milliseconds sharedFor, QString screenshotDir, QObject* parent)
    : QObject(parent), window_(window), sharedFor_(sharedFor), screenshotDir_(std::move(screenshotDir)) {
    if (!screenshotDir_.isEmpty()) QDir().mkpath(screenshotDir_);
    connect(&timer_, &QTimer::timeout, this, &DemoUser::poll);
    timer_.start(200);
}

void DemoUser::poll() {
    if (!window_) return;
    switch (step_) {
    case Step::askForHelp:
        if (auto* help = find("getHelp")) {
            say("asks for help");
            tap(help);
            step_ = Step::readCode;
        }
        break;
    case Step::readCode:
        // Random digits spin until the real code is in; it comes with the "waiting" indicator.
        if (auto* label = find("codeLabel"); label && find("working")) {
            screenshot("1-code");
            say("reads the code " + label->property("text").toString() + " to the agent");
            step_ = Step::approve;
        }
        break;
    case Step::approve:
        if (auto* approve = find("approve")) {
            screenshot("2-approval");
            say("approves the agent");
            tap(approve);
            step_ = Step::countDown;
        }
        break;
    case Step::countDown:
        if (find("coutdown")) {
            screenshot("3-countdown");
            step_ = Step::activating;
        }
        break;
    case Step::activating:
        // The flow leaves the stack by itself once the session is active.
        if (!find("poweredBy")) {
            step_ = Step::shared;
            sharedSince_ = std::chrono::steady_clock::now();
        }
        break;
    case Step::shared:
        if (std::chrono::steady_clock::now() - sharedSince_ >= sharedFor_) {
            screenshot("4-shared");
            say("taps the banner");
            // The sharing badge, where the library placed it: over no control of the shop.
            const auto badge = halvora::platform::screen().statusBarFrame();
            tapAt({badge.x + badge.width / 2, badge.y + badge.height / 2});
            step_ = Step::manage;
        }
        break;
    case Step::manage:
        if (auto* end = find("end")) {
            screenshot("5-manage");
            say("ends the session");
            tap(end);
            step_ = Step::done;
        }
        break;
    case Step::done:
        timer_.stop();
        break;
    }
}

QQuickItem* DemoUser::find(const QString& objectName) const {
    return window_ ? findVisible(window_->contentItem(), objectName) : nullptr;
}

void DemoUser::tap(QQuickItem* item) { tapAt(item->mapToScene(QPointF(item->width() / 2, item->height() / 2))); }

void DemoUser::tapAt(QPointF scenePoint) {
    const QPointF global = window_->mapToGlobal(scenePoint);
    QMouseEvent press(QEvent::MouseButtonPress, scenePoint, global, Qt::LeftButton, Qt::LeftButton, Qt::NoModifier);
    QCoreApplication::sendEvent(window_, &press);
    QMouseEvent release(QEvent::MouseButtonRelease, scenePoint, global, Qt::LeftButton, Qt::NoButton,
                        Qt::NoModifier);
    QCoreApplication::sendEvent(window_, &release);
}

void DemoUser::screenshot(const QString& name) const {
    if (screenshotDir_.isEmpty()) return;
    const QString path = QDir(screenshotDir_).filePath("user-" + name + ".png");
    if (!window_->grabWindow().save(path)) say("could not save " + path);
}

void DemoUser::say(const QString& line) const {
    std::printf("user: %s\n", line.toUtf8().constData());
    std::fflush(stdout);
}
