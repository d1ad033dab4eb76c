#pragma once
// Lets the shop's screens say what the user (or the agent) just did, one line on standard output
// ("app: added 2 x Blue mug"), so that whoever runs the demo, and its end-to-end test, can follow.

#include <QObject>
#include <QString>

#include <cstdio>

class ShopReport final : public QObject {
    Q_OBJECT
public:
    using QObject::QObject;
    Q_INVOKABLE void say(const QString& line) const {
        std::printf("app: %s\n", line.toUtf8().constData());
        std::fflush(stdout);
    }
};
