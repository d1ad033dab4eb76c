#pragma once
// Keeps the desktop's screen saver off while asked to, through the freedesktop ScreenSaver
// interface on the session bus (GNOME, KDE, Xfce and others answer it). Without a session bus,
// or a desktop that answers, it does nothing and says so once in the log.

#include <QObject>
#include <QString>

namespace halvora::qt {

class IdleInhibitor final : public QObject {
public:
    explicit IdleInhibitor(QObject* parent);
    void setInhibited(bool inhibited);
    bool isInhibited() const { return wanted_; }

private:
    void inhibit();
    void release();

    bool wanted_ = false;
    bool pending_ = false;  // an Inhibit call is under way
    bool reportedUnavailable_ = false;
    quint32 cookie_ = 0;
    bool holding_ = false;
};

}  // namespace halvora::qt
