#pragma once
// Saves the shop's own window when asked on standard input, for runs that need to see what the
// user sees (the agent's drawing, say) rather than the frames the agent gets: each line
// "screenshot NAME" writes DIR/NAME.png and then prints "screenshot DIR/NAME.png", or
// "screenshot failed NAME" when it cannot. NAME is letters, digits, '-' and '_' only.

#include <QByteArray>
#include <QObject>
#include <QPointer>
#include <QSocketNotifier>
#include <QString>

class QQuickWindow;

class WindowShots final : public QObject {
public:
    WindowShots(QQuickWindow* window, QString dir, QObject* parent);

private:
    void readInput();
    void handle(const QByteArray& line);

    QPointer<QQuickWindow> window_;
    QString dir_;
    QSocketNotifier notifier_;
    QByteArray pending_;
};
