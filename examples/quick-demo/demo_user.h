#pragma once
// Plays the person at the device, for a demo or a test run without anyone there: asks for help
// from the shop's header, reads the code out (prints it), approves the agent, and after a while
// ends the session from the red banner, through the same taps a person would make. With a
// screenshot folder it keeps a picture of the shop's own window at each of these screens.

#include <QObject>
#include <QPointF>
#include <QPointer>
#include <QString>
#include <QTimer>

#include <chrono>

class QQuickItem;
class QQuickWindow;

class DemoUser final : public QObject {
public:
    DemoUser(QQuickWindow* window, std::chrono::milliseconds sharedFor, QString screenshotDir, QObject* parent);

private:
    enum class Step { askForHelp, readCode, approve, countDown, activating, shared, manage, done };

    void poll();
    // The visible item with this objectName anywhere in the window, popups included.
    QQuickItem* find(const QString& objectName) const;
    void tap(QQuickItem* item);
    void tapAt(QPointF scenePoint);
    void screenshot(const QString& name) const;
    void say(const QString& line) const;

    QPointer<QQuickWindow> window_;
    std::chrono::milliseconds sharedFor_;
    QString screenshotDir_;
    QTimer timer_;
    Step step_ = Step::askForHelp;
    std::chrono::steady_clock::time_point sharedSince_;
};
