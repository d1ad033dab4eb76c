#include "qt/idle_inhibitor.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QLoggingCategory>

namespace halvora::qt {
namespace {
// A desktop without the screensaver service is common and harmless: a debug line, shown with
// QT_LOGGING_RULES="halvora.idle.debug=true".
Q_LOGGING_CATEGORY(lcIdle, "halvora.idle", QtInfoMsg)
const QString kService = QStringLiteral("org.freedesktop.ScreenSaver");
const QString kPath = QStringLiteral("/org/freedesktop/ScreenSaver");
}  // namespace

IdleInhibitor::IdleInhibitor(QObject* parent) : QObject(parent) {}

void IdleInhibitor::setInhibited(bool inhibited) {
    if (inhibited == wanted_) return;
    wanted_ = inhibited;
    if (wanted_) {
        inhibit();
    } else {
        release();
    }
}

void IdleInhibitor::inhibit() {
    if (holding_ || pending_) return;
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected()) {
        if (!reportedUnavailable_) qCDebug(lcIdle) << "no session bus, so the screen saver is not held off";
        reportedUnavailable_ = true;
        return;
    }
    QDBusMessage call = QDBusMessage::createMethodCall(kService, kPath, kService, QStringLiteral("Inhibit"));
    call << QCoreApplication::applicationName() << QStringLiteral("Sharing the screen with a support agent");
    pending_ = true;
    auto* watcher = new QDBusPendingCallWatcher(bus.asyncCall(call), this);
    QObject::connect(watcher, &QDBusPendingCallWatcher::finished, this, [this, watcher] {
        watcher->deleteLater();
        pending_ = false;
        QDBusPendingReply<quint32> reply = *watcher;
        if (reply.isError()) {
            if (!reportedUnavailable_) qCDebug(lcIdle) << "the screen saver is not held off:" << reply.error().message();
            reportedUnavailable_ = true;
            return;
        }
        cookie_ = reply.value();
        holding_ = true;
        if (!wanted_) release();  // released while the call was under way
    });
}

void IdleInhibitor::release() {
    if (!holding_) return;
    holding_ = false;
    QDBusMessage call = QDBusMessage::createMethodCall(kService, kPath, kService, QStringLiteral("UnInhibit"));
    call << cookie_;
    QDBusConnection::sessionBus().asyncCall(call);
}

}  // namespace halvora::qt
