#pragma once
// Lets the shop's screens say what the user (or the agent) just did, one line on standard output
// ("app: added 2 x Blue mug"), so that whoever runs the demo, and its end-to-end test, can follow.

#include <QDateTime>
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
    // The latency probe's change number and when it happened (milliseconds since the epoch), so
    // that an agent on the same machine can time how long the change took to reach it.
    Q_INVOKABLE void mark(int change) const {
        std::printf("probe %d %lld\n", change, static_cast<long long>(QDateTime::currentMSecsSinceEpoch()));
        std::fflush(stdout);
    }
};
