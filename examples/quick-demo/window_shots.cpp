#include "window_shots.h"

#include <QDir>
#include <QImage>
#include <QQuickWindow>
#include <QRegularExpression>

#include <cerrno>
#include <cstdio>

#include <unistd.h>

namespace {

constexpr qsizetype kLongestLine = 4096;

}  // namespace

WindowShots::WindowShots(QQuickWindow* window, QString dir, QObject* parent)
    : QObject(parent), window_(window), dir_(std::move(dir)), notifier_(STDIN_FILENO, QSocketNotifier::Read) {
    QDir().mkpath(dir_);
    connect(&notifier_, &QSocketNotifier::activated, this, &WindowShots::readInput);
}

void WindowShots::readInput() {
    char buffer[512];
    const auto count = ::read(STDIN_FILENO, buffer, sizeof buffer);
    if (count < 0 && errno == EINTR) return;
    if (count <= 0) {
        // End of input (or no usable input at all): nothing more will be asked.
        notifier_.setEnabled(false);
        return;
    }
    pending_.append(buffer, count);
    for (auto end = pending_.indexOf('\n'); end >= 0; end = pending_.indexOf('\n')) {
        const QByteArray line = pending_.left(end).trimmed();
        pending_.remove(0, end + 1);
        handle(line);
    }
    if (pending_.size() > kLongestLine) pending_.clear();
}

void WindowShots::handle(const QByteArray& line) {
    static const QRegularExpression name("^screenshot ([A-Za-z0-9_-]{1,64})$");
    const auto match = name.match(QString::fromUtf8(line));
    if (!match.hasMatch() || !window_) return;
    const QString path = QDir(dir_).filePath(match.captured(1) + ".png");
    if (window_->grabWindow().save(path)) {
        std::printf("screenshot %s\n", path.toUtf8().constData());
    } else {
        std::printf("screenshot failed %s\n", match.captured(1).toUtf8().constData());
    }
    std::fflush(stdout);
}
